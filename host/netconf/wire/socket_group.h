// The group that may connect to a socket. It owns the file where the daemon may give files away,
// and otherwise (without CAP_CHOWN) has an entry in the file's access control list (acl(5)), which
// takes no more than to own the file.
#ifndef HOST_NETCONF_WIRE_SOCKET_GROUP_H_
#define HOST_NETCONF_WIRE_SOCKET_GROUP_H_

#include <sys/types.h>

#include <string>

namespace host {

// Gives the file at `path`, whose mode becomes `mode`, to the group. False with errno set.
bool GiveToGroup(const std::string& path, gid_t group, mode_t mode);
// The group that GiveToGroup() gave the file to; without that, the one that owns it. False with
// errno set when the file cannot be looked at.
bool GroupOf(const std::string& path, gid_t* group);

}  // namespace host

#endif  // HOST_NETCONF_WIRE_SOCKET_GROUP_H_
