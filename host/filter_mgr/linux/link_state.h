// Whether an interface is there, and carries frames.
#ifndef HOST_FILTER_MGR_LINUX_LINK_STATE_H_
#define HOST_FILTER_MGR_LINUX_LINK_STATE_H_

#include <string>

#include "host/filter_mgr/port_names.h"

namespace host {

// Of the interface `name` in the process's network namespace, as the kernel tells it now
// (netdevice(7), SIOCGIFFLAGS). kUp: it is set up and has a link.
LinkState LinkStateOf(const std::string& name);

}  // namespace host

#endif  // HOST_FILTER_MGR_LINUX_LINK_STATE_H_
