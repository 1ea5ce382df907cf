// Who is at the other end of a UNIX socket.
#ifndef HOST_NETCONF_PEER_PEER_H_
#define HOST_NETCONF_PEER_PEER_H_

#include <sys/types.h>

#include <optional>
#include <vector>

namespace host {

struct Peer {
  uid_t uid = 0;
  pid_t pid = 0;
  std::vector<gid_t> groups;  // all groups of the process
};

// The peer of a connected UNIX socket, as it was when it connected, from the kernel alone
// (SO_PEERCRED and SO_PEERGROUPS, unix(7)): no name service is asked. nullopt with errno set when
// the kernel does not tell.
std::optional<Peer> PeerOf(int fd);

}  // namespace host

#endif  // HOST_NETCONF_PEER_PEER_H_
