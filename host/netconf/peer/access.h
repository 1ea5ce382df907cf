// Who may do what: everybody who can connect may read; root, the daemon's own account and the
// members of the write group may do all.
#ifndef HOST_NETCONF_PEER_ACCESS_H_
#define HOST_NETCONF_PEER_ACCESS_H_

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "host/netconf/peer/peer.h"

namespace host {

// `write_group` is absent when there is none.
inline bool MayWrite(const Peer& peer, std::optional<gid_t> write_group) {
  if (peer.uid == 0 || peer.uid == geteuid()) return true;
  return write_group.has_value() &&
         std::find(peer.groups.begin(), peer.groups.end(), *write_group) != peer.groups.end();
}

}  // namespace host

#endif  // HOST_NETCONF_PEER_ACCESS_H_
