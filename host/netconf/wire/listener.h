// A listening UNIX socket at a path.
#ifndef HOST_NETCONF_WIRE_LISTENER_H_
#define HOST_NETCONF_WIRE_LISTENER_H_

#include <sys/types.h>

#include <string>

namespace host {

// Makes a non-blocking stream socket that listens at `path`, with the mode and, where `group` is
// not empty, the group given; the file never has other rights. Replaces the socket of a dead
// process. Returns the descriptor, or -1 with the reason in `error`: in use, missing directory,
// unknown group, a file of another kind, or what the kernel says.
int ListenAt(const std::string& path, mode_t mode, const std::string& group, std::string* error);

// Connects to the socket at `path`. Returns a blocking descriptor, or -1 with errno set.
int ConnectTo(const std::string& path);

}  // namespace host

#endif  // HOST_NETCONF_WIRE_LISTENER_H_
