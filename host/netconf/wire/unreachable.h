// Why a client does not reach the daemon, in words that tell an operator what to do about it.
#ifndef HOST_NETCONF_WIRE_UNREACHABLE_H_
#define HOST_NETCONF_WIRE_UNREACHABLE_H_

#include <string>

namespace host {

// For a connection to the socket at `path` that failed with `error`, an errno.
std::string WhyUnreachable(const std::string& path, int error);

}  // namespace host

#endif  // HOST_NETCONF_WIRE_UNREACHABLE_H_
