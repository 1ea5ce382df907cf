#include "host/runtime/process_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace host {
namespace {

// What keeps `directory` from being used, or empty.
std::string WhyUnusable(const std::string& directory) {
  struct stat status {};
  if (stat(directory.c_str(), &status) != 0) {
    return std::strerror(errno);
  }
  if (!S_ISDIR(status.st_mode)) {
    return std::strerror(ENOTDIR);
  }
  return access(directory.c_str(), R_OK | W_OK | X_OK) == 0 ? "" : std::strerror(errno);
}

std::string OwnerText(int fd) {
  std::array<char, 32> text{};
  const ssize_t length = pread(fd, text.data(), text.size() - 1, 0);
  const std::string pid(text.data(), length < 0 ? 0 : strcspn(text.data(), "\n"));
  return pid.empty() ? "another process" : "the process with pid " + pid;
}

bool WritePid(int fd) {
  const std::string pid = std::to_string(getpid()) + "\n";
  return ftruncate(fd, 0) == 0 &&
         pwrite(fd, pid.data(), pid.size(), 0) == static_cast<ssize_t>(pid.size());
}

}  // namespace

std::unique_ptr<ProcessLock> ProcessLock::Take(const std::string& directory, std::string* error) {
  const std::string reason = WhyUnusable(directory);
  if (!reason.empty()) {
    *error = "state directory " + directory + " cannot be used: " + reason;
    return nullptr;
  }
  const std::string path = directory + "/lock";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0644);
  if (fd < 0) {
    *error = "lock file " + path + " cannot be opened: " + std::strerror(errno);
    return nullptr;
  }
  std::unique_ptr<ProcessLock> lock(new ProcessLock(fd));
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    *error = errno == EWOULDBLOCK
                 ? "state directory " + directory + " is in use by " + OwnerText(fd)
                 : "lock file " + path + " cannot be locked: " + std::strerror(errno);
    return nullptr;
  }
  if (!WritePid(fd)) {
    *error = "lock file " + path + " cannot be written: " + std::strerror(errno);
    return nullptr;
  }
  return lock;
}

ProcessLock::~ProcessLock() { close(fd_); }

}  // namespace host
