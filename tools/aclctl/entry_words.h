// Matches, actions and interfaces in the words of the tables.
#ifndef TOOLS_ACLCTL_ENTRY_WORDS_H_
#define TOOLS_ACLCTL_ENTRY_WORDS_H_

#include <map>
#include <string>

#include "tools/aclctl/daemon_data.h"

namespace aclctl {

// The leaves below `match`, of an entry in force or of a configured one, such as "protocol 6
// dst-port 443"; "any" when there are none.
std::string MatchText(const lyd_node* match);
// The leaves below `action`, such as "permit, set-pcp 5"; "none" when there are none.
std::string ActionText(const lyd_node* action);

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

#endif  // TOOLS_ACLCTL_ENTRY_WORDS_H_
