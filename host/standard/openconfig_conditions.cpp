// Conditions of entries, of openconfig-packet-match: see openconfig_parts.h.
#include <algorithm>
#include <iterator>
#include <utility>

#include "host/standard/names.h"
#include "host/standard/openconfig_parts.h"

namespace host::standard {
namespace {

void TakePort(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.node.value == "ANY") return;  // which says nothing
  const std::optional<Range> ports = PortsOfOpenConfig(statement.node.value);
  if (!ports) return RefuseValue(reading, statement);
  reading->builder.AndRanges(rule.field, {*ports}, statement.path, "a range of destination ports");
}

void RefusePort(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.node.value != "ANY") Refuse(reading, statement, rule);
}

// Whether the value may be the name of an identity of openconfig-packet-match-types.
bool MayBeMatchType(const Node& node) {
  return node.module_of_value.empty() || node.module_of_value == kOpenConfigMatchTypes.name;
}

// A number, or the name of one.
template <auto by_name>
void TakeNamed(Reading* reading, const Statement& statement, const Rule& rule) {
  std::optional<uint32_t> number;
  if (MayBeMatchType(statement.node)) number = by_name(statement.node.value);
  if (!number) number = NumberOf(statement.node.value, rule.number);
  if (!number) return RefuseValue(reading, statement);
  reading->builder.AndExact(rule.field, *number);
}

// The values of a leaf-list are alternatives; all of them are taken with the first.
void TakeDscpSet(Reading* reading, const Statement& statement, const Rule& rule) {
  // The first one takes all. (What another model calls the same is none of them.)
  if (ChildOf(statement.parent, reading->name_of, statement.node.name) != &statement.node) return;
  std::vector<Value> values;
  for (const Node& node : statement.parent.children) {
    if (node.name != statement.node.name || reading->name_of(node).empty()) continue;
    const std::optional<uint32_t> dscp = NumberOf(node.value, 63);
    if (!dscp) return RefuseValue(reading, statement);
    values.push_back({uint64_t{*dscp} << 2, kDscpMask});
  }
  reading->builder.And(rule.field, Distinct(std::move(values)));
}

constexpr Rule kRules[] = {
    {"l2/source-mac", TakeMac, kSourceMac},
    {"l2/source-mac-mask", TakeMask},
    {"l2/destination-mac", TakeMac, kDestinationMac},
    {"l2/destination-mac-mask", TakeMask},
    {"l2/ethertype", TakeNamed<OpenConfigEthertype>, kEthertype, 0xffff},
    {"ipv4/source-address", TakePrefix, kSourceIpv4},
    {"ipv4/destination-address", TakePrefix, kDestinationIpv4},
    {"ipv4/source-address-prefix-set", TakePrefixSet, kSourceIpv4},
    {"ipv4/destination-address-prefix-set", TakePrefixSet, kDestinationIpv4},
    {"ipv4/dscp", TakeDscp},
    {"ipv4/dscp-set", TakeDscpSet, kTos},
    {"ipv4/protocol", TakeNamed<OpenConfigProtocol>, kIpProtocol, 254},
    {"ipv4/length", Refuse, kFieldCount, 0, "a total length of"},
    {"ipv4/hop-limit", Refuse, kFieldCount, 0, "a time to live of"},
    {"ipv4/fragment-offsets", Refuse, kFieldCount, 0, "a fragment offset of"},
    {"transport/destination-port", TakePort, kDestinationPort},
    {"transport/destination-port-set", TakePortSet, kDestinationPort},
    {"transport/source-port", RefusePort, kFieldCount, 0, "a source port of"},
    {"transport/source-port-set", Refuse, kFieldCount, 0, "source ports of the set"},
    {"transport/detail-mode", Refuse, kFieldCount, 0, "transport details that are"},
    {"transport/explicit-detail-match-mode", Refuse, kFieldCount, 0, "TCP flags:"},
    {"transport/explicit-tcp-flags", Refuse, kFieldCount, 0, "the TCP flag"},
    {"transport/builtin-detail", Refuse, kFieldCount, 0, "packets that are"},
};

const Rule* FindRule(std::string_view container, std::string_view name) {
  static const RuleIndex kIndex(kRules);
  return kIndex.Find(container, name);
}

}  // namespace

std::optional<Range> PortsOfOpenConfig(const std::string& text) {
  if (text == "ANY") return Range{0, kMostPort};
  const size_t dots = text.find("..");
  const std::optional<uint32_t> low = NumberOf(text.substr(0, dots), kMostPort);
  const std::optional<uint32_t> high =
      dots == std::string::npos ? low : NumberOf(text.substr(dots + 2), kMostPort);
  if (!low || !high || *low > *high) return std::nullopt;
  return Range{*low, *high};
}

std::string_view NameInOpenConfig(const Node& node) {
  if (node.form == Node::Form::kAnnotation) return "";
  return node.module == kOpenConfigAcl.name ? node.name : "";
}

const Node* ConfigIn(const Node& node) { return ChildOf(node, NameInOpenConfig, "config"); }

bool SaysNothing(const Node& node) {
  static constexpr std::string_view kContainers[] = {
      "config",          "ipv4",     "ipv6",        "l2",        "mpls", "transport",
      "input-interface", "acl-sets", "acl-entries", "interfaces"};
  if (NameInOpenConfig(node) == "state") return true;
  return node.children.empty() && node.value.empty() && !node.again &&
         node.form != Node::Form::kNothing &&
         std::find(std::begin(kContainers), std::end(kContainers), NameInOpenConfig(node)) !=
             std::end(kContainers);
}

void ReadOpenConfigFields(const Node& container, const std::string& path, Reading* reading) {
  for (const Node& child : container.children) {
    if (SaysNothing(child)) continue;
    const std::string child_path = PathOf(path, child);
    std::vector<Problem>& problems = reading->builder.problems();
    if (NameInOpenConfig(child) != "config") {
      RefuseConfigured(child, child_path, reading);
      continue;
    }
    if (!MayTake(container, child, path, NameInOpenConfig, &problems)) continue;
    for (const Node& leaf : child.children) {
      const Rule* rule = FindRule(container.name, NameInOpenConfig(leaf));
      if (rule == nullptr) {
        RefuseUnknown(reading, child_path, leaf);
      } else if (rule->take == Refuse ||
                 MayTake(child, leaf, child_path, NameInOpenConfig, &problems)) {
        rule->take(reading, {leaf, child, PathOf(child_path, leaf)}, *rule);
      }
    }
  }
}

void RefuseConfigured(const Node& node, const std::string& path, Reading* reading) {
  if (SaysNothing(node)) return;
  if (node.form == Node::Form::kAnnotation) {
    const std::string place = path.substr(0, path.rfind('/'));
    return RefuseUnknown(reading, place, node);
  }
  if (node.children.empty()) {
    return reading->builder.Refuse(path, std::string(node.name) + " " + node.value);
  }
  for (const Node& child : node.children) RefuseConfigured(child, PathOf(path, child), reading);
}

void CompleteOpenConfig(const Acl& acl, const Ace& ace, Reading* reading) {
  const bool ipv4 = acl.kind == Kind::kIpv4 || AskForIpv4(ace.conditions);
  if (!ace.conditions[kDestinationPort].empty() && ipv4) {
    // A port alone is TCP's or UDP's; other protocols have other ports.
    const auto& protocols = ace.conditions[kIpProtocol];
    const bool others = std::any_of(protocols.begin(), protocols.end(), [](const Value& protocol) {
      return protocol.value != kTcp && protocol.value != kUdp;
    });
    if (others) {
      reading->builder.RefuseWhole(ace.path + "/transport/config", "ports of another protocol");
    } else if (protocols.empty()) {
      reading->builder.And(kIpProtocol,
                           {{kTcp, FullMask(kIpProtocol)}, {kUdp, FullMask(kIpProtocol)}});
    }
  }
  if (acl.kind == Kind::kIpv4 && !AskForIpv4(ace.conditions)) {
    reading->builder.And(kDestinationIpv4, {{0, 0}});
  }
}

}  // namespace host::standard
