#include "tools/aclctl/interfaces.h"

namespace aclctl {
Failure FetchInterfaces(Client* client, InterfaceStates* states) {
  std::string data;
  host::Tree reply;
  const lyd_node* interfaces = nullptr;
  if (Failure failure = FetchState(client, "<interfaces xmlns=\"urn:acl-app:filters\"/>", &data,
                                   &reply, &interfaces)) {
    return failure;
  }
  for (const lyd_node* interface : Children(interfaces, "interface")) {
    (*states)[ChildText(interface, "name")] = {ChildText(interface, "link"),
                                               ChildText(interface, "filters")};
  }
  return {};
}

std::string LinkOf(const InterfaceStates& states, const std::string& interface) {
  const auto found = states.find(interface);
  return found == states.end() ? "-" : found->second.link;
}

std::string CoverageText(const InterfaceStates& states) {
  size_t in_force = 0;
  std::map<std::string, std::string> others;  // names by what is the matter
  for (const auto& [name, state] : states) {
    if (state.filters == "not-enforced") return "";
    if (state.filters == "in-force") {
      ++in_force;
    } else {
      others[state.filters] += (others[state.filters].empty() ? "" : ", ") + name;
    }
  }
  if (states.empty()) return "";
  std::string text = "in force on " + std::to_string(in_force) + " of " +
                     std::to_string(states.size()) +
                     (states.size() == 1 ? " interface" : " interfaces");
  for (const auto& [what, names] : others) text += " (" + what + ": " + names + ")";
  return text;
}

std::string StatesOf(const lyd_node* entry, const InterfaceStates& states) {
  std::string text;
  for (const lyd_node* port : Children(entry, "port")) {
    text += (text.empty() ? "" : ",") + LinkOf(states, std::string(host::XmlText(port)));
  }
  return text.empty() ? "-" : text;
}

}  // namespace aclctl
