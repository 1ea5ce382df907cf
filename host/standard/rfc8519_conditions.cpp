// Conditions of entries: see rfc8519_parts.h. The statements are those of RFC 8519, sections 4.1
// and 4.2, and of RFC 9899, appendix of the module ietf-acl-enh.
#include <utility>

#include "host/standard/names.h"
#include "host/standard/rfc8519_parts.h"

namespace host::standard {
namespace {

constexpr uint32_t kMostVlan = 4095;

void TakeEcn(Reading* reading, const Statement& statement, const Rule& /*rule*/) {
  const std::optional<uint32_t> ecn = NumberOf(statement.node.value, 3);
  if (!ecn) return RefuseValue(reading, statement);
  reading->builder.And(kTos, {{*ecn, kEcnMask}});
}

void TakeEthertype(Reading* reading, const Statement& statement, const Rule& rule) {
  std::optional<uint32_t> type;
  if (statement.node.module_of_value.empty()) type = EthertypeNamed(statement.node.value);
  if (!type) type = NumberOf(statement.node.value, 0xffff);
  if (!type) return RefuseValue(reading, statement);
  reading->builder.AndExact(rule.field, *type);
}

void TakePort(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.node.children.empty()) return;
  RefuseOthers(reading, statement, {"lower-port", "upper-port", "operator", "port"});
  const std::optional<Ranges> ports = PortsOfRfc8519(statement.node);
  if (!ports) {
    return reading->builder.Refuse(statement.path, "ports that are not given as they should be");
  }
  reading->builder.AndRanges(rule.field, *ports, statement.path, "a range of destination ports");
}

void TakeVlans(Reading* reading, const Statement& statement, const Rule& rule) {
  const Node& filter = statement.node;
  const auto find = [&filter](std::string_view name) {
    return ChildOf(filter, NameInRfc8519, name);
  };
  RefuseOthers(reading, statement, {"frame-type", "operator", "lower-vlan", "upper-vlan", "vlan"});
  if (const Node* type = find("frame-type")) {
    reading->builder.Refuse(statement.path + "/frame-type", "the frame type " + type->value);
  }
  Ranges vlans;
  bool right = true;
  const std::string& op = ValueIn(filter, NameInRfc8519, "operator");
  const Node *lower = find("lower-vlan"), *upper = find("upper-vlan");
  if (lower != nullptr || upper != nullptr) {
    const auto number = [](const Node* node) {
      return node == nullptr ? std::nullopt : NumberOf(node->value, kMostVlan);
    };
    const std::optional<uint32_t> low = number(lower), high = number(upper);
    // A range, or VLANs one by one: what both together are is not said.
    right = low && high && *low <= *high && (op.empty() || op == "eq" || op == "neq") &&
            find("vlan") == nullptr;
    if (right) vlans.push_back({*low, *high});
  }
  for (const Node& node : filter.children) {
    if (NameInRfc8519(node) != "vlan" || node.form == Node::Form::kNothing) continue;
    const std::optional<uint32_t> vlan = NumberOf(node.value, kMostVlan);
    const std::optional<Ranges> ranges =
        vlan ? RangesOf(op == "neq" ? "eq" : op, *vlan, kMostVlan) : std::nullopt;
    right = right && ranges;
    if (ranges) vlans.insert(vlans.end(), ranges->begin(), ranges->end());
  }
  if (!right) return reading->builder.Refuse(statement.path, "VLANs that are not in order");
  if (vlans.empty() && filter.children.empty()) return;
  if (vlans.empty()) return reading->builder.Refuse(statement.path, "VLANs that are not given");
  vlans = Union(std::move(vlans));
  if (op == "neq") vlans = Difference({{0, kMostVlan}}, vlans);
  if (vlans.empty()) return reading->builder.Refuse(statement.path, "no VLAN at all");
  if (vlans.front().low == 0 || vlans.back().high == kMostVlan) {
    return reading->builder.Refuse(statement.path, "a VLAN id of 0 or 4095");
  }
  reading->builder.AndRanges(rule.field, vlans, statement.path, "a range of VLANs");
}

// A container that has conditions asks for its protocol; they are read one by one.
void TakeProtocol(Reading* reading, const Statement& statement, const Rule& rule) {
  if (!statement.node.children.empty()) reading->builder.AndExact(rule.field, rule.number);
}

constexpr Rule kRules[] = {
    {"eth/destination-mac-address", TakeMac, kDestinationMac},
    {"eth/destination-mac-address-mask", TakeMask},
    {"eth/source-mac-address", TakeMac, kSourceMac},
    {"eth/source-mac-address-mask", TakeMask},
    {"eth/ethertype", TakeEthertype, kEthertype},
    {"vlan-filter", TakeVlans, kVlan},
    {"isid-filter", RefuseContent, kFieldCount, 0, "a service instance (I-SID)"},
    {"ipv4/dscp", TakeDscp},
    {"ipv4/ecn", TakeEcn},
    {"ipv4/protocol", TakeNumber, kIpProtocol, 255},
    {"ipv4/source-ipv4-network", TakePrefix, kSourceIpv4},
    {"ipv4/destination-ipv4-network", TakePrefix, kDestinationIpv4},
    {"ipv4/source-ipv4-prefix-list", TakePrefixSet, kSourceIpv4},
    {"ipv4/destination-ipv4-prefix-list", TakePrefixSet, kDestinationIpv4},
    {"ipv4/protocol-set", TakeProtocolSet, kIpProtocol},
    {"ipv4/length", Refuse, kFieldCount, 0, "a total length of"},
    {"ipv4/ttl", Refuse, kFieldCount, 0, "a time to live of"},
    {"ipv4/ihl", Refuse, kFieldCount, 0, "a header length of"},
    {"ipv4/flags", Refuse, kFieldCount, 0, "the IPv4 flags"},
    {"ipv4/offset", Refuse, kFieldCount, 0, "a fragment offset of"},
    {"ipv4/identification", Refuse, kFieldCount, 0, "an identification of"},
    {"ipv4/ipv4-fragment", Refuse, kFieldCount, 0, "fragments"},
    {"ipv6", RefuseContent, kFieldCount, 0, "IPv6"},
    {"tcp/destination-port", TakePort, kDestinationPort},
    {"tcp/destination-tcp-port-set", TakePortSet, kDestinationPort},
    {"tcp/source-port", RefuseContent, kFieldCount, 0, "a source port"},
    {"tcp/source-tcp-port-set", Refuse, kFieldCount, 0, "source ports of the set"},
    {"tcp/flags", Refuse, kFieldCount, 0, "the TCP flags"},
    {"tcp/flags-bitmask", RefuseContent, kFieldCount, 0, "TCP flags"},
    {"udp/destination-port", TakePort, kDestinationPort},
    {"udp/destination-udp-port-set", TakePortSet, kDestinationPort},
    {"udp/source-port", RefuseContent, kFieldCount, 0, "a source port"},
    {"udp/source-udp-port-set", Refuse, kFieldCount, 0, "source ports of the set"},
    {"udp/length", Refuse, kFieldCount, 0, "a UDP length of"},
    {"icmp/type", Refuse, kFieldCount, 0, "an ICMP type of"},
    {"icmp/code", Refuse, kFieldCount, 0, "an ICMP code of"},
    {"ingress-interface", Refuse, kFieldCount, 0, "the ingress interface"},
    {"egress-interface", Refuse, kFieldCount, 0, "the egress interface"},
    {"pattern", Refuse, kFieldCount, 0, "a pattern in the payload"},
    {"alias-name", Refuse, kFieldCount, 0, "the alias"},
    {"mpls-values", RefuseContent, kFieldCount, 0, "MPLS"},
    {"own:vlan", TakeNumber, kVlan, 4094},
    {"own:pcp", TakeNumber, kPcp, 7},
    {"own:destination-port", TakeNumber, kDestinationPort, kMostPort},
};

// Containers that are gone through, with the protocol that they ask for.
constexpr Rule kContainers[] = {
    {"eth", nullptr},
    {"ipv4", nullptr},
    {"tcp", TakeProtocol, kIpProtocol, kTcp},
    {"udp", TakeProtocol, kIpProtocol, kUdp},
    {"icmp", TakeProtocol, kIpProtocol, kIcmp},
};

const Rule* FindRule(std::string_view container, std::string_view name) {
  static const RuleIndex kIndex(kRules);
  return kIndex.Find(container, name);
}

// Takes what the rule of its name takes, or refuses it.
void TakeByRule(const Node& parent, const Node& node, std::string_view container,
                const std::string& place, Reading* reading) {
  const Rule* rule = FindRule(container, NameInRfc8519(node));
  if (rule == nullptr) return RefuseUnknown(reading, place, node);
  const bool is_refused = rule->take == Refuse || rule->take == RefuseContent;
  if (!is_refused && !MayTake(parent, node, place, NameInRfc8519, &reading->builder.problems())) {
    return;
  }
  rule->take(reading, {node, parent, PathOf(place, node)}, *rule);
}

void ReadContainer(const Node& container, const Rule& rule, const std::string& path,
                   Reading* reading) {
  if (rule.take != nullptr) rule.take(reading, {container, container, path}, rule);
  for (const Node& node : container.children) {
    TakeByRule(container, node, container.name, path, reading);
  }
}

// TCP and UDP without a word on IP are over both versions; ours compares the protocol of IPv4.
void CheckIpVersion(const Node& matches, const std::string& path, Kind kind, Reading* reading) {
  if (kind == Kind::kIpv4 || kind == Kind::kMixed) return;
  const Node* ipv4 = ChildOf(matches, NameInRfc8519, "ipv4");
  if (ipv4 != nullptr && !ipv4->children.empty()) return;
  for (const char* name : {"tcp", "udp", "icmp"}) {
    const Node* container = ChildOf(matches, NameInRfc8519, name);
    if (container == nullptr || container->children.empty()) continue;
    reading->builder.RefuseWhole(path + "/" + name,
                                 std::string(name) + " over IPv6 as well as over IPv4");
  }
}

// Names that acl-app-standard adds, as the tables have them.
constexpr std::string_view kOwnNames[] = {"own:ace-priority",
                                          "own:description",
                                          "own:destination-port",
                                          "own:end-of-profile",
                                          "own:group",
                                          "own:no-action",
                                          "own:pcp",
                                          "own:priority",
                                          "own:profile-name",
                                          "own:set-pcp",
                                          "own:vlan"};

}  // namespace

std::string_view NameInRfc8519(const Node& node) {
  if (node.form == Node::Form::kAnnotation) return "";
  if (node.module == kAccessControlList.name || node.module == kAclEnhancements.name) {
    return node.name;
  }
  if (node.module != kOwnStandard.name) return "";
  for (const std::string_view own : kOwnNames) {
    if (own.substr(4) == node.name) return own;
  }
  return "";
}

void ReadRfc8519Matches(const Node& matches, const std::string& path, Kind kind, Reading* reading) {
  for (const Node& node : matches.children) {
    const std::string_view name = NameInRfc8519(node);
    const Rule* container = nullptr;
    for (const Rule& rule : kContainers) {
      if (name == rule.path) container = &rule;
    }
    if (container != nullptr) {
      if (MayTake(matches, node, path, NameInRfc8519, &reading->builder.problems())) {
        ReadContainer(node, *container, PathOf(path, node), reading);
      }
    } else {
      TakeByRule(matches, node, "", path, reading);
    }
  }
  CheckIpVersion(matches, path, kind, reading);
}

}  // namespace host::standard
