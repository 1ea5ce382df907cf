// Counters in the standards' documents: see statistics.h.
#include "host/standard/statistics.h"

#include <unordered_map>
#include <utility>
#include <vector>

#include "host/standard/ace_builder.h"

namespace host::standard {
namespace {

using Form = Node::Form;

// Where the lists that are attached are in a document.
struct Shape {
  const char* interfaces[3];  // from the top on, the list of interfaces last
  const char* sets[3];        // from an interface on, the list of lists last; null: not needed
  void (*add)(const Ace& ace, const Hits& hits, Node* set);
};

void AddCounters(const Hits& hits, Node* node) {
  node->Add("matched-packets", Form::kText, std::to_string(hits.packets));
  node->Add("matched-octets", Form::kText, std::to_string(hits.bytes));
}

void AddToRfc8519(const Ace& ace, const Hits& hits, Node* set) {
  AddAceStatistics(ace.name, hits, set);
}

void AddToOpenConfig(const Ace& ace, const Hits& hits, Node* set) {
  const std::string number = std::to_string(ace.number.value_or(0));
  const bool first = set->Find("acl-entries") == nullptr;
  Node& entries = first ? set->Add("acl-entries") : set->children.back();
  Node& entry = entries.Add("acl-entry", Form::kEntry);
  entry.Add("sequence-id", Form::kNumber, number);
  Node& state = entry.Add("state");
  state.Add("sequence-id", Form::kNumber, number);
  AddCounters(hits, &state);
}

constexpr Shape kRfc8519Shape = {
    {"acls", "attachment-points", "interface"}, {"ingress", "acl-sets", "acl-set"}, AddToRfc8519};
constexpr Shape kOpenConfigShape = {{"acl", "interfaces", "interface"},
                                    {"ingress-acl-sets", "ingress-acl-set", nullptr},
                                    AddToOpenConfig};

// The nodes that the path leads to, in order.
std::vector<Node*> NodesAt(Node* node, const char* const (&path)[3]) {
  std::vector<Node*> nodes = {node};
  for (const char* name : path) {
    if (name == nullptr) break;
    std::vector<Node*> below;
    for (Node* above : nodes) {
      for (Node& child : above->children) {
        if (child.name == name) below.push_back(&child);
      }
    }
    nodes = std::move(below);
  }
  return nodes;
}

// The paths of profiles and entries, by which lists and entries say what they are made from.
std::string PathOf(const std::string& profile) {
  return EntryPath("/config/access-list/acl-profile/ingress", "access-list", "acl-name", profile);
}

std::string PathOf(const std::string& profile, uint16_t ace_priority) {
  return EntryPath(PathOf(profile), "access-list-entry", "ace-priority",
                   std::to_string(ace_priority));
}

class Adder {
 public:
  Adder(const AccessLists& lists, const HitsByOrigin& hits, const Shape& shape, Report* report)
      : hits_(hits), shape_(shape), report_(report) {
    for (const Acl& acl : lists.acls) {
      lists_[acl.name] = &acl;
      for (const Ace& ace : acl.aces) {
        const char* why = ace.widened ? "it is of the conditions that the entry had" : nullptr;
        const auto [place, is_new] = entries_.try_emplace(ace.path, Entry{&ace, why});
        if (!is_new) place->second.why_not = "nobody counts apart what became several entries";
      }
    }
    for (const auto& [binding, entries] : hits)
      profile_of_[PathOf(binding.second)] = binding.second;
  }

  // `set` is the list called `name` on the interface.
  void AddTo(Node* set, const std::string& interface, const std::string& name) {
    const auto list = lists_.find(name);
    if (list == lists_.end()) return;
    const auto profile = profile_of_.find(list->second->path);
    if (profile == profile_of_.end()) return;
    const auto counted = hits_.find({interface, profile->second});
    if (counted == hits_.end()) return;
    for (const EntryHits& entry : counted->second) {
      const auto found = entries_.find(PathOf(profile->second, entry.ace_priority));
      if (found == entries_.end()) continue;
      if (found->second.why_not == nullptr) {
        shape_.add(*found->second.ace, entry.hits, set);
      } else if (!std::exchange(found->second.told, true)) {
        report_->Add({found->first, "what it has hit", Outcome::kNoted,
                      std::string("left out: ") + found->second.why_not, false});
      }
    }
  }

 private:
  struct Entry {
    const Ace* ace;
    const char* why_not;  // its counter is not to be told; null: it is
    bool told = false;
  };

  const HitsByOrigin& hits_;
  const Shape& shape_;
  Report* const report_;
  std::unordered_map<std::string, const Acl*> lists_;        // by name
  std::unordered_map<std::string, Entry> entries_;           // by path
  std::unordered_map<std::string, std::string> profile_of_;  // a list, by path
};

}  // namespace

void AddAceStatistics(const std::string& ace, const Hits& hits, Node* acl_set) {
  Node& node = acl_set->Add("ace-statistics", Form::kEntry);
  node.Add("name", Form::kText, ace);
  AddCounters(hits, &node);
}

void AddStatistics(const AccessLists& lists, const HitsByOrigin& hits, Standard to,
                   Document* document, Report* report) {
  const Shape& shape = to == Standard::kOpenConfig ? kOpenConfigShape : kRfc8519Shape;
  // Which counters an element has, OpenConfig asks for.
  if (to == Standard::kOpenConfig) {
    document->root.children.front()
        .Add("state")
        .Add("counter-capability", Form::kIdentity, "INTERFACE_ONLY")
        .module_of_value = kOpenConfigAcl.name;
  }
  // Writers keep the order; what a list is called may be another thing in the document.
  Adder adder(lists, hits, shape, report);
  const std::vector<Node*> interfaces = NodesAt(&document->root, shape.interfaces);
  for (size_t i = 0; i < interfaces.size() && i < lists.attachments.size(); ++i) {
    const Attachment& attachment = lists.attachments[i];
    const std::vector<Node*> sets = NodesAt(interfaces[i], shape.sets);
    if (sets.size() != attachment.acls.size()) continue;
    for (size_t j = 0; j < sets.size(); ++j) {
      adder.AddTo(sets[j], attachment.interface, attachment.acls[j]);
    }
  }
}

}  // namespace host::standard
