// Who is at the other end of a UNIX socket.
#ifndef HOST_NETCONF_PEER_H_
#define HOST_NETCONF_PEER_H_

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace host {

struct Peer {
  uid_t uid = 0;
  pid_t pid = 0;
  std::string user;           // name of the account, "uid 1234" when it has none
  std::vector<gid_t> groups;  // all groups of the account
};

// The peer of a connected UNIX socket, from the kernel (SO_PEERCRED, unix(7)); nullopt with errno
// set when the kernel does not tell.
std::optional<Peer> PeerOf(int fd);

}  // namespace host

#endif  // HOST_NETCONF_PEER_H_
