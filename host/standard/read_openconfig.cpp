// openconfig-acl: see readers.h. The statements are those of openconfig-acl and
// openconfig-packet-match; containers `state` repeat the configuration and are passed over.
#include <algorithm>
#include <utility>

#include "host/standard/names.h"
#include "host/standard/readers.h"
#include "host/standard/statements.h"

namespace host::standard {
namespace {

constexpr uint32_t kMostPort = 65535;
constexpr uint64_t kTcp = 6, kUdp = 17;

// "80", "1024..2047" or "ANY", which says nothing (an empty range here).
std::optional<Ranges> PortsOf(const std::string& text) {
  if (text == "ANY") return Ranges{};
  const size_t dots = text.find("..");
  const std::optional<uint32_t> low = NumberOf(text.substr(0, dots), kMostPort);
  const std::optional<uint32_t> high =
      dots == std::string::npos ? low : NumberOf(text.substr(dots + 2), kMostPort);
  if (!low || !high || *low > *high) return std::nullopt;
  return Ranges{{*low, *high}};
}

void TakePort(Reading* reading, const Statement& statement, const Rule& rule) {
  const std::optional<Ranges> ports = PortsOf(statement.node.value);
  if (!ports) return RefuseValue(reading, statement);
  if (ports->empty()) return;
  reading->builder.AndRanges(rule.field, *ports, statement.path, "a range of destination ports");
}

void RefusePort(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.node.value != "ANY") Refuse(reading, statement, rule);
}

void TakeEthertype(Reading* reading, const Statement& statement, const Rule& rule) {
  std::optional<uint32_t> type = OpenConfigEthertype(statement.node.value);
  if (!type) type = NumberOf(statement.node.value, 0xffff);
  if (!type) return RefuseValue(reading, statement);
  reading->builder.AndExact(rule.field, *type);
}

void TakeProtocol(Reading* reading, const Statement& statement, const Rule& rule) {
  std::optional<uint32_t> protocol = OpenConfigProtocol(statement.node.value);
  if (!protocol) protocol = NumberOf(statement.node.value, 254);
  if (!protocol) return RefuseValue(reading, statement);
  reading->builder.AndExact(rule.field, *protocol);
}

// The values of a leaf-list are alternatives; all of them are taken with the first.
void TakeDscpSet(Reading* reading, const Statement& statement, const Rule& rule) {
  if (statement.parent.Find(statement.node.name) != &statement.node) return;
  std::vector<Value> values;
  for (const Node& node : statement.parent.children) {
    if (node.name != statement.node.name) continue;
    const std::optional<uint32_t> dscp = NumberOf(node.value, 63);
    if (!dscp) return RefuseValue(reading, statement);
    values.push_back({uint64_t{*dscp} << 2, kDscpMask});
  }
  reading->builder.And(rule.field, std::move(values));
}

constexpr Rule kRules[] = {
    {"l2/source-mac", TakeMac, kSourceMac},
    {"l2/source-mac-mask", TakeMask},
    {"l2/destination-mac", TakeMac, kDestinationMac},
    {"l2/destination-mac-mask", TakeMask},
    {"l2/ethertype", TakeEthertype, kEthertype},
    {"ipv4/source-address", TakePrefix, kSourceIpv4},
    {"ipv4/destination-address", TakePrefix, kDestinationIpv4},
    {"ipv4/source-address-prefix-set", TakePrefixSet, kSourceIpv4},
    {"ipv4/destination-address-prefix-set", TakePrefixSet, kDestinationIpv4},
    {"ipv4/dscp", TakeDscp},
    {"ipv4/dscp-set", TakeDscpSet, kTos},
    {"ipv4/protocol", TakeProtocol, kIpProtocol},
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

const Rule* FindRule(const std::string& path) {
  static const RuleIndex kIndex(kRules);
  return kIndex.Find(path);
}

// Child of the container `config` of a node, where the values are.
const std::string& ConfigOf(const Node& node, std::string_view leaf) {
  const Node* config = node.Find("config");
  return config != nullptr && config->Find(leaf) != nullptr ? config->ValueOf(leaf)
                                                            : node.ValueOf(leaf);
}

class OpenConfigReader {
 public:
  OpenConfigReader(size_t most_alternatives, AccessLists* lists)
      : most_(most_alternatives), lists_(lists) {}

  void Read(const Node& acl, const Node* defined_sets) {
    if (defined_sets != nullptr) TakeSets(*defined_sets);
    for (const Node& node : acl.children) {
      if (node.name == "acl-sets") {
        for (const Node& set : node.children) ReadSet(set);
      }
    }
    for (const Node& node : acl.children) {
      if (node.name == "interfaces") {
        for (const Node& interface : node.children) ReadInterface(interface);
      } else if (node.name != "acl-sets" && !IsState(node)) {
        lists_->problems.push_back({"/acl/" + std::string(node.name), kUnknown, true});
      }
    }
  }

 private:
  static constexpr char kUnknown[] = "a statement that is not known here";

  // State, and containers of configuration that have none.
  static bool IsState(const Node& node) {
    return node.name == "state" || (node.name == "config" && node.children.empty());
  }

  void TakeSets(const Node& sets) {
    const auto each = [&sets](const char* container, const auto& take) {
      const Node* found = sets.Find(container);
      if (found == nullptr) return;
      for (const Node& set : found->children) {
        if (const Node* config = set.Find("config")) take(set.ValueOf("name"), *config);
      }
    };
    each("ipv4-prefix-sets", [this](const std::string& name, const Node& set) {
      sets_.prefixes[name] = PrefixSet(set);
    });
    each("port-sets",
         [this](const std::string& name, const Node& set) { sets_.ports[name] = PortSet(set); });
  }

  // The addresses of the set, less those that it excludes.
  static std::optional<std::vector<Value>> PrefixSet(const Node& set) {
    auto prefixes = PrefixesIn(set, "prefix"), excluded = PrefixesIn(set, "exclude-prefix");
    if (!prefixes || !excluded || excluded->empty()) return excluded ? prefixes : std::nullopt;
    const auto ranges = [](const std::vector<Value>& values) {
      Ranges all;
      for (const Value& value : values) {
        const uint64_t low = value.value & value.mask;
        all.push_back({low, low | (~value.mask & 0xffffffff)});
      }
      return Union(std::move(all));
    };
    return PrefixesOf(Difference(ranges(*prefixes), ranges(*excluded)));
  }

  static std::optional<Ranges> PortSet(const Node& set) {
    Ranges ports, excluded;
    for (const Node& node : set.children) {
      const bool out = node.name == "exclude-port";
      if (!out && node.name != "port") continue;
      std::optional<Ranges> ranges = PortsOf(node.value);
      if (!ranges) return std::nullopt;
      if (ranges->empty()) ranges->push_back({0, kMostPort});
      (out ? excluded : ports).push_back(ranges->front());
    }
    return Difference(Union(std::move(ports)), excluded);
  }

  void ReadSet(const Node& set) {
    if (set.name != "acl-set") return;
    Acl& acl = lists_->acls.emplace_back();
    const std::string& type = ConfigOf(set, "type");
    acl.name = NameFor(ConfigOf(set, "name"), type);
    acl.path = EntryPath("/acl/acl-sets", "acl-set", "name", ConfigOf(set, "name"));
    acl.description = ConfigOf(set, "description");
    if (type == "ACL_L2") {
      acl.kind = Kind::kEthernet;
    } else if (type == "ACL_IPV4") {
      acl.kind = Kind::kIpv4;
    } else if (type == "ACL_MIXED") {
      acl.kind = Kind::kAny;
    } else {
      acl.problems.push_back({acl.path + "/config/type", "a list of the type " + type, true});
    }
    const Node* entries = set.Find("acl-entries");
    if (entries == nullptr) return;
    for (const Node& entry : entries->children) {
      if (entry.name == "acl-entry") ReadEntry(entry, &acl);
    }
    std::stable_sort(acl.aces.begin(), acl.aces.end(),
                     [](const Ace& a, const Ace& b) { return a.number < b.number; });
  }

  // A set is named by its name and type; a list here by its name.
  const std::string& NameFor(const std::string& name, const std::string& type) {
    std::string* known = &names_[{name, type}];
    if (known->empty()) {
      const bool taken = std::any_of(lists_->acls.begin(), lists_->acls.end(),
                                     [&](const Acl& acl) { return acl.name == name; });
      *known = taken ? name + " (" + type + ")" : name;
    }
    return *known;
  }

  void ReadEntry(const Node& node, Acl* acl) {
    Ace& ace = acl->aces.emplace_back();
    ace.name = ConfigOf(node, "sequence-id");
    ace.path = EntryPath(acl->path + "/acl-entries", "acl-entry", "sequence-id", ace.name);
    ace.number = NumberOf(ace.name, 0xffffffff);
    ace.description = ConfigOf(node, "description");
    Reading reading{AceBuilder(&ace, most_), sets_};
    if (!ace.number) reading.builder.Refuse(ace.path, "it has no number");
    bool handled = false;
    for (const Node& child : node.children) {
      const std::string path = ace.path + "/" + std::string(child.name);
      if (child.name == "actions") {
        handled = ReadActions(child, path, &ace, &reading);
      } else if (child.name == "l2" || child.name == "ipv4" || child.name == "transport") {
        ReadFields(child, path, &reading);
      } else if (child.name != "sequence-id" && child.name != "config" && !IsState(child)) {
        RefuseConfigured(child, path, &reading);
      }
    }
    if (!handled) reading.builder.Refuse(ace.path + "/actions", "there is no forwarding action");
    Complete(*acl, &ace, &reading);
  }

  static void ReadFields(const Node& container, const std::string& path, Reading* reading) {
    for (const Node& child : container.children) {
      if (IsState(child)) continue;
      const std::string child_path = path + "/" + std::string(child.name);
      if (child.name != "config") {
        RefuseConfigured(child, child_path, reading);
        continue;
      }
      for (const Node& leaf : child.children) {
        const std::string leaf_path = child_path + "/" + std::string(leaf.name);
        const Rule* rule =
            leaf.module == kOpenConfigAcl.name
                ? FindRule(std::string(container.name) + "/" + std::string(leaf.name))
                : nullptr;
        if (rule == nullptr) {
          reading->builder.Refuse(leaf_path, "a condition that is not known here");
        } else {
          rule->take(reading, {leaf, child, leaf_path}, *rule);
        }
      }
    }
  }

  // Refuses what is configured below a node that is not known, or that nothing here is like.
  static void RefuseConfigured(const Node& node, const std::string& path, Reading* reading) {
    for (const Node& child : node.children) {
      if (IsState(child)) continue;
      const std::string child_path = path + "/" + std::string(child.name);
      if (!child.children.empty()) {
        RefuseConfigured(child, child_path, reading);
      } else {
        reading->builder.Refuse(child_path, std::string(node.name == "config" ? "" : "of ") +
                                                std::string(child.name) + " " + child.value);
      }
    }
  }

  static bool ReadActions(const Node& actions, const std::string& path, Ace* ace,
                          Reading* reading) {
    const Node* config = actions.Find("config");
    if (config == nullptr) return false;
    for (const Node& node : config->children) {
      const std::string child_path = path + "/config/" + std::string(node.name);
      if (node.name == "forwarding-action") {
        if (node.value == "ACCEPT") ace->handling = Handling::kPermit;
        if (node.value == "DROP" || node.value == "REJECT") ace->handling = Handling::kDeny;
        if (node.value == "REJECT") {
          reading->builder.Refuse(child_path, "an ICMP error to the sender of what is dropped",
                                  false);
        }
      } else if (node.name == "log-action") {
        if (node.value == "LOG_NONE") continue;
        reading->builder.Refuse(child_path, "a log of the packets", false);
      } else {
        reading->builder.Refuse(child_path, "an action that is not known here");
      }
    }
    return ace->handling != Handling::kNone;
  }

  // What follows from the type of the list: which packets an entry is about.
  static void Complete(const Acl& acl, Ace* ace, Reading* reading) {
    const bool ipv4 = acl.kind == Kind::kIpv4 || AskForIpv4(ace->conditions);
    if (!ace->conditions[kDestinationPort].empty() && ipv4) {
      // A port alone is TCP's or UDP's; other protocols have other ports.
      const auto& protocols = ace->conditions[kIpProtocol];
      const bool others = std::any_of(
          protocols.begin(), protocols.end(),
          [](const Value& protocol) { return protocol.value != kTcp && protocol.value != kUdp; });
      if (others) {
        reading->builder.Refuse(ace->path + "/transport/config", "ports of another protocol");
      } else if (protocols.empty()) {
        reading->builder.And(kIpProtocol,
                             {{kTcp, FullMask(kIpProtocol)}, {kUdp, FullMask(kIpProtocol)}});
      }
    }
    if (acl.kind == Kind::kIpv4 && !AskForIpv4(ace->conditions)) {
      reading->builder.And(kDestinationIpv4, {{0, 0}});
    }
  }

  void ReadInterface(const Node& node) {
    if (node.name != "interface") return;
    const std::string& id = node.ValueOf("id");
    const std::string path = EntryPath("/acl/interfaces", "interface", "id", id);
    std::string name = id;
    if (const Node* reference = node.Find("interface-ref")) {
      const std::string& interface = ConfigOf(*reference, "interface");
      const std::string& part = ConfigOf(*reference, "subinterface");
      if (!interface.empty()) name = interface;
      if (!part.empty() && part != "0") name += "." + part;
    }
    const auto each = [&node](const char* container, const auto& take) {
      const Node* sets = node.Find(container);
      if (sets == nullptr) return;
      for (const Node& set : sets->children) {
        if (set.Find("set-name") != nullptr) take(set);
      }
    };
    Attachment attachment;
    attachment.interface = name;
    attachment.path = path + "/ingress-acl-sets";
    each("ingress-acl-sets", [&](const Node& set) {
      attachment.acls.push_back(NameFor(ConfigOf(set, "set-name"), ConfigOf(set, "type")));
      attachment.paths.push_back(
          EntryPath(attachment.path, "ingress-acl-set", "set-name", ConfigOf(set, "set-name")));
    });
    if (!attachment.acls.empty()) lists_->attachments.push_back(std::move(attachment));
    each("egress-acl-sets", [&](const Node& set) {
      lists_->problems.push_back({EntryPath(path + "/egress-acl-sets", "egress-acl-set", "set-name",
                                            ConfigOf(set, "set-name")),
                                  "a list for frames that leave " + name, true});
    });
  }

  const size_t most_;
  AccessLists* lists_;
  DefinedSets sets_;
  std::map<std::pair<std::string, std::string>, std::string> names_;  // by name and type
};

}  // namespace

std::string ReadOpenConfig(const Document& document, size_t most_alternatives, AccessLists* lists) {
  const Node* acl = document.root.Find("acl");
  if (acl == nullptr || acl->module != kOpenConfigAcl.name) {
    return std::string("it has no ") + kOpenConfigAcl.name + ":acl";
  }
  OpenConfigReader(most_alternatives, lists).Read(*acl, document.root.Find("defined-sets"));
  return "";
}

}  // namespace host::standard
