// From profiles to a document of acl-app: see configuration.h.
#include <cstdio>

#include "host/standard/configuration.h"

namespace host::standard {
namespace {

using Form = Node::Form;

void AddMac(Node* match, const char* name, const char* mask_name, const Value& value) {
  match->Add(name, Form::kText, MacText(value.value));
  if (value.mask != FullMask(kDestinationMac))
    match->Add(mask_name, Form::kText, MacText(value.mask));
}

void AddAddress(Node* match, const char* name, const Value& value) {
  const bool whole = value.mask == FullMask(kSourceIpv4);
  match->Add(name).Add(whole ? "no-mask" : "mask").Add("ip", Form::kText, PrefixText(value, true));
}

// The leaves with plain numbers.
constexpr struct {
  Field field;
  const char* name;
} kNumbers[] = {{kVlan, "vlan"},
                {kPcp, "pcp"},
                {kIpProtocol, "ip-protocol"},
                {kDestinationPort, "destination-port"}};

void AddMatches(const ProfileEntry& entry, Node* match) {
  const auto& matches = entry.matches;
  if (const auto& mac = matches[kDestinationMac]) {
    AddMac(match, "destination-mac-address", "destination-mac-address-mask", *mac);
  }
  if (const auto& mac = matches[kSourceMac]) {
    AddMac(match, "source-mac-address", "source-mac-address-mask", *mac);
  }
  if (const auto& type = matches[kEthertype]) {
    char text[8];
    std::snprintf(text, sizeof(text), "0x%04x", static_cast<unsigned>(type->value));
    match->Add("ethertype", Form::kText, text);
  }
  if (const auto& tos = matches[kTos]) {
    const bool dscp = tos->mask == kDscpMask;
    match->Add(dscp ? "dscp" : "tos", Form::kNumber,
               std::to_string(dscp ? tos->value >> 2 : tos->value));
  }
  if (const auto& ip = matches[kSourceIpv4]) AddAddress(match, "source-ipv4-address", *ip);
  if (const auto& ip = matches[kDestinationIpv4])
    AddAddress(match, "destination-ipv4-address", *ip);
  for (const auto& number : kNumbers) {
    if (const auto& value = matches[number.field]) {
      match->Add(number.name, Form::kNumber, std::to_string(value->value));
    }
  }
}

void AddEntry(const ProfileEntry& entry, Node* profile) {
  Node& node = profile->Add("access-list-entry", Form::kEntry);
  node.Add("ace-priority", Form::kNumber, std::to_string(entry.ace_priority));
  if (!entry.description.empty()) node.Add("description", Form::kText, entry.description);
  AddMatches(entry, &node.Add("match"));
  Node& action = node.Add("action");
  if (entry.handling != Handling::kNone) {
    action.Add("packet-handling")
        .Add(entry.handling == Handling::kDeny ? "deny" : "permit", Form::kEmpty);
  }
  if (entry.set_pcp) action.Add("set").Add("pcp", Form::kNumber, std::to_string(*entry.set_pcp));
}

}  // namespace

std::string PrefixText(const Value& value, bool bare) {
  char text[32];
  const auto address = static_cast<unsigned>(value.value);
  int length = 0;
  for (uint64_t mask = value.mask; (mask & 0x80000000u) != 0; mask <<= 1) ++length;
  std::snprintf(text, sizeof(text), "%u.%u.%u.%u/%d", address >> 24, address >> 16 & 255,
                address >> 8 & 255, address & 255, length);
  std::string prefix = text;
  if (bare && length == 32) prefix.resize(prefix.find('/'));
  return prefix;
}

std::string MacText(uint64_t address) {
  char text[18];
  std::snprintf(
      text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x",
      static_cast<unsigned>(address >> 40 & 255), static_cast<unsigned>(address >> 32 & 255),
      static_cast<unsigned>(address >> 24 & 255), static_cast<unsigned>(address >> 16 & 255),
      static_cast<unsigned>(address >> 8 & 255), static_cast<unsigned>(address & 255));
  return text;
}

void WriteConfiguration(const Profiles& profiles, Document* document) {
  Node& config = document->root.Add("config");
  config.module = kOwn.name;
  Node& access_list = config.Add("access-list");
  Node& ingress = access_list.Add("acl-profile").Add("ingress");
  for (const Profile& profile : profiles.profiles) {
    Node& node = ingress.Add("access-list", Form::kEntry);
    node.Add("acl-type", Form::kText, profile.l3 ? "l3" : "l2");
    node.Add("acl-name", Form::kText, profile.name);
    if (!profile.description.empty()) node.Add("description", Form::kText, profile.description);
    node.Add(profile.l3 ? "acl-priority-l3" : "acl-priority-l2")
        .Add("priority", Form::kNumber, std::to_string(profile.priority));
    for (const ProfileEntry& entry : profile.entries) AddEntry(entry, &node);
  }
  for (const auto& [interface, names] : profiles.bindings) {
    Node& node = access_list.Add("interface", Form::kEntry);
    node.Add("interface-name", Form::kText, interface);
    for (const std::string& name : names) node.Add("ingress", Form::kItem, name);
  }
}

}  // namespace host::standard
