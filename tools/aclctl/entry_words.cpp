#include "tools/aclctl/entry_words.h"

namespace aclctl {
namespace {

// Leaves of a match, in the order of a frame's fields, and how they are called. The mask stands
// behind its value.
constexpr struct {
  const char* leaf;
  const char* label;
  const char* mask;
} kMatches[] = {
    {"destination-mac-address", "dst-mac", "destination-mac-address-mask"},
    {"source-mac-address", "src-mac", "source-mac-address-mask"},
    {"ethertype", "ethertype", nullptr},
    {"vlan", "vlan", nullptr},
    {"pcp", "pcp", nullptr},
    {"inner-ethertype", "inner-ethertype", nullptr},
    {"dscp", "dscp", nullptr},
    {"tos", "tos", nullptr},
    {"source-ipv4-address", "src-ip", nullptr},
    {"destination-ipv4-address", "dst-ip", nullptr},
    {"ip-protocol", "protocol", nullptr},
    {"destination-port", "dst-port", nullptr},
};

// The text of a node, or of what it wraps.
std::string DeepText(const lyd_node* node) {
  while (node != nullptr && lyd_child(node) != nullptr) node = lyd_child(node);
  return node == nullptr ? "" : std::string(host::XmlText(node));
}

// What a node is called among the actions; null for one that only wraps others.
const char* ActionName(std::string_view node) {
  if (node == "deny") return "deny";
  if (node == "permit") return "permit";
  return node == "set-pcp" || node == "pcp" ? "set-pcp" : nullptr;
}

void AddActions(const lyd_node* parent, std::string* text) {
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    const char* const name = ActionName(host::XmlName(child));
    if (name == nullptr) {
      AddActions(child, text);
      continue;
    }
    *text += (text->empty() ? "" : ", ") + std::string(name);
    if (!host::XmlText(child).empty()) *text += " " + std::string(host::XmlText(child));
  }
}

}  // namespace

std::string MatchText(const lyd_node* match) {
  std::string text;
  for (const auto& kind : kMatches) {
    const std::string value = DeepText(FindChild(match, kind.leaf));
    if (value.empty()) continue;
    const std::string mask = kind.mask == nullptr ? "" : ChildText(match, kind.mask);
    text += std::string(text.empty() ? "" : " ") + kind.label + " " + value +
            (mask.empty() ? "" : "/" + mask);
  }
  return text.empty() ? "any" : text;
}

std::string ActionText(const lyd_node* action) {
  std::string text;
  AddActions(action, &text);
  return text.empty() ? "none" : text;
}

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

}  // namespace aclctl
