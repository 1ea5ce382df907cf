// How the interfaces are that the groups in force name.
#ifndef TOOLS_ACLCTL_INTERFACES_H_
#define TOOLS_ACLCTL_INTERFACES_H_

#include <map>
#include <string>

#include "tools/aclctl/daemon_data.h"

namespace aclctl {

// An interface that the groups in force name.
struct InterfaceState {
  std::string link;     // "absent", "down", "up"
  std::string filters;  // "in-force", "waiting", "failed", "not-enforced"
};
using InterfaceStates = std::map<std::string, InterfaceState>;  // by name

Failure FetchInterfaces(Client* client, InterfaceStates* states);
// The interface's link, "-" where the groups do not name it.
std::string LinkOf(const InterfaceStates& states, const std::string& interface);
// "in force on 2 of 3 interfaces (waiting: spare)"; empty where the groups name none, or nothing is
// enforced.
std::string CoverageText(const InterfaceStates& states);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_INTERFACES_H_
