// Sets that entries name: see openconfig_parts.h.
#include <utility>

#include "host/standard/openconfig_parts.h"

namespace host::standard {
namespace {

std::string_view NameInSets(const Node& node) {
  const bool known = node.module == kOpenConfigSets.name && node.form != Node::Form::kAnnotation;
  return known ? node.name : std::string_view();
}

// Goes through a set. `take` gets each member with its name and path, and returns whether it knows
// it.
template <class Take>
void EachMember(const Node& set, const std::string& place, SetReading* reading, const Take& take) {
  const auto each = [&](const Node& node, const std::string& where, const auto& take_child) {
    ForEach(node, where, NameInSets, &reading->problems, reading->notes, take_child);
  };
  each(set, place, [&](const Node& config, std::string_view container) {
    if (container != "config") return container == "name" || container == "state";
    const std::string path = place + "/config";
    if (ValueIn(config, NameInSets, "name") != ValueIn(set, NameInSets, "name") &&
        ChildOf(config, NameInSets, "name") != nullptr) {
      reading->problems.push_back({path + "/name", "another name than that of the set", true});
    }
    each(config, path, [&](const Node& leaf, std::string_view name) {
      if (name == "description") reading->NoteText(path, leaf);
      return name == "name" || name == "description" || take(leaf, name, path);
    });
    return true;
  });
}

Ranges RangesOf(const std::vector<Value>& prefixes) {
  Ranges all;
  for (const Value& value : prefixes) {
    const uint64_t low = value.value & value.mask;
    all.push_back({low, low | (~value.mask & 0xffffffff)});
  }
  return Union(std::move(all));
}

// The addresses of the set, less those that it excludes; they may be none.
std::vector<Value> PrefixSet(const Node& set, const std::string& place, SetReading* reading) {
  std::vector<Value> prefixes, excluded;
  EachMember(set, place, reading,
             [&](const Node& node, std::string_view name, const std::string& path) {
               const bool out = name == "exclude-prefix";
               if (!out && name != "prefix") return false;
               TakeSetPrefix(node, path, reading, out ? &excluded : &prefixes);
               return true;
             });
  reading->RequireValues(place, !prefixes.empty());
  if (excluded.empty()) return Distinct(std::move(prefixes));
  return PrefixesOf(Difference(RangesOf(prefixes), RangesOf(excluded)));
}

Ranges PortSet(const Node& set, const std::string& place, SetReading* reading) {
  Ranges ports, excluded;
  EachMember(set, place, reading,
             [&](const Node& node, std::string_view name, const std::string& path) {
               const bool out = name == "exclude-port";
               if (!out && name != "port") return false;
               const std::optional<Range> range = PortsOfOpenConfig(node.value);
               if (!range) {
                 reading->RefuseValue(path, node);
               } else {
                 (out ? excluded : ports).push_back(*range);
               }
               return true;
             });
  reading->RequireValues(place, !ports.empty());
  return Difference(Union(std::move(ports)), Union(std::move(excluded)));
}

}  // namespace

void ReadOpenConfigSets(const Node& sets, DefinedSets* defined, AccessLists* lists) {
  const std::string path = "/defined-sets";
  ForEach(sets, path, NameInSets, &lists->problems, &lists->notes,
          [&](const Node& node, std::string_view name) {
            const std::string place = PathOf(path, node);
            if (name == "ipv4-prefix-sets") {
              ReadSets(node, place, "ipv4-prefix-set", NameInSets, PrefixSet, lists,
                       &defined->prefixes);
            } else if (name == "port-sets") {
              ReadSets(node, place, "port-set", NameInSets, PortSet, lists, &defined->ports);
            } else if (name == "ipv6-prefix-sets") {
              lists->notes.push_back({place, "sets that have nothing like them here",
                                      "left out: entries that name them are refused"});
            } else {
              return name == "state";
            }
            return true;
          });
}

}  // namespace host::standard
