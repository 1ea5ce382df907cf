// The ports that entries give as logical interface ids.
#ifndef HOST_FILTER_MGR_PORT_NAMES_H_
#define HOST_FILTER_MGR_PORT_NAMES_H_

#include <functional>
#include <string>

#include "platform/limid/limid.h"

namespace host {

// The name of a logical interface id, empty when the id is not known.
using PortNames = std::function<std::string(limid_t)>;

enum class LinkState { kAbsent, kDown, kUp };
// How the interface of a name is now.
using LinkStates = std::function<LinkState(const std::string&)>;

}  // namespace host

#endif  // HOST_FILTER_MGR_PORT_NAMES_H_
