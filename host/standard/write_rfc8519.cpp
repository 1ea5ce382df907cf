// Access lists as ietf-access-control-list: see writers.h.
#include <cstdio>

#include "host/standard/configuration.h"
#include "host/standard/writers.h"

namespace host::standard {
namespace {

using Form = Node::Form;

constexpr uint64_t kTcp = 6, kUdp = 17;

void AddIdentity(Node* parent, const char* name, const char* identity) {
  Node& node = parent->Add(name, Form::kIdentity, identity);
  node.module_of_value = kAccessControlList.name;
}

Node& AddOf(Node* parent, const Module& module, const char* name, Form form = Form::kContainer,
            std::string value = "") {
  Node& node = parent->Add(name, form, std::move(value));
  node.module = module.name;
  return node;
}

void AddNumber(Node* parent, const char* name, uint64_t number) {
  parent->Add(name, Form::kNumber, std::to_string(number));
}

const Value* Only(const Ace& ace, Field field) {
  return ace.conditions[field].empty() ? nullptr : &ace.conditions[field].front();
}

void AddMac(const Value* mac, const char* name, const char* mask, Node* eth) {
  if (mac == nullptr) return;
  eth->Add(name, Form::kText, MacText(mac->value));
  if (mac->mask != FullMask(kSourceMac)) eth->Add(mask, Form::kText, MacText(mac->mask));
}

void AddEthernet(const Ace& ace, Node* matches) {
  Node eth;
  eth.module = kAccessControlList.name;
  AddMac(Only(ace, kDestinationMac), "destination-mac-address", "destination-mac-address-mask",
         &eth);
  AddMac(Only(ace, kSourceMac), "source-mac-address", "source-mac-address-mask", &eth);
  if (const Value* type = Only(ace, kEthertype)) AddNumber(&eth, "ethertype", type->value);
  if (!eth.children.empty()) matches->Add("eth").children = std::move(eth.children);
}

void AddTag(const Ace& ace, bool enhanced, Node* matches) {
  if (const Value* vlan = Only(ace, kVlan)) {
    if (enhanced && matches->Find("eth") == nullptr) {
      Node& filter = AddOf(matches, kAclEnhancements, "vlan-filter");
      filter.Add("operator", Form::kText, "eq");
      filter.Add("vlan", Form::kNumberItem, std::to_string(vlan->value));
    } else {
      AddOf(matches, kOwnStandard, "vlan", Form::kNumber, std::to_string(vlan->value));
    }
  }
  if (const Value* pcp = Only(ace, kPcp)) {
    AddOf(matches, kOwnStandard, "pcp", Form::kNumber, std::to_string(pcp->value));
  }
}

void AddIpv4(const Ace& ace, Node* matches) {
  if (!AskForIpv4(ace.conditions)) return;
  Node& ipv4 = matches->Add("ipv4");
  if (const Value* tos = Only(ace, kTos)) {
    AddNumber(&ipv4, "dscp", tos->value >> 2);
    if ((tos->mask & kEcnMask) != 0) AddNumber(&ipv4, "ecn", tos->value & kEcnMask);
  }
  if (const Value* protocol = Only(ace, kIpProtocol)) {
    AddNumber(&ipv4, "protocol", protocol->value);
  }
  if (const Value* address = Only(ace, kDestinationIpv4)) {
    ipv4.Add("destination-ipv4-network", Form::kText, PrefixText(*address, false));
  }
  if (const Value* address = Only(ace, kSourceIpv4)) {
    ipv4.Add("source-ipv4-network", Form::kText, PrefixText(*address, false));
  }
}

void AddPort(const Ace& ace, Node* matches) {
  const Value* port = Only(ace, kDestinationPort);
  if (port == nullptr) return;
  const Value* protocol = Only(ace, kIpProtocol);
  const uint64_t transport = protocol != nullptr ? protocol->value : ace.transport.value_or(0);
  if (transport != kTcp && transport != kUdp) {
    AddOf(matches, kOwnStandard, "destination-port", Form::kNumber, std::to_string(port->value));
    return;
  }
  Node& container = matches->Add(transport == kTcp ? "tcp" : "udp").Add("destination-port");
  container.Add("operator", Form::kText, "eq");
  AddNumber(&container, "port", port->value);
}

void AddAce(const Ace& ace, bool enhanced, Node* aces) {
  Node& node = aces->Add("ace", Form::kEntry);
  node.Add("name", Form::kText, ace.name);
  if (ace.ace_priority) {
    AddOf(&node, kOwnStandard, "ace-priority", Form::kNumber, std::to_string(*ace.ace_priority));
    if (!ace.description.empty()) {
      AddOf(&node, kOwnStandard, "description", Form::kText, ace.description);
    }
  }
  if (ace.is_end) AddOf(&node, kOwnStandard, "end-of-profile", Form::kEmpty);
  if (!AskForNothing(ace.conditions)) {
    Node& matches = node.Add("matches");
    AddEthernet(ace, &matches);
    AddTag(ace, enhanced, &matches);
    AddIpv4(ace, &matches);
    AddPort(ace, &matches);
  }
  Node& actions = node.Add("actions");
  AddIdentity(&actions, "forwarding", ace.handling == Handling::kDeny ? "drop" : "accept");
  if (ace.set_pcp) {
    AddOf(&actions, kOwnStandard, "set-pcp", Form::kNumber, std::to_string(*ace.set_pcp));
  }
  if (ace.handling == Handling::kNone && ace.ace_priority) {
    AddOf(&actions, kOwnStandard, "no-action", Form::kEmpty);
  }
}

}  // namespace

void WriteRfc8519(const AccessLists& lists, bool enhanced, Document* document) {
  static constexpr const char* kTypes[] = {
      "eth-acl-type", "ipv4-acl-type", "mixed-eth-ipv4-acl-type", "mixed-eth-ipv4-ipv6-acl-type"};
  Node& acls = document->root.Add("acls");
  acls.module = kAccessControlList.name;
  for (const Acl& acl : lists.acls) {
    Node& node = acls.Add("acl", Form::kEntry);
    node.Add("name", Form::kText, acl.name);
    AddIdentity(&node, "type", kTypes[static_cast<size_t>(acl.kind)]);
    if (acl.priority) {
      AddOf(&node, kOwnStandard, "group", Form::kText, acl.l3.value_or(true) ? "l3" : "l2");
      AddOf(&node, kOwnStandard, "priority", Form::kNumber, std::to_string(*acl.priority));
      if (!acl.profile_name.empty()) {
        AddOf(&node, kOwnStandard, "profile-name", Form::kText, acl.profile_name);
      }
      if (!acl.description.empty()) {
        AddOf(&node, kOwnStandard, "description", Form::kText, acl.description);
      }
    }
    if (acl.aces.empty()) continue;
    Node& aces = node.Add("aces");
    for (const Ace& ace : acl.aces) AddAce(ace, enhanced, &aces);
  }
  if (lists.attachments.empty()) return;
  Node& points = acls.Add("attachment-points");
  for (const Attachment& attachment : lists.attachments) {
    Node& interface = points.Add("interface", Form::kEntry);
    interface.Add("interface-id", Form::kText, attachment.interface);
    if (attachment.acls.empty()) continue;
    Node& sets = interface.Add("ingress").Add("acl-sets");
    for (const std::string& name : attachment.acls) {
      sets.Add("acl-set", Form::kEntry).Add("name", Form::kText, name);
    }
  }
}

}  // namespace host::standard
