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
// The states of the interfaces that an entry of a group names, by commas; "-" when it names none.
std::string StatesOf(const lyd_node* entry, const InterfaceStates& states);
// "in force on 2 of 3 interfaces (waiting: spare)"; empty where the groups name none, or nothing is
// enforced.
std::string CoverageText(const InterfaceStates& states);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_INTERFACES_H_
