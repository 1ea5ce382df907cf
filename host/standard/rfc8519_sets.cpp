// Sets of RFC 9899 that entries name: see rfc8519_parts.h.
#include <utility>

#include "host/standard/names.h"
#include "host/standard/rfc8519_parts.h"

namespace host::standard {
namespace {

// Goes through a set. `take` gets each member, which is called `member`.
template <class Take>
void EachMember(const Node& set, const std::string& place, std::string_view member,
                SetReading* reading, const Take& take) {
  ForEach(set, place, reading->name_of, &reading->problems, reading->notes,
          [&](const Node& node, std::string_view name) {
            if (name == "description") reading->NoteText(place, node);
            if (name == member) take(node);
            return name == "name" || name == "description" || name == member;
          });
}

std::vector<Value> Prefixes(const Node& set, const std::string& place, SetReading* reading) {
  std::vector<Value> prefixes;
  EachMember(set, place, "prefix", reading,
             [&](const Node& node) { TakeSetPrefix(node, place, reading, &prefixes); });
  reading->RequireValues(place, !prefixes.empty());
  return Distinct(std::move(prefixes));
}

Ranges Ports(const Node& set, const std::string& place, SetReading* reading) {
  Ranges all;
  EachMember(set, place, "port", reading, [&](const Node& port) {
    const std::string path = EntryPath(place, "port", "id", ValueIn(port, NameInRfc8519, "id"));
    std::optional<Ranges> ranges;
    const auto each = [&](const Node& node, const std::string& where, const auto& take) {
      ForEach(node, where, reading->name_of, &reading->problems, reading->notes, take);
    };
    each(port, path, [&](const Node& node, std::string_view name) {
      if (name != "port-range-or-operator") return name == "id";
      each(node, PathOf(path, node), [](const Node& /*leaf*/, std::string_view leaf) {
        return leaf == "lower-port" || leaf == "upper-port" || leaf == "operator" || leaf == "port";
      });
      ranges = PortsOfRfc8519(node);
      return true;
    });
    if (ranges) {
      all.insert(all.end(), ranges->begin(), ranges->end());
    } else {
      reading->problems.push_back({path, "ports that are not given as they should be", true});
    }
  });
  reading->RequireValues(place, !all.empty());
  return Union(std::move(all));
}

std::vector<Value> Protocols(const Node& set, const std::string& place, SetReading* reading) {
  std::vector<Value> protocols;
  EachMember(set, place, "protocol", reading, [&](const Node& node) {
    std::optional<uint32_t> protocol = NumberOf(node.value, 255);
    if (!protocol) protocol = ProtocolNamed(node.value);
    if (!protocol) return reading->RefuseValue(place, node);
    protocols.push_back({*protocol, FullMask(kIpProtocol)});
  });
  reading->RequireValues(place, !protocols.empty());
  return Distinct(std::move(protocols));
}

}  // namespace

std::optional<Ranges> PortsOfRfc8519(const Node& node) {
  const auto find = [&node](std::string_view name) { return ChildOf(node, NameInRfc8519, name); };
  const Node *lower = find("lower-port"), *upper = find("upper-port");
  const Node *op = find("operator"), *port = find("port");
  if (lower != nullptr || upper != nullptr) {
    // A range, or an operator with a port: they are a choice.
    if (lower == nullptr || upper == nullptr || op != nullptr || port != nullptr) {
      return std::nullopt;
    }
    const std::optional<uint32_t> low = NumberOf(lower->value, kMostPort);
    const std::optional<uint32_t> high = NumberOf(upper->value, kMostPort);
    if (!low || !high || *low > *high) return std::nullopt;
    return Ranges{{*low, *high}};
  }
  const std::optional<uint32_t> number =
      port == nullptr ? std::nullopt : NumberOf(port->value, kMostPort);
  if (!number) return std::nullopt;
  return RangesOf(op == nullptr ? "eq" : std::string_view(op->value), *number, kMostPort);
}

DefinedSets ReadRfc9899Sets(const Node& sets, const std::string& path, AccessLists* lists) {
  DefinedSets defined;
  ForEach(sets, path, NameInRfc8519, &lists->problems, &lists->notes,
          [&](const Node& node, std::string_view name) {
            const std::string place = PathOf(path, node);
            const auto read = [&](std::string_view list, const auto& take, auto* all) {
              ReadSets(node, place, list, NameInRfc8519, take, lists, all);
            };
            if (name == "ipv4-prefix-sets") {
              read("prefix-set", Prefixes, &defined.prefixes);
            } else if (name == "port-sets") {
              read("port-set", Ports, &defined.ports);
            } else if (name == "protocol-sets") {
              read("protocol-set", Protocols, &defined.protocols);
            } else if (name == "ipv6-prefix-sets" || name == "icmp-type-sets") {
              lists->notes.push_back({place, "sets that have nothing like them here",
                                      "left out: entries that name them are refused"});
            } else {
              return false;
            }
            return true;
          });
  return defined;
}

}  // namespace host::standard
