// Which interfaces are there, and carry frames.
#ifndef HOST_FILTER_MGR_LINUX_LINK_STATE_H_
#define HOST_FILTER_MGR_LINUX_LINK_STATE_H_

#include "host/filter_mgr/port_names.h"

namespace host {

// Those of the process's network namespace, as they are now (getifaddrs(3)); all are absent, with a
// log line, when they cannot be read. kUp: it is set up and has a link.
LinkStates ReadLinkStates();

}  // namespace host

#endif  // HOST_FILTER_MGR_LINUX_LINK_STATE_H_
