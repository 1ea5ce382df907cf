// A listening UNIX socket: see listener.h.
#include "host/netconf/wire/listener.h"

#include <grp.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "host/netconf/wire/socket_group.h"

namespace host {
namespace {

bool FillAddress(const std::string& path, sockaddr_un* address) {
  *address = {};
  address->sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address->sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::memcpy(address->sun_path, path.data(), path.size());
  return true;
}

std::string Reason() { return std::strerror(errno); }

// True when nothing is at `path`, or only what a dead process left there.
bool MayReplace(const std::string& path, std::string* error) {
  struct stat info {};
  if (lstat(path.c_str(), &info) != 0) {
    if (errno == ENOENT) return true;
    *error = "cannot look at " + path + ": " + Reason();
    return false;
  }
  if (!S_ISSOCK(info.st_mode)) {
    *error = path + " exists and is no socket";
    return false;
  }
  const int probe = ConnectTo(path);
  const int reason = errno;
  if (probe >= 0) close(probe);
  if (probe < 0 && reason == ECONNREFUSED) return true;
  *error = "the socket " + path + " is in use by a running process";
  return false;
}

bool CheckDirectory(const std::string& path, std::string* error) {
  const size_t slash = path.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat info {};
  if (stat(directory.c_str(), &info) == 0 && S_ISDIR(info.st_mode)) return true;
  *error = "the directory " + directory + " of the socket does not exist";
  return false;
}

}  // namespace

int ConnectTo(const std::string& path) {
  sockaddr_un address;
  if (!FillAddress(path, &address)) return -1;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) return -1;
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) == 0) return fd;
  const int reason = errno;
  close(fd);
  errno = reason;
  return -1;
}

int ListenAt(const std::string& path, mode_t mode, const std::string& group, std::string* error) {
  gid_t gid = static_cast<gid_t>(-1);
  if (!group.empty()) {
    const ::group* entry = getgrnam(group.c_str());
    if (entry == nullptr) {
      *error = "the group " + group + " of the socket is not known";
      return -1;
    }
    gid = entry->gr_gid;
  }
  // Made under another name, which is renamed when mode and group are right.
  const std::string scratch = path + "." + std::to_string(getpid());
  sockaddr_un address;
  if (!FillAddress(path, &address) || !FillAddress(scratch, &address)) {
    *error = "the path " + path + " is too long for a socket";
    return -1;
  }
  if (!CheckDirectory(path, error) || !MayReplace(path, error)) return -1;
  const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *error = "cannot make a socket: " + Reason();
    return -1;
  }
  unlink(scratch.c_str());
  // The mode that the file is made with comes from the descriptor (unix(7)).
  if (fchmod(fd, mode) != 0 ||
      bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
      chmod(scratch.c_str(), mode) != 0 || (!group.empty() && !GiveToGroup(scratch, gid, mode)) ||
      listen(fd, SOMAXCONN) != 0 || rename(scratch.c_str(), path.c_str()) != 0) {
    *error = "cannot listen at " + path + ": " + Reason();
    unlink(scratch.c_str());
    close(fd);
    return -1;
  }
  return fd;
}

}  // namespace host
