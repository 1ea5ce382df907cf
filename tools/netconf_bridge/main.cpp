// acl-app-netconf: what OpenSSH runs as the subsystem "netconf" (RFC 6242 section 3). It copies
// between its standard input and output, which are the SSH channel, and the daemon's socket.
//
// The bridge runs as the user who logged in, so that the daemon knows from the socket who that is.
// It never looks at what it copies.
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/netconf/wire/listener.h"
#include "host/netconf/wire/unreachable.h"
#include "host/runtime/settings.h"
#include "host/runtime/version.h"

namespace {

// One direction: from a descriptor to another, with what was read and is not written yet.
class Pipe {
 public:
  Pipe(int from, int to) : from_(from), to_(to) {}

  bool ended() const { return ended_; }
  // What to wait for: input when the buffer is empty, else room for output.
  pollfd Wanted() const {
    if (ended_) return {-1, 0, 0};
    return filled_ == 0 ? pollfd{from_, POLLIN, 0} : pollfd{to_, POLLOUT, 0};
  }
  // Moves what can be moved; false when the other side is gone.
  bool Step() {
    if (filled_ == 0) {
      const ssize_t size = read(from_, buffer_, sizeof(buffer_));
      if (size < 0) return errno == EINTR || errno == EAGAIN;
      ended_ = size == 0;
      filled_ = static_cast<size_t>(size);
      written_ = 0;
      return true;
    }
    const ssize_t size = write(to_, buffer_ + written_, filled_ - written_);
    if (size < 0) return errno == EINTR || errno == EAGAIN;
    written_ += static_cast<size_t>(size);
    if (written_ == filled_) filled_ = 0;
    return true;
  }

 private:
  const int from_, to_;
  char buffer_[65536];
  size_t filled_ = 0, written_ = 0;
  bool ended_ = false;
};

// Copies until the daemon has closed, or nobody reads any more. 0 on a normal end.
int Copy(int socket) {
  Pipe to_daemon(STDIN_FILENO, socket), from_daemon(socket, STDOUT_FILENO);
  bool half_closed = false;
  while (!from_daemon.ended()) {
    pollfd wanted[] = {to_daemon.Wanted(), from_daemon.Wanted()};
    if (poll(wanted, 2, -1) < 0 && errno != EINTR) return 1;
    if (wanted[0].revents != 0 && !to_daemon.Step()) return 1;
    if (wanted[1].revents != 0 && !from_daemon.Step()) return 1;
    if (to_daemon.ended() && !half_closed) {
      half_closed = true;
      shutdown(socket, SHUT_WR);
    }
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const bool named = argc == 3 && std::strcmp(argv[1], "--socket") == 0;
  if (argc == 2 && std::strcmp(argv[1], "--version") == 0) {
    std::printf("acl-app-netconf %s\n", host::Version());
    return 0;
  }
  if (argc != 1 && !named) {
    const bool asked = argc == 2 && std::strcmp(argv[1], "--help") == 0;
    std::fprintf(asked ? stdout : stderr,
                 "Usage: acl-app-netconf [--socket PATH | --help | --version]\n"
                 "\n"
                 "Connects standard input and output with the acl-app daemon's NETCONF socket.\n"
                 "\n"
                 "Options:\n"
                 "  --socket PATH  the socket (default: $ACL_APP_SOCKET, else what\n"
                 "                 %s says)\n"
                 "  --help         print this and exit\n"
                 "  --version      print the version and exit\n"
                 "\n"
                 "Exit status:\n"
                 "  0  the session has ended\n"
                 "  1  the daemon cannot be reached, or the session broke off\n"
                 "  2  the command line is wrong\n",
                 host::SettingsFile().c_str());
    return asked ? 0 : 2;
  }
  std::string path, error;
  if (named) {
    path = argv[2];
  } else if (!host::FindSocket(&path, &error)) {
    std::fprintf(stderr, "acl-app-netconf: %s\n", error.c_str());
    return 1;
  }
  std::signal(SIGPIPE, SIG_IGN);
  const int socket = host::ConnectTo(path);
  if (socket < 0) {
    std::fprintf(stderr, "acl-app-netconf: %s\n", host::WhyUnreachable(path, errno).c_str());
    return 1;
  }
  return Copy(socket);
}
