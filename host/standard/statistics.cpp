// Counters in the standards' documents: see statistics.h.
#include "host/standard/statistics.h"

#include <map>
#include <unordered_map>
#include <utility>

#include "host/standard/ace_builder.h"

namespace host::standard {
namespace {

using Form = Node::Form;

// Where the lists of an interface are in a document.
struct Shape {
  const char* interfaces[3];  // from the top on, the list of interfaces last
  const char* id;             // key of an interface
  const char* sets[3];        // from an interface on, the list of lists last; null: not needed
  const char* name;           // key of a list
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

constexpr Shape kRfc8519Shape = {{"acls", "attachment-points", "interface"},
                                 "interface-id",
                                 {"ingress", "acl-sets", "acl-set"},
                                 "name",
                                 AddToRfc8519};
constexpr Shape kOpenConfigShape = {{"acl", "interfaces", "interface"},
                                    "id",
                                    {"ingress-acl-sets", "ingress-acl-set", nullptr},
                                    "set-name",
                                    AddToOpenConfig};

// Calls `visit` for all nodes that the path leads to.
template <class Visit>
void ForEach(Node* node, const char* const* path, size_t length, const Visit& visit) {
  if (length == 0 || *path == nullptr) return visit(node);
  for (Node& child : node->children) {
    if (child.name == *path) ForEach(&child, path + 1, length - 1, visit);
  }
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
  Adder(const AccessLists& lists, const HitsByOrigin& hits, const Shape& shape)
      : hits_(hits), shape_(shape) {
    for (const Acl& acl : lists.acls) {
      lists_[acl.name] = &acl;
      for (const Ace& ace : acl.aces) {
        const auto [place, is_new] = entries_.try_emplace(ace.path, &ace);
        if (!is_new) place->second = nullptr;
      }
    }
    for (const auto& [binding, entries] : hits)
      profile_of_[PathOf(binding.second)] = binding.second;
  }

  void AddTo(Node* interface, Node* set) const {
    const auto list = lists_.find(set->ValueOf(shape_.name));
    if (list == lists_.end()) return;
    const auto profile = profile_of_.find(list->second->path);
    if (profile == profile_of_.end()) return;
    const auto counted = hits_.find({interface->ValueOf(shape_.id), profile->second});
    if (counted == hits_.end()) return;
    for (const EntryHits& entry : counted->second) {
      const auto ace = entries_.find(PathOf(profile->second, entry.ace_priority));
      if (ace != entries_.end() && ace->second != nullptr) {
        shape_.add(*ace->second, entry.hits, set);
      }
    }
  }

 private:
  const HitsByOrigin& hits_;
  const Shape& shape_;
  std::map<std::string, const Acl*> lists_;                  // by name
  std::unordered_map<std::string, const Ace*> entries_;      // by path; null: there are several
  std::unordered_map<std::string, std::string> profile_of_;  // a list, by path
};

}  // namespace

void AddAceStatistics(const std::string& ace, const Hits& hits, Node* acl_set) {
  Node& node = acl_set->Add("ace-statistics", Form::kEntry);
  node.Add("name", Form::kText, ace);
  AddCounters(hits, &node);
}

void AddStatistics(const AccessLists& lists, const HitsByOrigin& hits, Standard to,
                   Document* document) {
  const Shape& shape = to == Standard::kOpenConfig ? kOpenConfigShape : kRfc8519Shape;
  const Adder adder(lists, hits, shape);
  ForEach(&document->root, shape.interfaces, std::size(shape.interfaces), [&](Node* interface) {
    ForEach(interface, shape.sets, std::size(shape.sets),
            [&](Node* set) { adder.AddTo(interface, set); });
  });
}

}  // namespace host::standard
