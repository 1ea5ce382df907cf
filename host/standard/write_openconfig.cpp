// Access lists as openconfig-acl: see writers.h.
#include <string_view>
#include <unordered_map>

#include "host/standard/configuration.h"
#include "host/standard/writers.h"

namespace host::standard {
namespace {

using Form = Node::Form;

void AddIdentity(Node* parent, const char* name, const char* identity) {
  Node& node = parent->Add(name, Form::kIdentity, identity);
  node.module_of_value = kOpenConfigAcl.name;
}

void AddNumber(Node* parent, const char* name, uint64_t number) {
  parent->Add(name, Form::kNumber, std::to_string(number));
}

// What the fields of an entry are called. A port is a text where it is a range, so it is no number
// that JSON would put in quotes.
constexpr struct {
  Field field;
  const char* container;
  const char* leaf;
  const char* mask;
} kFields[] = {{kDestinationMac, "l2", "destination-mac", "destination-mac-mask"},
               {kSourceMac, "l2", "source-mac", "source-mac-mask"},
               {kEthertype, "l2", "ethertype", nullptr},
               {kTos, "ipv4", "dscp", nullptr},
               {kIpProtocol, "ipv4", "protocol", nullptr},
               {kSourceIpv4, "ipv4", "source-address", nullptr},
               {kDestinationIpv4, "ipv4", "destination-address", nullptr},
               {kDestinationPort, "transport", "destination-port", nullptr}};

void AddFields(const Ace& ace, Node* entry) {
  Node* config = nullptr;
  std::string_view container;
  for (const auto& known : kFields) {
    if (ace.conditions[known.field].empty()) continue;
    const Value& value = ace.conditions[known.field].front();
    if (container != known.container) config = &entry->Add(known.container).Add("config");
    container = known.container;
    if (known.mask != nullptr) {
      config->Add(known.leaf, Form::kText, MacText(value.value));
      if (value.mask == FullMask(known.field)) continue;
      config->Add(known.mask, Form::kText, MacText(value.mask));
    } else if (known.field == kSourceIpv4 || known.field == kDestinationIpv4) {
      config->Add(known.leaf, Form::kText, PrefixText(value, false));
    } else {
      AddNumber(config, known.leaf, known.field == kTos ? value.value >> 2 : value.value);
    }
  }
}

void AddEntry(const Ace& ace, Node* entries) {
  Node& entry = entries->Add("acl-entry", Form::kEntry);
  AddNumber(&entry, "sequence-id", ace.number.value_or(0));
  Node& config = entry.Add("config");
  AddNumber(&config, "sequence-id", ace.number.value_or(0));
  if (!ace.description.empty()) config.Add("description", Form::kText, ace.description);
  AddFields(ace, &entry);
  AddIdentity(&entry.Add("actions").Add("config"), "forwarding-action",
              ace.handling == Handling::kDeny ? "DROP" : "ACCEPT");
}

const char* TypeOf(const Acl& acl) {
  static constexpr const char* kTypes[] = {"ACL_L2", "ACL_IPV4", "ACL_MIXED", "ACL_MIXED"};
  return kTypes[static_cast<size_t>(acl.kind)];
}

// Lists by their names.
using ListIndex = std::unordered_map<std::string_view, const Acl*>;

const std::string& NameOf(const Acl& acl) { return acl.set_name.empty() ? acl.name : acl.set_name; }

// The keys of a list entry, which OpenConfig has twice.
void AddKeys(Node* entry, const char* name_leaf, const std::string& name, const char* type) {
  entry->Add(name_leaf, Form::kText, name);
  AddIdentity(entry, "type", type);
  Node& config = entry->Add("config");
  config.Add(name_leaf, Form::kText, name);
  AddIdentity(&config, "type", type);
}

void AddInterface(const Attachment& attachment, const ListIndex& lists, Node* interfaces) {
  Node& interface = interfaces->Add("interface", Form::kEntry);
  interface.Add("id", Form::kText, attachment.interface);
  interface.Add("config").Add("id", Form::kText, attachment.interface);
  interface.Add("interface-ref").Add("config").Add("interface", Form::kText, attachment.interface);
  if (attachment.acls.empty()) return;
  Node& sets = interface.Add("ingress-acl-sets");
  for (const std::string& name : attachment.acls) {
    const auto acl = lists.find(name);
    if (acl == lists.end()) continue;
    AddKeys(&sets.Add("ingress-acl-set", Form::kEntry), "set-name", NameOf(*acl->second),
            TypeOf(*acl->second));
  }
}

}  // namespace

void WriteOpenConfig(const AccessLists& lists, Document* document) {
  Node& top = document->root.Add("acl");
  top.module = kOpenConfigAcl.name;
  ListIndex index;
  for (const Acl& acl : lists.acls) index.emplace(acl.name, &acl);
  if (!lists.acls.empty()) {
    Node& sets = top.Add("acl-sets");
    for (const Acl& acl : lists.acls) {
      Node& set = sets.Add("acl-set", Form::kEntry);
      AddKeys(&set, "name", NameOf(acl), TypeOf(acl));
      if (!acl.description.empty()) {
        set.children.back().Add("description", Form::kText, acl.description);
      }
      if (acl.aces.empty()) continue;
      Node& entries = set.Add("acl-entries");
      for (const Ace& ace : acl.aces) AddEntry(ace, &entries);
    }
  }
  if (lists.attachments.empty()) return;
  Node& interfaces = top.Add("interfaces");
  for (const Attachment& attachment : lists.attachments) {
    AddInterface(attachment, index, &interfaces);
  }
}

}  // namespace host::standard
