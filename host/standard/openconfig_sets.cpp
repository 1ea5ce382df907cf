// Sets that entries name: see openconfig_parts.h.
#include <algorithm>
#include <utility>

#include "host/standard/openconfig_parts.h"

namespace host::standard {
namespace {

// Whether there is nothing in a set but what is known of sets.
bool IsKnown(const Node& set, std::initializer_list<std::string_view> leaves) {
  return std::all_of(set.children.begin(), set.children.end(), [&](const Node& leaf) {
    return leaf.module == kOpenConfigSets.name && leaf.form != Node::Form::kAnnotation &&
           (leaf.name == "name" || leaf.name == "description" ||
            std::find(leaves.begin(), leaves.end(), leaf.name) != leaves.end());
  });
}

// The addresses of the set, less those that it excludes.
std::optional<std::vector<Value>> PrefixSet(const Node& set) {
  if (!IsKnown(set, {"prefix", "exclude-prefix"})) return std::nullopt;
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

std::optional<Ranges> PortSet(const Node& set) {
  if (!IsKnown(set, {"port", "exclude-port"})) return std::nullopt;
  Ranges ports, excluded;
  for (const Node& node : set.children) {
    if (node.name != "exclude-port" && node.name != "port") continue;
    const std::optional<Range> range = PortsOfOpenConfig(node.value);
    if (!range) return std::nullopt;
    (node.name == "port" ? ports : excluded).push_back(*range);
  }
  return Difference(Union(std::move(ports)), Union(std::move(excluded)));
}

template <class Set>
void ReadSets(const Node& container, const std::string& path, std::string_view list,
              std::optional<Set> (*read)(const Node&), std::vector<Note>* notes,
              std::map<std::string, std::optional<Set>>* sets) {
  for (const Node& node : container.children) {
    const std::string& name = node.ValueOf("name");
    const Node* config = node.Find("config");
    std::optional<Set>& set = (*sets)[name];
    if (config != nullptr) set = read(*config);
    if (set) continue;
    notes->push_back({EntryPath(path, list, "name", name),
                      "a set with something that is not known here",
                      "no set: entries that name it cannot be kept"});
  }
}

}  // namespace

void ReadOpenConfigSets(const Node& sets, DefinedSets* defined, std::vector<Note>* notes) {
  const std::string path = "/defined-sets";
  for (const Node& node : sets.children) {
    const std::string place = PathOf(path, node);
    const bool ours = node.module == kOpenConfigSets.name;
    if (ours && node.name == "ipv4-prefix-sets") {
      ReadSets(node, place, "ipv4-prefix-set", PrefixSet, notes, &defined->prefixes);
    } else if (ours && node.name == "port-sets") {
      ReadSets(node, place, "port-set", PortSet, notes, &defined->ports);
    } else {
      notes->push_back({place, "sets that are not known here",
                        "left out: entries that name them cannot be kept"});
    }
  }
}

}  // namespace host::standard
