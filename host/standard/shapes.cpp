// Forms of statements: see shapes.h.
#include "host/standard/shapes.h"

#include <iterator>
#include <unordered_map>

namespace host::standard {
namespace {

enum class Shape : uint8_t { kLeaf, kEmptyLeaf, kLeafList, kContainer, kList, kState };

struct KnownShape {
  std::string_view name;
  Shape shape;
  std::string_view parent = "";  // where alone the name has this form
};

// What is not here is a leaf. Rows of one name stand together.
constexpr KnownShape kShapes[] = {
    {"acl", Shape::kList, "acls"},
    {"acl", Shape::kContainer},
    {"acl-entries", Shape::kContainer},
    {"acl-entry", Shape::kList},
    {"acl-set", Shape::kList},
    {"acl-sets", Shape::kContainer},
    {"acls", Shape::kContainer},
    {"ace", Shape::kList},
    {"ace-statistics", Shape::kState},
    {"aces", Shape::kContainer},
    {"actions", Shape::kContainer},
    {"aliases", Shape::kContainer},
    {"attachment-points", Shape::kContainer},
    {"config", Shape::kContainer},
    {"counter-action", Shape::kContainer},
    {"defined-sets", Shape::kContainer},
    {"destination-port", Shape::kContainer, "tcp"},
    {"destination-port", Shape::kContainer, "udp"},
    {"dscp-set", Shape::kLeafList},
    {"egress", Shape::kContainer},
    {"egress-acl-set", Shape::kList},
    {"egress-acl-sets", Shape::kContainer},
    {"end-of-profile", Shape::kEmptyLeaf},
    {"eth", Shape::kContainer},
    {"exclude-port", Shape::kLeafList},
    {"exclude-prefix", Shape::kLeafList},
    {"icmp", Shape::kContainer},
    {"icmp-type-sets", Shape::kContainer},
    {"ingress", Shape::kContainer},
    {"ingress-acl-set", Shape::kList},
    {"ingress-acl-sets", Shape::kContainer},
    {"input-interface", Shape::kContainer},
    {"interface", Shape::kList, "attachment-points"},
    {"interface", Shape::kList, "interfaces"},
    {"interface-ref", Shape::kContainer},
    {"interfaces", Shape::kContainer},
    {"ipv4", Shape::kContainer},
    {"ipv4-prefix-set", Shape::kList},
    {"ipv4-prefix-sets", Shape::kContainer},
    {"ipv6", Shape::kContainer},
    {"ipv6-prefix-sets", Shape::kContainer},
    {"l2", Shape::kContainer},
    {"log-action", Shape::kContainer, "actions"},
    {"matches", Shape::kContainer},
    {"mpls", Shape::kContainer},
    {"no-action", Shape::kEmptyLeaf},
    {"port", Shape::kList, "port-set"},
    {"port", Shape::kLeafList, "config"},
    {"port-range-or-operator", Shape::kContainer},
    {"port-set", Shape::kList},
    {"port-sets", Shape::kContainer},
    {"prefix", Shape::kLeafList},
    {"prefix-set", Shape::kList},
    {"protocol", Shape::kLeafList, "protocol-set"},
    {"protocol-set", Shape::kList, "protocol-sets"},
    {"protocol-sets", Shape::kContainer},
    {"state", Shape::kState},
    {"statistics", Shape::kState},
    {"tcp", Shape::kContainer},
    {"transport", Shape::kContainer},
    {"udp", Shape::kContainer},
    {"vlan", Shape::kLeafList, "vlan-filter"},
    {"vlan-filter", Shape::kContainer},
};

Shape ShapeOf(std::string_view parent, std::string_view name) {
  static const auto kIndex = [] {
    std::unordered_map<std::string_view, const KnownShape*> index;
    for (const KnownShape& row : kShapes) index.emplace(row.name, &row);
    return index;
  }();
  const auto first = kIndex.find(name);
  if (first == kIndex.end()) return Shape::kLeaf;
  for (const KnownShape* row = first->second; row != std::end(kShapes) && row->name == name;
       ++row) {
    if (row->parent.empty() || row->parent == parent) return row->shape;
  }
  return Shape::kLeaf;
}

}  // namespace

const char* FaultOf(const Node& parent, const Node& node) {
  using Form = Node::Form;
  if (node.form == Form::kAnnotation) return nullptr;
  const Shape shape = ShapeOf(parent.name, node.name);
  if (shape == Shape::kState) return nullptr;
  const bool many = shape == Shape::kLeafList || shape == Shape::kList;
  const bool inner = shape == Shape::kContainer || shape == Shape::kList;
  if (node.again && !many) return "a statement that stands there twice";
  if (node.form == Form::kNothing) return many ? nullptr : "an empty array";
  if (inner && node.form != Form::kContainer && node.form != Form::kEntry) {
    return "a value in place of statements";
  }
  if (!inner && !node.children.empty()) return "statements in place of a value";
  if (shape == Shape::kEmptyLeaf && !node.value.empty()) return "a value where none may be";
  return nullptr;
}

}  // namespace host::standard
