// The mark beside the database.
#include "host/cdb/storage/commit_mark.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "host/cdb/storage/row_digest.h"

namespace host {
namespace {

constexpr char kMagic[] = {'A', 'C', 'L', 'M', 'A', 'R', 'K', '1'};
constexpr size_t kDatabaseOctets = 16;
constexpr off_t kSlotDistance = 512;
constexpr int kSlots = 2;

struct Slot {
  char magic[sizeof(kMagic)];
  char database[kDatabaseOctets];
  uint64_t commit;
  int64_t digest;
};
static_assert(sizeof(Slot) == 40, "no padding: the digest is over the octets");

int64_t DigestOf(const Slot& slot) {
  return RowDigest().Add({reinterpret_cast<const char*>(&slot), offsetof(Slot, digest)}).value();
}

Slot SlotOf(const std::string& database, uint64_t commit) {
  Slot slot{};
  std::memcpy(slot.magic, kMagic, sizeof(kMagic));
  std::memcpy(slot.database, database.data(), std::min(database.size(), kDatabaseOctets));
  slot.commit = commit;
  slot.digest = DigestOf(slot);
  return slot;
}

bool IsSound(const Slot& slot) {
  return std::memcmp(slot.magic, kMagic, sizeof(kMagic)) == 0 && slot.digest == DigestOf(slot);
}

bool Failed(const std::string& path, const char* what, std::string* why) {
  *why = path + " cannot be " + what + ": " + std::strerror(errno);
  return false;
}

bool WriteAt(int fd, const void* data, size_t size, off_t at) {
  const ssize_t written = pwrite(fd, data, size, at);
  if (written >= 0 && written != static_cast<ssize_t>(size)) errno = ENOSPC;
  return written == static_cast<ssize_t>(size);
}

// Makes the names in the directory of `path` durable.
bool SyncDirectoryOf(const std::string& path) {
  const std::string directory = path.substr(0, path.rfind('/') + 1);
  const int fd = open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return false;
  const bool synced = fsync(fd) == 0;
  close(fd);
  return synced;
}

}  // namespace

CommitMark::~CommitMark() {
  if (fd_ >= 0) close(fd_);
}

bool CommitMark::Open(std::string* why) {
  if (fd_ >= 0) close(fd_);
  fd_ = open(path_.c_str(), O_RDWR | O_CLOEXEC);
  return fd_ >= 0 || Failed(path_, "opened", why);
}

bool CommitMark::Read(std::optional<Content>* content, bool* damaged, std::string* why) {
  content->reset();
  *damaged = false;
  if (!Open(why)) return errno == ENOENT;
  for (int i = 0; i < kSlots; ++i) {
    Slot slot{};
    if (pread(fd_, &slot, sizeof(slot), i * kSlotDistance) < 0) return Failed(path_, "read", why);
    if (!IsSound(slot) || (content->has_value() && (*content)->commit >= slot.commit)) continue;
    *content = Content{std::string(slot.database, kDatabaseOctets), slot.commit};
    next_slot_ = 1 - i;
  }
  *damaged = !content->has_value();
  if (content->has_value()) database_ = (*content)->database;
  return true;
}

bool CommitMark::Create(const Content& content, std::string* why) {
  std::array<char, kSlots * kSlotDistance> file{};
  const Slot slot = SlotOf(content.database, content.commit);
  for (int i = 0; i < kSlots; ++i)
    std::memcpy(file.data() + i * kSlotDistance, &slot, sizeof(slot));
  const std::string draft = path_ + ".new";
  const int fd = open(draft.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  if (fd < 0) return Failed(draft, "made", why);
  const bool written = WriteAt(fd, file.data(), file.size(), 0) && fsync(fd) == 0;
  if (!written) Failed(draft, "written", why);
  close(fd);
  if (!written) return false;
  if (rename(draft.c_str(), path_.c_str()) != 0 || !SyncDirectoryOf(path_))
    return Failed(path_, "made", why);
  database_ = content.database;
  next_slot_ = 0;
  return Open(why);
}

bool CommitMark::Advance(uint64_t commit, std::string* why) {
  const Slot slot = SlotOf(database_, commit);
  if (!WriteAt(fd_, &slot, sizeof(slot), next_slot_ * kSlotDistance) || fdatasync(fd_) != 0)
    return Failed(path_, "written", why);
  next_slot_ = 1 - next_slot_;
  return true;
}

}  // namespace host
