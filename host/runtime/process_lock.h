// Keeps a second daemon off the same state directory, and other users out of it.
#ifndef HOST_RUNTIME_PROCESS_LOCK_H_
#define HOST_RUNTIME_PROCESS_LOCK_H_

#include <memory>
#include <string>

namespace host {

// An exclusive flock(2) on the file "lock" of a directory, held until destruction. The kernel ends
// it with the process, however that ends; the file stays and holds the pid of its last owner.
class ProcessLock {
 public:
  // Null with a reason that names the directory (or the lock's owner) in `error` when the directory
  // is missing or not usable, or another process holds the lock. The directory and the files in it
  // become accessible to this account alone, unless it holds directories, and so is not only for
  // the daemon's state.
  static std::unique_ptr<ProcessLock> Take(const std::string& directory, std::string* error);
  ProcessLock(const ProcessLock&) = delete;
  ProcessLock& operator=(const ProcessLock&) = delete;
  ~ProcessLock();

 private:
  explicit ProcessLock(int fd) : fd_(fd) {}
  int fd_;
};

}  // namespace host

#endif  // HOST_RUNTIME_PROCESS_LOCK_H_
