// Building of the schema tree of the cdb_* calls.
#include "host/cdb/schema/cdb_schema.h"

#include <algorithm>
#include <cstring>

#include "host/cdb/schema/schema.h"
#include "yang_tags.h"

namespace host {
namespace {

// Derived types that are not delivered as text.
struct DerivedType {
  const char* name;
  ValueKind kind;
};
constexpr DerivedType kDerivedTypes[] = {
    {"mac-address", ValueKind::kMac},
    {"ipv4-address", ValueKind::kIpv4},
    {"ipv4-address-and-length", ValueKind::kIpv4Length},
};

uint32_t TagOf(const std::string& name) {
  const auto* found = std::lower_bound(
      std::begin(yang_tags::kAll), std::end(yang_tags::kAll), name,
      [](const yang_tags::NamedTag& tag, const std::string& key) { return tag.name < key; });
  return found != std::end(yang_tags::kAll) && found->name == name ? found->tag : 0;
}

// Name of the type as the module's text gives it to the leaf, without prefix. libyang keeps the
// parsed statement of every compiled node for this (LY_CTX_SET_PRIV_PARSED).
std::string TypeName(const lysc_node* leaf) {
  const auto* parsed = static_cast<const lysp_node*>(leaf->priv);
  if (parsed == nullptr) return "";
  const char* name = parsed->nodetype == LYS_LEAF
                         ? reinterpret_cast<const lysp_node_leaf*>(parsed)->type.name
                         : reinterpret_cast<const lysp_node_leaflist*>(parsed)->type.name;
  const char* colon = strchr(name, ':');
  return colon != nullptr ? colon + 1 : name;
}

// Collects what values of `type` can be into the node.
void AddType(const lysc_type* type, CdbNode* node) {
  LY_ARRAY_COUNT_TYPE i;
  switch (type->basetype) {
    case LY_TYPE_ENUM: {
      const auto* enumeration = reinterpret_cast<const lysc_type_enum*>(type);
      LY_ARRAY_FOR(enumeration->enums, i) {
        node->enums.emplace_back(enumeration->enums[i].name, enumeration->enums[i].value);
      }
      break;
    }
    case LY_TYPE_UNION: {
      const auto* any = reinterpret_cast<const lysc_type_union*>(type);
      LY_ARRAY_FOR(any->types, i) { AddType(any->types[i], node); }
      break;
    }
    case LY_TYPE_LEAFREF:
      AddType(reinterpret_cast<const lysc_type_leafref*>(type)->realtype, node);
      break;
    case LY_TYPE_EMPTY:
      node->kind = ValueKind::kEmpty;
      break;
    case LY_TYPE_INT32:
      node->kind = ValueKind::kInt32;
      break;
    case LY_TYPE_UINT8:
      node->kind = ValueKind::kUint8;
      break;
    case LY_TYPE_UINT16:
      node->kind = ValueKind::kUint16;
      break;
    case LY_TYPE_UINT32:
      node->kind = ValueKind::kUint32;
      break;
    case LY_TYPE_STRING:
      node->kind = ValueKind::kText;
      break;
    default:
      break;
  }
}

}  // namespace

const CdbNode* CdbNode::Child(std::string_view child_name) const {
  for (const auto& child : children) {
    if (child->name == child_name) return child.get();
  }
  return nullptr;
}

const CdbNode* CdbNode::ChildByTag(uint32_t child_tag) const {
  for (const auto& child : children) {
    if (child->tag == child_tag) return child.get();
  }
  return nullptr;
}

CdbSchema::CdbSchema(const ly_ctx* context) {
  const lys_module* module = ly_ctx_get_module_implemented(context, kAclModule);
  AddChildren(nullptr, module->compiled, &root_);
}

const CdbNode* CdbSchema::Find(const lysc_node* schema) const {
  const auto found = by_schema_.find(schema);
  return found != by_schema_.end() ? found->second : nullptr;
}

void CdbSchema::AddChildren(const lysc_node* schema, const lysc_module* module, CdbNode* parent) {
  constexpr uint16_t kDataNodes = LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST;
  const lysc_node* child = nullptr;
  while ((child = lys_getnext(child, schema, module, 0)) != nullptr) {
    if ((child->nodetype & kDataNodes) == 0) continue;
    auto node = std::make_unique<CdbNode>();
    node->schema = child;
    node->parent = parent;
    node->name = child->name;
    node->tag = TagOf(node->name);
    node->order = static_cast<int>(parent->children.size());
    if (lysc_is_key(child)) ++parent->key_count;
    if (node->is(LYD_NODE_TERM)) {
      AddType(reinterpret_cast<const lysc_node_leaf*>(child)->type, node.get());
      const std::string type = TypeName(child);
      for (const DerivedType& derived : kDerivedTypes) {
        if (type == derived.name) node->kind = derived.kind;
      }
    } else {
      AddChildren(child, nullptr, node.get());
    }
    by_schema_[child] = node.get();
    parent->children.push_back(std::move(node));
  }
}

}  // namespace host
