// ietf-access-control-list and its augmentations: see readers.h. Here are lists, entries and
// attachments; rfc8519_parts.h has what entries compare.
#include <unordered_set>
#include <utility>

#include "host/standard/readers.h"
#include "host/standard/rfc8519_parts.h"

namespace host::standard {
namespace {

class Rfc8519Reader {
 public:
  Rfc8519Reader(size_t most_alternatives, AccessLists* lists)
      : most_(most_alternatives), lists_(lists) {}

  std::string Read(const Node& acls) {
    const Node* sets = ChildOf(acls, NameInRfc8519, "defined-sets");
    if (sets != nullptr) sets_ = ReadRfc9899Sets(*sets, "/acls/defined-sets", lists_);
    Each(acls, "/acls", &lists_->problems, [this](const Node& node, std::string_view name) {
      if (name == "acl") {
        ReadAcl(node);
      } else if (name == "attachment-points") {
        ReadAttachments(node);
      } else if (name == "aliases") {
        lists_->notes.push_back(
            {"/acls/aliases", "aliases", "left out: entries that name them cannot be kept"});
      } else {
        return name == "defined-sets";
      }
      return true;
    });
    return count_.error();
  }

 private:
  template <class Take>
  void Each(const Node& node, const std::string& path, std::vector<Problem>* problems,
            const Take& take) {
    ForEach(node, path, NameInRfc8519, problems, &lists_->notes, take);
  }

  // A number of ours; one that is none is a problem.
  static std::optional<uint16_t> OwnNumber(const Node& node, const std::string& place,
                                           std::vector<Problem>* problems) {
    const std::optional<uint32_t> number = NumberOf(node.value, 65535);
    if (number) return static_cast<uint16_t>(*number);
    problems->push_back({PathOf(place, node), "\"" + node.value + "\" is no priority", true});
    return std::nullopt;
  }

  void ReadAcl(const Node& node) {
    Acl& acl = lists_->acls.emplace_back();
    acl.name = ValueIn(node, NameInRfc8519, "name");
    acl.path = EntryPath("/acls", "acl", "name", acl.name);
    if (!names_.insert(acl.name).second) {
      acl.problems.push_back({acl.path, "a second list of that name", true, true});
    }
    const Node* aces = nullptr;  // what entries mean depends on the type, wherever it stands
    Each(node, acl.path, &acl.problems, [&](const Node& child, std::string_view name) {
      if (name == "type") {
        ReadType(child, &acl);
      } else if (name == "aces") {
        aces = &child;
      } else if (name == "own:description") {
        acl.description = child.value;
      } else if (name == "own:priority") {
        acl.priority = OwnNumber(child, acl.path, &acl.problems);
      } else if (name == "own:profile-name") {
        acl.profile_name = child.value;
      } else if (name == "own:group" && (child.value == "l2" || child.value == "l3")) {
        acl.l3 = child.value == "l3";
      } else {
        return name == "name";
      }
      return true;
    });
    if (aces == nullptr) return;
    acl.aces.reserve(aces->children.size());
    std::unordered_set<std::string_view> names;  // of entries: views of the document
    Each(*aces, acl.path + "/aces", &acl.problems, [&](const Node& ace, std::string_view name) {
      if (name == "ace") ReadAce(ace, &acl, &names);
      return name == "ace";
    });
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
      if (!IsIdentity(node, kAccessControlList, type.identity)) continue;
      acl->kind = type.kind;
      return;
    }
    acl->problems.push_back({acl->path + "/type", "a list of the type " + node.value, true});
  }

  void ReadAce(const Node& node, Acl* acl, std::unordered_set<std::string_view>* names) {
    Ace& ace = acl->aces.emplace_back();
    const std::string& key = ValueIn(node, NameInRfc8519, "name");
    ace.name = key;
    ace.path = EntryPath(acl->path + "/aces", "ace", "name", ace.name);
    if (!names->insert(key).second) {
      ace.problems.push_back({ace.path, "a second entry of that name", true, true});
    }
    Reading reading{AceBuilder(&ace, most_), sets_, NameInRfc8519, &lists_->notes};
    bool handled = false;
    Each(node, ace.path, &ace.problems, [&](const Node& child, std::string_view name) {
      if (name == "matches") {
        ReadRfc8519Matches(child, ace.path + "/matches", acl->kind, &reading);
      } else if (name == "actions") {
        handled = ReadActions(child, &ace, &reading);
      } else if (name == "own:description") {
        ace.description = child.value;
      } else if (name == "own:ace-priority") {
        ace.ace_priority = OwnNumber(child, ace.path, &ace.problems);
      } else if (name == "own:end-of-profile") {
        ace.is_end = true;
      } else {
        return name == "name" || name == "statistics";
      }
      return true;
    });
    if (!handled) reading.builder.Refuse(ace.path + "/actions", "there is no forwarding action");
    if (acl->kind == Kind::kIpv4 && !AskForIpv4(ace.conditions)) {
      reading.builder.And(kDestinationIpv4, {{0, 0}});
    }
    count_.Add(&ace);
  }

  // Whether there is a forwarding action.
  bool ReadActions(const Node& actions, Ace* ace, Reading* reading) {
    const std::string place = ace->path + "/actions";
    bool own_no_action = false;
    Each(actions, place, &ace->problems, [&](const Node& node, std::string_view name) {
      const std::string& value = node.value;
      const auto refuse = [&](const std::string& meaning, bool is_condition) {
        reading->builder.Refuse(PathOf(place, node), meaning, is_condition);
      };
      if (name == "forwarding") {
        TakeForwarding(node, PathOf(place, node), ace, reading);
      } else if (name == "logging") {
        if (!IsIdentity(node, kAccessControlList, "log-none")) {
          refuse("a log of the packets", false);
        }
      } else if (name == "own:set-pcp") {
        const std::optional<uint32_t> pcp = NumberOf(value, 7);
        if (pcp) ace->set_pcp = static_cast<uint8_t>(*pcp);
        if (!pcp) refuse("\"" + value + "\" is no PCP", false);
      } else if (name == "log-action" || name == "counter-action") {
        if (!node.children.empty()) refuse("logs and named counters of the packets", false);
      } else if (name == "rate-limit") {
        refuse("that no more than " + value + " bytes a second pass", true);
      } else if (name == "own:no-action") {
        own_no_action = true;
      } else {
        return false;
      }
      return true;
    });
    const bool handled = ace->handling != Handling::kNone;
    if (own_no_action && ace->handling == Handling::kDeny) {
      reading->builder.Refuse(place + "/no-action", "no action, beside one that drops", false);
    } else if (own_no_action) {
      ace->handling = Handling::kNone;
    }
    return handled;
  }

  static void TakeForwarding(const Node& node, const std::string& path, Ace* ace,
                             Reading* reading) {
    const auto is = [&node](const char* name) {
      return IsIdentity(node, kAccessControlList, name);
    };
    if (is("accept")) {
      ace->handling = Handling::kPermit;
    } else if (is("drop") || is("reject")) {
      ace->handling = Handling::kDeny;
      if (is("drop")) return;
      reading->builder.Refuse(path, "an ICMP error to the sender of what is dropped", false);
    } else {
      reading->builder.Refuse(path, "the action " + node.value);
    }
  }

  void ReadAttachments(const Node& points) {
    const std::string place = "/acls/attachment-points";
    Each(points, place, &lists_->problems, [&](const Node& node, std::string_view name) {
      if (name == "interface") ReadInterface(node, place);
      return name == "interface";
    });
  }

  void ReadInterface(const Node& node, const std::string& place) {
    Attachment attachment;
    attachment.interface = ValueIn(node, NameInRfc8519, "interface-id");
    const std::string path = EntryPath(place, "interface", "interface-id", attachment.interface);
    attachment.path = path + "/ingress";
    Each(node, path, &lists_->problems, [&](const Node& child, std::string_view name) {
      if (name == "ingress") {
        EachSet(child, attachment.path, [&](const std::string& acl, std::string set) {
          attachment.acls.push_back(acl);
          attachment.paths.push_back(std::move(set));
        });
      } else if (name == "egress") {
        EachSet(child, path + "/egress", [&](const std::string& /*acl*/, std::string set) {
          lists_->problems.push_back(
              {std::move(set), "a list for frames that leave " + attachment.interface, true});
        });
      } else {
        return name == "interface-id";
      }
      return true;
    });
    lists_->attachments.push_back(std::move(attachment));
  }

  // The lists of one direction: their names and paths.
  template <class Take>
  void EachSet(const Node& direction, const std::string& place, const Take& take) {
    const std::string sets = place + "/acl-sets";
    std::vector<Problem>* problems = &lists_->problems;
    Each(direction, place, problems, [&](const Node& node, std::string_view name) {
      if (name != "acl-sets") return false;
      Each(node, sets, problems, [&](const Node& set, std::string_view list) {
        if (list != "acl-set") return false;
        const std::string& acl = ValueIn(set, NameInRfc8519, "name");
        const std::string path = EntryPath(sets, "acl-set", "name", acl);
        const size_t before = problems->size();
        Each(set, path, problems, [](const Node& /*leaf*/, std::string_view leaf_name) {
          return leaf_name == "name" || leaf_name == "ace-statistics";
        });
        // What is in doubt is bound nowhere.
        if (!AnyWhole(*problems, before)) take(acl, path);
        return true;
      });
      return true;
    });
  }

  const size_t most_;
  AccessLists* lists_;
  DefinedSets sets_;
  std::unordered_set<std::string> names_;  // of lists
  ValueCount count_;
};

}  // namespace

std::string ReadRfc8519(const Document& document, size_t most_alternatives, AccessLists* lists) {
  bool found = false;
  std::string wrong;
  for (const Node& node : document.root.children) {
    if (node.name == "acls" && node.module == kAccessControlList.name) {
      found = true;
      const bool may = MayTake(document.root, node, "", NameInRfc8519, &lists->problems);
      if (may && wrong.empty()) wrong = Rfc8519Reader(most_alternatives, lists).Read(node);
    } else {
      TellOtherModel(node, lists);
    }
  }
  if (!found) return std::string("it has no ") + kAccessControlList.name + ":acls";
  return wrong;
}

}  // namespace host::standard
