// The notifications of the past: see notification_log.h.
#include "host/netconf/notifications/notification_log.h"

#include <fcntl.h>
#include <unistd.h>
#include <xxhash.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cinttypes>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string_view>
#include <utility>

#include "host/runtime/date_and_time.h"
#include "host/runtime/log.h"

namespace host {
namespace {

// By Shelf.
constexpr const char* kFiles[] = {"/notifications-sessions.log", "/notifications-ports.log",
                                  "/notifications.log"};
// The first line of a file, before its times.
constexpr char kHeader[] = "acl-app notifications 1";
// What a notification takes beside its content: in a file, and about as much in memory.
constexpr size_t kOverhead = 48;

std::string ChecksumOf(std::string_view text) {
  std::array<char, 17> digits{};
  std::snprintf(digits.data(), digits.size(), "%016" PRIx64, XXH3_64bits(text.data(), text.size()));
  return digits.data();
}

std::string LineOf(const Notification& notification) {
  const std::string text = std::to_string(notification.time_us) + " " + notification.content;
  return ChecksumOf(text) + " " + text + "\n";
}

// Null when the line is none of this log's, or damaged.
NotificationPtr ReadLine(std::string_view line) {
  constexpr size_t kStart = 17;
  if (line.size() <= kStart) return nullptr;
  const std::string_view text = line.substr(kStart);
  if (ChecksumOf(text) != line.substr(0, kStart - 1)) return nullptr;
  auto notification = std::make_shared<Notification>();
  const char* const end = text.data() + text.size();
  const auto time = std::from_chars(text.data(), end, notification->time_us);
  if (time.ec != std::errc() || time.ptr == end) return nullptr;
  notification->content.assign(time.ptr + 1, end);
  return notification;
}

bool Earlier(const NotificationPtr& one, const NotificationPtr& other) {
  return one->time_us < other->time_us;
}

// Appends the text to the file, which is made if it is not there. 0, or an errno.
int AppendTo(const std::string& path, std::string_view text) {
  const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
  if (fd < 0) return errno;
  int error = 0;
  while (!text.empty() && error == 0) {
    const ssize_t size = write(fd, text.data(), text.size());
    if (size >= 0) text.remove_prefix(size);
    if (size < 0 && errno != EINTR) error = errno;
  }
  close(fd);
  return error;
}

}  // namespace

std::string Notification::Message() const {
  return std::string("<notification xmlns=\"") + kNotificationNamespace + "\"><eventTime>" +
         DateAndTime(time_us, 6) + "</eventTime>" + content + "</notification>";
}

NotificationLog::NotificationLog(std::string directory, Sizes sizes, int64_t now_us)
    : created_us_(now_us) {
  for (size_t shelf = 0; shelf < kShelves; ++shelf) {
    Generations& generations = shelves_[shelf];
    generations.limit = sizes.bytes[shelf];
    if (directory.empty()) continue;
    generations.path = directory + kFiles[shelf];
    size_t ignored = 0;
    Read(OlderPath(generations), &generations.older, &ignored);
    generations.begun = Read(generations.path, &generations.younger, &generations.younger_bytes);
    if (generations.begun) continue;
    // Not to be gone on with: a torn line at the end, or what is none of this log's.
    if (generations.younger.empty()) {
      unlink(generations.path.c_str());
    } else {
      Turn(&generations);
    }
  }
}

// False when there is no such file, or when its first or last line is not as it should be.
bool NotificationLog::Read(const std::string& path, std::deque<NotificationPtr>* into,
                           size_t* bytes) {
  std::ifstream file(path, std::ios::binary);
  std::string line;
  if (!std::getline(file, line)) return false;
  std::istringstream first(line);
  std::string program, what, version;
  int64_t created = 0, aged = 0;
  first >> program >> what >> version >> created >> aged;
  if (!first || program + " " + what + " " + version != kHeader) return false;
  created_us_ = std::min(created_us_, created);
  aged_us_ = std::max(aged_us_, aged);
  bool whole = true;
  while (std::getline(file, line)) {
    NotificationPtr notification = ReadLine(line);
    whole = notification != nullptr && !file.eof();
    if (notification == nullptr) continue;
    *bytes += notification->content.size() + kOverhead;
    into->push_back(std::move(notification));
  }
  return whole;
}

void NotificationLog::Add(Shelf shelf, NotificationPtr notification) {
  Generations& generations = shelves_[shelf];
  if (generations.younger_bytes > generations.limit) Turn(&generations);
  if (!generations.path.empty()) Write(&generations, LineOf(*notification));
  generations.younger_bytes += notification->content.size() + kOverhead;
  generations.younger.push_back(std::move(notification));
}

// Makes the younger generation the older one.
void NotificationLog::Turn(Generations* shelf) {
  if (!shelf->older.empty()) aged_us_ = std::max(aged_us_, shelf->older.back()->time_us);
  shelf->older = std::move(shelf->younger);
  shelf->younger.clear();
  shelf->younger_bytes = 0;
  shelf->begun = false;
  if (shelf->path.empty()) return;
  if (std::rename(shelf->path.c_str(), OlderPath(*shelf).c_str()) != 0 && errno != ENOENT) {
    Log(LogLevel::kError, "netconf: %s cannot be renamed: %s", shelf->path.c_str(),
        std::strerror(errno));
    unlink(shelf->path.c_str());
  }
}

void NotificationLog::Write(Generations* shelf, std::string line) {
  if (!shelf->begun) {
    line = std::string(kHeader) + " " + std::to_string(created_us_) + " " +
           std::to_string(aged_us_) + "\n" + line;
  } else if (shelf->failed) {
    line.insert(0, "\n");  // behind what may be half a line
  }
  const int error = AppendTo(shelf->path, line);
  if (error != 0 && !shelf->failed) {
    Log(LogLevel::kError, "netconf: notifications cannot be kept in %s for the next run: %s",
        shelf->path.c_str(), std::strerror(error));
  }
  shelf->failed = error != 0;
  shelf->begun = shelf->begun || error == 0;
}

std::vector<NotificationPtr> NotificationLog::Between(int64_t from_us, int64_t until_us) const {
  std::vector<NotificationPtr> all;
  for (const Generations& shelf : shelves_) {
    std::vector<NotificationPtr> merged, own;
    for (const auto* generation : {&shelf.older, &shelf.younger}) {
      for (const NotificationPtr& notification : *generation) {
        const int64_t time = notification->time_us;
        if (time >= from_us && time <= until_us) own.push_back(notification);
      }
    }
    std::merge(all.begin(), all.end(), own.begin(), own.end(), std::back_inserter(merged), Earlier);
    all = std::move(merged);
  }
  return all;
}

}  // namespace host
