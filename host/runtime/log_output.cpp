#include "host/runtime/log_output.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstring>

namespace host {
namespace {

class Descriptor : public LogOutput {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() override { Close(); }

 protected:
  bool Take(int /*priority*/, std::string_view line, std::string_view /*fields*/) override {
    LookAtDescriptor();
    Continue();
    if (!rest_.empty()) return false;
    rest_ = line;
    rest_ += '\n';
    const size_t size = rest_.size();
    Continue();
    if (rest_.size() < size) return true;
    rest_.clear();
    return false;
  }

 private:
  void Close() {
    if (own_ >= 0) close(own_);
    own_ = -1;
  }

  // Others may put another file in the descriptor's place (dup2(2)).
  void LookAtDescriptor() {
    struct stat now {};
    if (fstat(fd_, &now) != 0 || (now.st_dev == file_.st_dev && now.st_ino == file_.st_ino)) return;
    file_ = now;
    Close();
    rest_.clear();
    // A description of its own for the same pipe or terminal, for the flag belongs to that.
    if (S_ISFIFO(now.st_mode) || S_ISCHR(now.st_mode)) {
      own_ = open(("/proc/self/fd/" + std::to_string(fd_)).c_str(),
                  O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    }
  }

  // Writes of `rest_` what there is room for.
  void Continue() {
    while (!rest_.empty()) {
      const ssize_t size = WriteSome();
      if (size < 0 && errno == EINTR) continue;
      if (size <= 0) return;
      rest_.erase(0, static_cast<size_t>(size));
    }
  }

  ssize_t WriteSome() const {
    if (S_ISSOCK(file_.st_mode))
      return send(fd_, rest_.data(), rest_.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (own_ >= 0) return write(own_, rest_.data(), rest_.size());
    // A pipe that can be written to has room for this much (pipe(7)), and a file always has.
    pollfd ready{fd_, POLLOUT, 0};
    if (poll(&ready, 1, 0) != 1 || (ready.revents & POLLOUT) == 0) return 0;
    return write(fd_, rest_.data(), std::min<size_t>(rest_.size(), PIPE_BUF));
  }

  const int fd_;
  int own_ = -1;
  struct stat file_ {};
  std::string rest_;  // of a line that was taken in part
};

class Journal : public LogOutput {
 public:
  Journal(int fd, const sockaddr_un& address, const std::string& name)
      : fd_(fd), address_(address), head_("SYSLOG_IDENTIFIER=" + name + "\nPRIORITY=") {}
  ~Journal() override { close(fd_); }

 protected:
  bool Take(int priority, std::string_view line, std::string_view fields) override {
    // Lines have no control characters, so a field ends where its line does.
    std::string message = head_ + std::to_string(priority) + "\nMESSAGE=";
    message.append(line).append("\n").append(fields);
    // Addressed anew each time: the journal may have been restarted.
    return sendto(fd_, message.data(), message.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                  reinterpret_cast<const sockaddr*>(&address_), sizeof(address_)) >= 0;
  }

 private:
  const int fd_;
  const sockaddr_un address_;
  const std::string head_;
};

}  // namespace

void LogOutput::Write(int priority, std::string_view line, std::string_view fields) {
  // In one piece with the line: what finds no room for both has nobody who reads yet.
  std::string text(line);
  if (dropped_ != reported_) {
    text += " [log lines dropped before this one: " + std::to_string(dropped_ - reported_) + "]";
  }
  constexpr int kTries = 50, kPauseMs = 10;
  bool taken = Take(priority, text, fields);
  for (int i = 1; !taken && priority <= LOG_CRIT && i < kTries; ++i) {
    poll(nullptr, 0, kPauseMs);
    taken = Take(priority, text, fields);
  }
  if (taken) {
    reported_ = dropped_;
  } else {
    ++dropped_;
  }
}

std::unique_ptr<LogOutput> DescriptorOutput(int fd) { return std::make_unique<Descriptor>(fd); }

std::unique_ptr<LogOutput> JournalOutput(const std::string& path, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof(address.sun_path)) {
    errno = ENAMETOOLONG;
    return nullptr;
  }
  std::memcpy(address.sun_path, path.data(), path.size());
  if (access(path.c_str(), W_OK) != 0) return nullptr;
  const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return nullptr;
  return std::make_unique<Journal>(fd, address, name);
}

}  // namespace host
