#include "host/runtime/process_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "host/runtime/log.h"

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

// Takes from group and others what they may do with `path`, if it is this account's.
void KeepPrivate(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || S_ISLNK(status.st_mode) || status.st_uid != geteuid() ||
      (status.st_mode & (S_IRWXG | S_IRWXO)) == 0) {
    return;
  }
  if (chmod(path.c_str(), status.st_mode & S_IRWXU) != 0) {
    Log(LogLevel::kWarning, "%s is open to other users: %s", path.c_str(), std::strerror(errno));
  }
}

// What earlier versions made with wider modes is narrowed. Whoever may open the lock can hold it.
void KeepStatePrivate(const std::string& directory) {
  std::error_code error;
  std::vector<std::string> files;
  for (const auto& entry : std::filesystem::directory_iterator(directory, error)) {
    if (entry.is_directory(error) && !entry.is_symlink(error)) {
      Log(LogLevel::kWarning, "state directory %s holds other things, so its mode stays",
          directory.c_str());
      return;
    }
    files.push_back(entry.path());
  }
  KeepPrivate(directory);
  for (const std::string& file : files) KeepPrivate(file);
}

// The holder of the lock on `fd`, as the kernel knows it: what the file says may be of a process
// that is gone. A line of /proc/locks (proc(5)) is "N: FLOCK ADVISORY WRITE PID MAJ:MIN:INODE ...".
std::string OwnerText(int fd) {
  struct stat status {};
  fstat(fd, &status);
  const std::string inode = ":" + std::to_string(status.st_ino);
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    std::istringstream words(line);
    std::string number, kind, advisory, mode, file;
    long pid = 0;
    words >> number >> kind >> advisory >> mode >> pid >> file;
    const bool same = file.size() > inode.size() &&
                      file.compare(file.size() - inode.size(), inode.size(), inode) == 0;
    if (kind == "FLOCK" && same && pid > 0) return "the process with pid " + std::to_string(pid);
  }
  return "another process";
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
  KeepStatePrivate(directory);
  const std::string path = directory + "/lock";
  const int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
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
