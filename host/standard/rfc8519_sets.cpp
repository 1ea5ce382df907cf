// Sets of RFC 9899 that entries name: see rfc8519_parts.h.
#include <utility>

#include "host/standard/names.h"
#include "host/standard/rfc8519_parts.h"

namespace host::standard {
namespace {

// Takes the members of a set: `take` gets each that is called `member`, and returns whether it is
// as it should be. False, too, for a set with anything else in it.
template <class Take>
bool TakeMembers(const Node& set, std::string_view member, const Take& take) {
  for (const Node& node : set.children) {
    const std::string_view name = NameInRfc8519(node);
    if (name == "name") continue;
    if (name != member || !take(node)) return false;
  }
  return true;
}

std::optional<std::vector<Value>> Prefixes(const Node& set) {
  std::vector<Value> prefixes;
  const bool right = TakeMembers(set, "prefix", [&](const Node& node) {
    const std::optional<Value> prefix = PrefixOf(node.value);
    if (prefix) prefixes.push_back(*prefix);
    return prefix.has_value();
  });
  return right ? std::optional(std::move(prefixes)) : std::nullopt;
}

std::optional<Ranges> Ports(const Node& set) {
  Ranges all;
  const bool right = TakeMembers(set, "port", [&](const Node& port) {
    const Node* inner = port.Find("port-range-or-operator");
    const std::optional<Ranges> ranges = PortsOfRfc8519(inner == nullptr ? port : *inner);
    if (ranges) all.insert(all.end(), ranges->begin(), ranges->end());
    return ranges.has_value();
  });
  return right ? std::optional(Union(std::move(all))) : std::nullopt;
}

std::optional<std::vector<Value>> Protocols(const Node& set) {
  std::vector<Value> protocols;
  const bool right = TakeMembers(set, "protocol", [&](const Node& node) {
    std::optional<uint32_t> protocol = NumberOf(node.value, 255);
    if (!protocol) protocol = ProtocolNamed(node.value);
    if (protocol) protocols.push_back({*protocol, FullMask(kIpProtocol)});
    return protocol.has_value();
  });
  return right ? std::optional(std::move(protocols)) : std::nullopt;
}

// Reads the sets of a container. Those that are not as they should be are told of, for entries that
// name them are refused, and nobody would see why.
template <class Set>
void ReadSets(const Node& container, const std::string& path, std::string_view list,
              std::optional<Set> (*read)(const Node&), std::vector<Note>* notes,
              std::map<std::string, std::optional<Set>>* sets) {
  for (const Node& node : container.children) {
    if (NameInRfc8519(node) != list) {
      notes->push_back({PathOf(path, node), "what is no set", "left out"});
      continue;
    }
    const std::string& name = node.ValueOf("name");
    std::optional<Set>& set = (*sets)[name] = read(node);
    if (set) continue;
    notes->push_back({EntryPath(path, list, "name", name),
                      "a set with something that is not known here",
                      "no set: entries that name it cannot be kept"});
  }
}

}  // namespace

std::optional<Ranges> PortsOfRfc8519(const Node& node) {
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

DefinedSets ReadRfc9899Sets(const Node& sets, const std::string& path, std::vector<Note>* notes) {
  DefinedSets defined;
  for (const Node& node : sets.children) {
    const std::string_view name = NameInRfc8519(node);
    const std::string place = PathOf(path, node);
    if (name == "ipv4-prefix-sets") {
      ReadSets(node, place, "prefix-set", Prefixes, notes, &defined.prefixes);
    } else if (name == "port-sets") {
      ReadSets(node, place, "port-set", Ports, notes, &defined.ports);
    } else if (name == "protocol-sets") {
      ReadSets(node, place, "protocol-set", Protocols, notes, &defined.protocols);
    } else {
      notes->push_back({place, "sets that are not known here",
                        "left out: entries that name them cannot be kept"});
    }
  }
  return defined;
}

}  // namespace host::standard
