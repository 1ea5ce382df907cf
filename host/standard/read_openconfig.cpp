// openconfig-acl: see readers.h. Containers `state` repeat the configuration and are passed over.
// Here are lists, entries and interfaces; openconfig_parts.h has what entries compare.
#include <algorithm>
#include <cstdint>
#include <iterator>
#include <set>
#include <unordered_set>
#include <utility>

#include "host/standard/openconfig_parts.h"
#include "host/standard/readers.h"

namespace host::standard {
namespace {

// A leaf of the container config of a node or, of a key that is not there, that of the node.
const Node* FindConfig(const Node& node, std::string_view leaf) {
  const Node* config = ConfigIn(node);
  const Node* found = config == nullptr ? nullptr : ChildOf(*config, NameInOpenConfig, leaf);
  return found != nullptr ? found : ChildOf(node, NameInOpenConfig, leaf);
}
const std::string& ConfigOf(const Node& node, std::string_view leaf) {
  static const std::string kNone;
  const Node* found = FindConfig(node, leaf);
  return found == nullptr ? kNone : found->value;
}

class OpenConfigReader {
 public:
  OpenConfigReader(size_t most_alternatives, AccessLists* lists)
      : most_(most_alternatives), lists_(lists) {}

  void ReadSets(const Node& sets) { ReadOpenConfigSets(sets, &sets_, lists_); }

  std::string Read(const Node& acl) {
    Each(acl, "/acl", &lists_->problems, [this](const Node& node, std::string_view name) {
      if (name != "acl-sets") return name == "interfaces";
      Each(node, "/acl/acl-sets", &lists_->problems,
           [this](const Node& set, std::string_view list) {
             if (list == "acl-set") ReadSet(set);
             return list == "acl-set";
           });
      return true;
    });
    // Behind the sets, whose names they have.
    for (const Node& node : acl.children) {
      if (NameInOpenConfig(node) != "interfaces" || FaultOf(acl, node) != nullptr) continue;
      const std::string place = "/acl/interfaces";
      Each(node, place, &lists_->problems, [&](const Node& interface, std::string_view name) {
        if (name == "interface") ReadInterface(interface, place);
        return name == "interface";
      });
    }
    return count_.error();
  }

 private:
  template <class Take>
  void Each(const Node& node, const std::string& path, std::vector<Problem>* problems,
            const Take& take) {
    ForEach(node, path, NameInOpenConfig, problems, &lists_->notes,
            [&](const Node& child, std::string_view name) {
              return SaysNothing(child) || take(child, name);
            });
  }

  // The leaves of the container config of a node: of those in `known` it is known what they say.
  void CheckConfig(const Node& config, const std::string& path, std::vector<Problem>* problems,
                   std::initializer_list<std::string_view> known) {
    Each(config, path, problems, [&](const Node& /*leaf*/, std::string_view name) {
      return std::find(known.begin(), known.end(), name) != known.end();
    });
  }

  // Refuses keys of `node` that its container config has with other values.
  static void CheckKeys(const Node& node, const std::string& path, std::vector<Problem>* problems,
                        std::initializer_list<std::string_view> keys) {
    for (const std::string_view key : keys) {
      const Node *config = FindConfig(node, key), *own = ChildOf(node, NameInOpenConfig, key);
      if (own == nullptr || (own->value == config->value &&
                             (own->module_of_value.empty() || config->module_of_value.empty() ||
                              own->module_of_value == config->module_of_value))) {
        continue;
      }
      problems->push_back({PathOf(path, *own), "another value than that in config", true, true});
    }
  }

  void ReadSet(const Node& set) {
    Acl& acl = lists_->acls.emplace_back();
    const Node* type = FindConfig(set, "type");
    const std::string& name = ConfigOf(set, "name");
    acl.name = NameFor(name, type == nullptr ? "" : type->value);
    if (acl.name != name) acl.set_name = name;
    acl.path = EntryPath("/acl/acl-sets", "acl-set", "name", name);
    acl.description = ConfigOf(set, "description");
    ReadType(type, &acl);
    CheckKeys(set, acl.path, &acl.problems, {"name", "type"});
    if (!sets_read_.insert(acl.name).second) {
      acl.problems.push_back({acl.path, "a second list of that name and type", true, true});
    }
    std::unordered_set<uint32_t> numbers;  // of entries
    Each(set, acl.path, &acl.problems, [&](const Node& node, std::string_view child) {
      const std::string path = PathOf(acl.path, node);
      if (child == "config") {
        CheckConfig(node, path, &acl.problems, {"name", "type", "description"});
      } else if (child == "acl-entries") {
        acl.aces.reserve(node.children.size());
        Each(node, path, &acl.problems, [&](const Node& entry, std::string_view list) {
          if (list == "acl-entry") ReadEntry(entry, &acl, &numbers);
          return list == "acl-entry";
        });
      } else {
        return child == "name" || child == "type";
      }
      return true;
    });
    std::stable_sort(acl.aces.begin(), acl.aces.end(),
                     [](const Ace& a, const Ace& b) { return a.number < b.number; });
  }

  static void ReadType(const Node* type, Acl* acl) {
    static constexpr struct {
      const char* identity;
      Kind kind;
    } kTypes[] = {
        {"ACL_L2", Kind::kEthernet}, {"ACL_IPV4", Kind::kIpv4}, {"ACL_MIXED", Kind::kAny}};
    for (const auto& known : kTypes) {
      if (type == nullptr || !IsIdentity(*type, kOpenConfigAcl, known.identity)) continue;
      acl->kind = known.kind;
      return;
    }
    acl->problems.push_back({acl->path + "/config/type",
                             "a list of the type " + (type == nullptr ? "" : type->value), true});
  }

  // A set is named by its name and type; a list here by its name, which no other has.
  const std::string& NameFor(const std::string& name, const std::string& type) {
    std::string* known = &names_[{name, type}];
    if (!known->empty()) return *known;
    *known = taken_.insert(name).second ? name : name + " (" + type + ")";
    for (int i = 2; *known != name && !taken_.insert(*known).second; ++i) {
      *known = name + " (" + type + " " + std::to_string(i) + ")";
    }
    return *known;
  }

  void ReadEntry(const Node& node, Acl* acl, std::unordered_set<uint32_t>* numbers) {
    Ace& ace = acl->aces.emplace_back();
    ace.name = ConfigOf(node, "sequence-id");
    ace.path = EntryPath(acl->path + "/acl-entries", "acl-entry", "sequence-id", ace.name);
    ace.number = NumberOf(ace.name, 0xffffffff);
    ace.description = ConfigOf(node, "description");
    Reading reading{AceBuilder(&ace, most_), sets_, NameInOpenConfig, &lists_->notes};
    if (!ace.number) {
      ace.problems.push_back({ace.path, "it has no number", true, true});
    } else if (!numbers->insert(*ace.number).second) {
      ace.problems.push_back({ace.path, "a second entry of that number", true, true});
    }
    CheckKeys(node, ace.path, &ace.problems, {"sequence-id"});
    Each(node, ace.path, &ace.problems, [&](const Node& child, std::string_view name) {
      const std::string path = PathOf(ace.path, child);
      if (name == "config") {
        CheckConfig(child, path, &ace.problems, {"sequence-id", "description"});
      } else if (name == "actions") {
        ReadActions(child, path, &ace, &reading);
      } else if (name == "l2" || name == "ipv4" || name == "transport") {
        ReadOpenConfigFields(child, path, &reading);
      } else if (name == "ipv6" || name == "mpls" || name == "input-interface") {
        RefuseConfigured(child, path, &reading);
      } else {
        return name == "sequence-id";
      }
      return true;
    });
    if (ace.handling == Handling::kNone) {
      reading.builder.Refuse(ace.path + "/actions", "there is no forwarding action");
    }
    CompleteOpenConfig(*acl, ace, &reading);
    count_.Add(&ace);
  }

  void ReadActions(const Node& actions, const std::string& path, Ace* ace, Reading* reading) {
    Each(actions, path, &ace->problems, [&](const Node& config, std::string_view container) {
      if (container != "config") return false;
      Each(config, path + "/config", &ace->problems, [&](const Node& node, std::string_view name) {
        if (name == "forwarding-action") {
          TakeForwarding(node, PathOf(path + "/config", node), ace, reading);
        } else if (name == "log-action") {
          if (!IsIdentity(node, kOpenConfigAcl, "LOG_NONE")) {
            reading->builder.Refuse(PathOf(path + "/config", node), "a log of the packets", false);
          }
        } else {
          return false;
        }
        return true;
      });
      return true;
    });
  }

  static void TakeForwarding(const Node& node, const std::string& path, Ace* ace,
                             Reading* reading) {
    const auto is = [&node](const char* name) { return IsIdentity(node, kOpenConfigAcl, name); };
    if (is("ACCEPT")) {
      ace->handling = Handling::kPermit;
    } else if (is("DROP") || is("REJECT")) {
      ace->handling = Handling::kDeny;
      if (is("DROP")) return;
      reading->builder.Refuse(path, "an ICMP error to the sender of what is dropped", false);
    } else {
      reading->builder.Refuse(path, "the action " + node.value);
    }
  }

  void ReadInterface(const Node& node, const std::string& place) {
    const std::string& id = ConfigOf(node, "id");
    const std::string path = EntryPath(place, "interface", "id", id);
    std::vector<Problem>* problems = &lists_->problems;
    Attachment attachment;
    attachment.interface = id;
    attachment.path = path + "/ingress-acl-sets";
    const size_t before = problems->size();
    CheckKeys(node, path, problems, {"id"});
    const bool in_doubt = AnyWhole(*problems, before);
    Each(node, path, problems, [&](const Node& child, std::string_view name) {
      if (name == "interface-ref") {
        ReadReference(child, PathOf(path, child), &attachment.interface);
      } else if (name == "ingress-acl-sets") {
        EachSet(child, attachment.path, "ingress-acl-set", [&](std::string acl, std::string set) {
          attachment.acls.push_back(std::move(acl));
          attachment.paths.push_back(std::move(set));
        });
      } else if (name == "egress-acl-sets") {
        EachSet(child, path + "/egress-acl-sets", "egress-acl-set",
                [&](const std::string& /*acl*/, std::string set) {
                  problems->push_back({std::move(set), "a list for frames that leave " + id, true});
                });
      } else if (name == "config") {
        CheckConfig(child, PathOf(path, child), problems, {"id"});
      } else {
        return name == "id";
      }
      return true;
    });
    if (in_doubt) return;
    if (attachment.interface != id) {
      lists_->notes.push_back({path, "the id of the interface " + attachment.interface,
                               "left out: ours is called as the interface is"});
    }
    lists_->attachments.push_back(std::move(attachment));
  }

  // The name of the interface, with the number of the part of it.
  void ReadReference(const Node& reference, const std::string& path, std::string* name) {
    Each(reference, path, &lists_->problems, [&](const Node& config, std::string_view container) {
      if (container != "config") return false;
      CheckConfig(config, path + "/config", &lists_->problems, {"interface", "subinterface"});
      return true;
    });
    const std::string& interface = ConfigOf(reference, "interface");
    const std::string& part = ConfigOf(reference, "subinterface");
    if (!interface.empty()) *name = interface;
    if (FindConfig(reference, "subinterface") == nullptr) return;
    const std::optional<uint32_t> number = NumberOf(part, UINT32_MAX);
    if (!number) {
      const std::string place = path + "/config/subinterface";
      lists_->problems.push_back({place, "\"" + part + "\" is no value that is known", true});
    } else if (*number != 0) {
      *name += "." + std::to_string(*number);
    }
  }

  // The sets of one direction: the names of their lists, and their paths.
  template <class Take>
  void EachSet(const Node& direction, const std::string& place, std::string_view list,
               const Take& take) {
    std::vector<Problem>* problems = &lists_->problems;
    Each(direction, place, problems, [&](const Node& set, std::string_view name) {
      if (name != list) return false;
      const std::string& acl = ConfigOf(set, "set-name");
      const std::string path = EntryPath(place, list, "set-name", acl);
      const size_t before = problems->size();
      CheckKeys(set, path, problems, {"set-name", "type"});
      Each(set, path, problems, [&](const Node& child, std::string_view leaf) {
        // The entries below a set of an interface are state.
        if (leaf != "config") return leaf == "set-name" || leaf == "type" || leaf == "acl-entries";
        CheckConfig(child, path + "/config", problems, {"set-name", "type"});
        return true;
      });
      // What is in doubt is bound nowhere.
      if (!AnyWhole(*problems, before)) take(NameFor(acl, ConfigOf(set, "type")), path);
      return true;
    });
  }

  const size_t most_;
  AccessLists* lists_;
  DefinedSets sets_;
  std::map<std::pair<std::string, std::string>, std::string> names_;  // by name and type
  std::set<std::string> taken_, sets_read_;
  ValueCount count_;
};

}  // namespace

std::string ReadOpenConfig(const Document& document, size_t most_alternatives, AccessLists* lists) {
  OpenConfigReader reader(most_alternatives, lists);
  const auto may = [&](const Node& node, NameOfNode name_of) {
    return MayTake(document.root, node, "", name_of, &lists->problems);
  };
  const NameOfNode any_name = [](const Node& node) { return node.name; };
  const auto is_acl = [](const Node& node) {
    return node.name == "acl" && node.module == kOpenConfigAcl.name;
  };
  bool found = false;
  for (const Node& node : document.root.children) {
    if (node.name == "defined-sets" && node.module == kOpenConfigSets.name) {
      if (may(node, any_name)) reader.ReadSets(node);
    } else if (is_acl(node)) {
      found = true;
    } else {
      TellOtherModel(node, lists);
    }
  }
  if (!found) return std::string("it has no ") + kOpenConfigAcl.name + ":acl";
  std::string wrong;
  for (const Node& node : document.root.children) {
    if (is_acl(node) && may(node, NameInOpenConfig) && wrong.empty()) wrong = reader.Read(node);
  }
  return wrong;
}

}  // namespace host::standard
