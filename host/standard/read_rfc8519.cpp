// ietf-access-control-list and its augmentations: see readers.h. The statements are those of
// RFC 8519, sections 4.1 and 4.2, and of RFC 9899, appendix of the module ietf-acl-enh.
#include <utility>

#include "host/standard/ace_builder.h"
#include "host/standard/names.h"
#include "host/standard/readers.h"
#include "host/standard/statements.h"

namespace host::standard {
namespace {

constexpr uint32_t kTcp = 6, kUdp = 17, kIcmp = 1;
constexpr uint32_t kMostPort = 65535, kMostVlan = 4095;

// The name of a node, with "own:" in front where it is of acl-app-standard; empty where it is of a
// module that is not read here, whose node of a known name may mean anything.
std::string NameOf(const Node& node) {
  std::string name(node.name);
  if (node.module == kAccessControlList.name || node.module == kAclEnhancements.name) return name;
  return node.module == kOwnStandard.name ? "own:" + name : "";
}

void TakeEcn(Reading* reading, const Statement& statement, const Rule& /*rule*/) {
  const std::optional<uint32_t> ecn = NumberOf(statement.node.value, 3);
  if (!ecn) return RefuseValue(reading, statement);
  reading->builder.And(kTos, {{*ecn, kEcnMask}});
}

void TakeEthertype(Reading* reading, const Statement& statement, const Rule& rule) {
  std::optional<uint32_t> type = EthertypeNamed(statement.node.value);
  if (!type) type = NumberOf(statement.node.value, 0xffff);
  if (!type) return RefuseValue(reading, statement);
  reading->builder.AndExact(rule.field, *type);
}

// What port-range-or-operator says (RFC 8519, section 4.2).
std::optional<Ranges> PortsOf(const Node& node) {
  if (const Node* lower = node.Find("lower-port")) {
    const std::optional<uint32_t> low = NumberOf(lower->value, kMostPort);
    const std::optional<uint32_t> high = NumberOf(node.ValueOf("upper-port"), kMostPort);
    if (!low || !high || *low > *high) return std::nullopt;
    return Ranges{{*low, *high}};
  }
  const std::optional<uint32_t> port = NumberOf(node.ValueOf("port"), kMostPort);
  if (!port) return std::nullopt;
  return RangesOf(node.ValueOf("operator"), *port, kMostPort);
}

std::optional<Ranges> PortsIn(const Node& set) {
  Ranges all;
  for (const Node& port : set.children) {
    if (port.name != "port") continue;
    const Node* inner = port.Find("port-range-or-operator");
    const std::optional<Ranges> ranges = PortsOf(inner == nullptr ? port : *inner);
    if (!ranges) return std::nullopt;
    all.insert(all.end(), ranges->begin(), ranges->end());
  }
  return Union(std::move(all));
}

std::optional<std::vector<Value>> ProtocolsIn(const Node& set) {
  std::vector<Value> protocols;
  for (const Node& node : set.children) {
    if (node.name != "protocol") continue;
    std::optional<uint32_t> protocol = NumberOf(node.value, 255);
    if (!protocol) protocol = ProtocolNamed(node.value);
    if (!protocol) return std::nullopt;
    protocols.push_back({*protocol, FullMask(kIpProtocol)});
  }
  return protocols;
}

void TakePort(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.node.children.empty()) return;
  const std::optional<Ranges> ports = PortsOf(statement.node);
  if (!ports) {
    return reading->builder.Refuse(statement.path, "ports that are not given as they should be");
  }
  reading->builder.AndRanges(rule.field, *ports, statement.path, "a range of destination ports");
}

void TakeVlans(Reading* reading, const Statement& statement, const Rule& rule) {
  const Node& filter = statement.node;
  if (const Node* type = filter.Find("frame-type")) {
    reading->builder.Refuse(statement.path + "/frame-type", "the frame type " + type->value);
  }
  Ranges vlans;
  bool right = true;
  const std::string& op = filter.ValueOf("operator");
  if (const Node* lower = filter.Find("lower-vlan")) {
    const std::optional<uint32_t> low = NumberOf(lower->value, kMostVlan);
    const std::optional<uint32_t> high = NumberOf(filter.ValueOf("upper-vlan"), kMostVlan);
    right = low && high && *low <= *high;
    if (right) vlans.push_back({*low, *high});
  }
  for (const Node& node : filter.children) {
    if (node.name != "vlan") continue;
    const std::optional<uint32_t> vlan = NumberOf(node.value, kMostVlan);
    const std::optional<Ranges> ranges =
        vlan ? RangesOf(op == "neq" ? "eq" : op, *vlan, kMostVlan) : std::nullopt;
    right = right && ranges;
    if (ranges) vlans.insert(vlans.end(), ranges->begin(), ranges->end());
  }
  if (!right) return reading->builder.Refuse(statement.path, "VLANs that are not in order");
  if (vlans.empty()) return;
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
    {"isid-filter", Refuse, kFieldCount, 0, "a service instance (I-SID)"},
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
    {"ipv6", Refuse, kFieldCount, 0, "IPv6"},
    {"tcp/destination-port", TakePort, kDestinationPort},
    {"tcp/destination-tcp-port-set", TakePortSet, kDestinationPort},
    {"tcp/source-port", Refuse, kFieldCount, 0, "a source port"},
    {"tcp/source-tcp-port-set", Refuse, kFieldCount, 0, "source ports of the set"},
    {"tcp/flags", Refuse, kFieldCount, 0, "the TCP flags"},
    {"tcp/flags-bitmask", Refuse, kFieldCount, 0, "TCP flags"},
    {"udp/destination-port", TakePort, kDestinationPort},
    {"udp/destination-udp-port-set", TakePortSet, kDestinationPort},
    {"udp/source-port", Refuse, kFieldCount, 0, "a source port"},
    {"udp/source-udp-port-set", Refuse, kFieldCount, 0, "source ports of the set"},
    {"udp/length", Refuse, kFieldCount, 0, "a UDP length of"},
    {"icmp/type", Refuse, kFieldCount, 0, "an ICMP type of"},
    {"icmp/code", Refuse, kFieldCount, 0, "an ICMP code of"},
    {"ingress-interface", Refuse, kFieldCount, 0, "the ingress interface"},
    {"egress-interface", Refuse, kFieldCount, 0, "the egress interface"},
    {"pattern", Refuse, kFieldCount, 0, "a pattern in the payload"},
    {"alias-name", Refuse, kFieldCount, 0, "the alias"},
    {"mpls-values", Refuse, kFieldCount, 0, "MPLS"},
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

const Rule* FindRule(const std::string& path) {
  static const RuleIndex kIndex(kRules);
  return kIndex.Find(path);
}

class Rfc8519Reader {
 public:
  Rfc8519Reader(size_t most_alternatives, AccessLists* lists)
      : most_(most_alternatives), lists_(lists) {}

  void Read(const Node& acls) {
    for (const Node& node : acls.children) {
      if (node.name == "defined-sets") TakeSets(node);
    }
    for (const Node& node : acls.children) {
      if (node.name == "acl") {
        ReadAcl(node);
      } else if (node.name == "attachment-points") {
        for (const Node& child : node.children) ReadAttachment(child);
      } else if (node.name != "defined-sets") {
        Unknown("/acls", node, &lists_->problems);
      }
    }
  }

 private:
  static void Unknown(const std::string& place, const Node& node, std::vector<Problem>* problems) {
    std::string path = place + "/";
    path.append(node.name);
    problems->push_back({std::move(path), "a statement that is not known here", true});
  }

  // Sets that entries name (RFC 9899).
  void TakeSets(const Node& sets) {
    const auto each = [&sets](const char* container, const char* list, const auto& take) {
      const Node* found = sets.Find(container);
      if (found == nullptr) return;
      for (const Node& set : found->children) {
        if (set.name == list) take(set.ValueOf("name"), set);
      }
    };
    each("ipv4-prefix-sets", "prefix-set", [this](const std::string& name, const Node& set) {
      sets_.prefixes[name] = PrefixesIn(set, "prefix");
    });
    each("port-sets", "port-set",
         [this](const std::string& name, const Node& set) { sets_.ports[name] = PortsIn(set); });
    each("protocol-sets", "protocol-set", [this](const std::string& name, const Node& set) {
      sets_.protocols[name] = ProtocolsIn(set);
    });
  }

  void ReadAcl(const Node& node) {
    Acl& acl = lists_->acls.emplace_back();
    acl.name = node.ValueOf("name");
    acl.path = EntryPath("/acls", "acl", "name", acl.name);
    for (const Node& child : node.children) {
      const std::string name = NameOf(child);
      if (name == "type") {
        ReadType(child, &acl);
      } else if (name == "own:description") {
        acl.description = child.value;
      } else if (name == "own:priority") {
        acl.priority = NumberOf(child.value, 65535);
      } else if (name == "own:group") {
        acl.l3 = child.value == "l3";
      } else if (name != "name" && name != "aces") {
        Unknown(acl.path, child, &acl.problems);
      }
    }
    const Node* aces = node.Find("aces");
    if (aces == nullptr) return;
    acl.aces.reserve(aces->children.size());
    for (const Node& ace : aces->children) {
      if (ace.name == "ace") {
        ReadAce(ace, &acl);
      } else {
        Unknown(acl.path + "/aces", ace, &acl.problems);
      }
    }
  }

  static void ReadType(const Node& node, Acl* acl) {
    static constexpr struct {
      const char* identity;
      Kind kind;
    } kTypes[] = {{"eth-acl-type", Kind::kEthernet},
                  {"ipv4-acl-type", Kind::kIpv4},
                  {"mixed-eth-ipv4-acl-type", Kind::kMixed},
                  {"mixed-eth-ipv4-ipv6-acl-type", Kind::kAny}};
    for (const auto& type : kTypes) {
      if (node.value != type.identity) continue;
      acl->kind = type.kind;
      return;
    }
    acl->problems.push_back({acl->path + "/type", "a list of the type " + node.value, true});
  }

  void ReadAce(const Node& node, Acl* acl) {
    Ace& ace = acl->aces.emplace_back();
    ace.name = node.ValueOf("name");
    ace.path = EntryPath(acl->path + "/aces", "ace", "name", ace.name);
    Reading reading{AceBuilder(&ace, most_), sets_};
    bool handled = false;
    for (const Node& child : node.children) {
      const std::string name = NameOf(child);
      if (name == "matches") {
        ReadMatches(child, *acl, &ace, &reading);
      } else if (name == "actions") {
        handled = ReadActions(child, &ace, &reading);
      } else if (name == "own:description") {
        ace.description = child.value;
      } else if (name == "own:ace-priority") {
        ace.ace_priority = NumberOf(child.value, 65535);
      } else if (name == "own:end-of-profile") {
        ace.is_end = true;
      } else if (name != "name" && name != "statistics") {
        Unknown(ace.path, child, &ace.problems);
      }
    }
    if (!handled) reading.builder.Refuse(ace.path + "/actions", "there is no forwarding action");
    if (acl->kind == Kind::kIpv4 && !AskForIpv4(ace.conditions)) {
      reading.builder.And(kDestinationIpv4, {{0, 0}});
    }
  }

  static void ReadMatches(const Node& matches, const Acl& acl, Ace* ace, Reading* reading) {
    for (const Node& node : matches.children) {
      const std::string name = NameOf(node);
      const std::string path = ace->path + "/matches/" + std::string(node.name);
      if (const Rule* rule = FindRule(name)) {
        rule->take(reading, {node, matches, path}, *rule);
        continue;
      }
      const Rule* container = nullptr;
      for (const Rule& rule : kContainers) {
        if (name == rule.path) container = &rule;
      }
      if (container == nullptr) {
        reading->builder.Refuse(path, "a condition that is not known here");
        continue;
      }
      ReadContainer(node, *container, path, reading);
    }
    CheckIpVersion(matches, acl, ace, reading);
  }

  static void ReadContainer(const Node& container, const Rule& rule, const std::string& path,
                            Reading* reading) {
    if (rule.take != nullptr) rule.take(reading, {container, container, path}, rule);
    for (const Node& node : container.children) {
      const std::string child_path = path + "/" + std::string(node.name);
      const Rule* child = FindRule(std::string(container.name) + "/" + NameOf(node));
      if (child == nullptr) {
        reading->builder.Refuse(child_path, "a condition that is not known here");
      } else {
        child->take(reading, {node, container, child_path}, *child);
      }
    }
  }

  // TCP and UDP without a word on IP are over both versions; ours compares the protocol of IPv4.
  static void CheckIpVersion(const Node& matches, const Acl& acl, Ace* ace, Reading* reading) {
    if (acl.kind == Kind::kIpv4 || acl.kind == Kind::kMixed) return;
    const Node* ipv4 = matches.Find("ipv4");
    if (ipv4 != nullptr && !ipv4->children.empty()) return;
    for (const char* name : {"tcp", "udp", "icmp"}) {
      const Node* container = matches.Find(name);
      if (container == nullptr || container->children.empty()) continue;
      reading->builder.Refuse(ace->path + "/matches/" + name,
                              std::string(name) + " over IPv6 as well as over IPv4");
    }
  }

  // Whether there is a forwarding action.
  static bool ReadActions(const Node& actions, Ace* ace, Reading* reading) {
    for (const Node& node : actions.children) {
      const std::string path = ace->path + "/actions/" + std::string(node.name);
      const std::string& value = node.value;
      const std::string name = NameOf(node);
      if (name == "forwarding") {
        TakeForwarding(node, path, ace, reading);
      } else if (name == "logging") {
        if (value != "log-none") reading->builder.Refuse(path, "a log of the packets", false);
      } else if (name == "own:set-pcp") {
        const std::optional<uint32_t> pcp = NumberOf(value, 7);
        if (pcp) ace->set_pcp = static_cast<uint8_t>(*pcp);
        if (!pcp) reading->builder.Refuse(path, "\"" + value + "\" is no PCP");
      } else if (name == "log-action" || name == "counter-action") {
        if (!node.children.empty()) {
          reading->builder.Refuse(path, "logs and named counters of the packets", false);
        }
      } else if (name == "rate-limit") {
        reading->builder.Refuse(path, "that no more than " + value + " bytes a second pass");
      } else if (name != "own:no-action") {
        reading->builder.Refuse(path, "an action that is not known here");
      }
    }
    const bool handled = ace->handling != Handling::kNone;
    if (actions.Find("no-action") != nullptr) ace->handling = Handling::kNone;
    return handled;
  }

  static void TakeForwarding(const Node& node, const std::string& path, Ace* ace,
                             Reading* reading) {
    const bool standard =
        node.module_of_value.empty() || node.module_of_value == kAccessControlList.name;
    if (standard && node.value == "accept") ace->handling = Handling::kPermit;
    if (standard && (node.value == "drop" || node.value == "reject")) {
      ace->handling = Handling::kDeny;
      if (node.value == "drop") return;
      reading->builder.Refuse(path, "an ICMP error to the sender of what is dropped", false);
    }
  }

  void ReadAttachment(const Node& node) {
    if (node.name != "interface")
      return Unknown("/acls/attachment-points", node, &lists_->problems);
    const std::string& name = node.ValueOf("interface-id");
    const std::string path =
        EntryPath("/acls/attachment-points", "interface", "interface-id", name);
    const auto sets = [&node](const char* direction) -> const Node* {
      const Node* found = node.Find(direction);
      return found == nullptr ? nullptr : found->Find("acl-sets");
    };
    if (const Node* ingress = sets("ingress")) {
      Attachment& attachment = lists_->attachments.emplace_back();
      attachment.interface = name;
      attachment.path = path + "/ingress";
      for (const Node& set : ingress->children) {
        attachment.acls.push_back(set.ValueOf("name"));
        attachment.paths.push_back(
            EntryPath(path + "/ingress/acl-sets", "acl-set", "name", attachment.acls.back()));
      }
    }
    if (const Node* egress = sets("egress")) {
      for (const Node& set : egress->children) {
        lists_->problems.push_back(
            {EntryPath(path + "/egress/acl-sets", "acl-set", "name", set.ValueOf("name")),
             "a list for frames that leave " + name, true});
      }
    }
  }

  const size_t most_;
  AccessLists* lists_;
  DefinedSets sets_;
};

}  // namespace

std::string ReadRfc8519(const Document& document, size_t most_alternatives, AccessLists* lists) {
  const Node* acls = document.root.Find("acls");
  if (acls == nullptr || acls->module != kAccessControlList.name) {
    return std::string("it has no ") + kAccessControlList.name + ":acls";
  }
  Rfc8519Reader(most_alternatives, lists).Read(*acls);
  return "";
}

}  // namespace host::standard
