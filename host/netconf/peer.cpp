// Peer credentials: see peer.h.
#include "host/netconf/peer.h"

#include <grp.h>
#include <pwd.h>
#include <sys/socket.h>

#include <array>

namespace host {

std::optional<Peer> PeerOf(int fd) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return std::nullopt;
  Peer peer;
  peer.uid = credentials.uid;
  peer.pid = credentials.pid;
  peer.user = "uid " + std::to_string(credentials.uid);
  peer.groups = {credentials.gid};
  passwd entry{};
  passwd* found = nullptr;
  std::array<char, 16384> buffer;
  if (getpwuid_r(credentials.uid, &entry, buffer.data(), buffer.size(), &found) == 0 &&
      found != nullptr) {
    peer.user = found->pw_name;
    int count = 256;
    std::vector<gid_t> groups(count);
    if (getgrouplist(found->pw_name, credentials.gid, groups.data(), &count) >= 0) {
      groups.resize(count);
      peer.groups = std::move(groups);
    }
  }
  return peer;
}

}  // namespace host
