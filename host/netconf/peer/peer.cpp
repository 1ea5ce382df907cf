// Peer credentials: see peer.h.
#include "host/netconf/peer/peer.h"

#include <sys/socket.h>

#include <cerrno>
#include <utility>

namespace host {

std::optional<Peer> PeerOf(int fd) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) != 0) return std::nullopt;
  Peer peer;
  peer.uid = credentials.uid;
  peer.pid = credentials.pid;
  std::vector<gid_t> groups;
  size = 0;
  // Tells the size where there is too little room.
  while (getsockopt(fd, SOL_SOCKET, SO_PEERGROUPS, groups.data(), &size) != 0) {
    if (errno != ERANGE) return std::nullopt;
    groups.resize(size / sizeof(gid_t));
  }
  groups.resize(size / sizeof(gid_t));
  groups.push_back(credentials.gid);
  peer.groups = std::move(groups);
  return peer;
}

}  // namespace host
