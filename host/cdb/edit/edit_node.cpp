// Reading of an edit's nodes.
#include "host/cdb/edit/edit_node.h"

#include <cstring>

namespace host {
namespace {

constexpr char kNetconfModule[] = "ietf-netconf";
constexpr char kNetconfNamespace[] = "urn:ietf:params:xml:ns:netconf:base:1.0";

struct OperationName {
  const char* name;
  Operation operation;
};
constexpr OperationName kOperations[] = {
    {"merge", Operation::kMerge},   {"replace", Operation::kReplace},
    {"create", Operation::kCreate}, {"delete", Operation::kDelete},
    {"remove", Operation::kRemove},
};

std::optional<Operation> ByName(const char* name) {
  for (const OperationName& known : kOperations) {
    if (strcmp(known.name, name) == 0) return known.operation;
  }
  return std::nullopt;
}

}  // namespace

std::optional<Operation> OwnOperation(const lyd_node* node) {
  if (node->schema == nullptr) {
    const lyd_attr* attribute = reinterpret_cast<const lyd_node_opaq*>(node)->attr;
    for (; attribute != nullptr; attribute = attribute->next) {
      const char* module = attribute->name.module_ns;
      if (strcmp(attribute->name.name, "operation") != 0 || module == nullptr) continue;
      if (strcmp(module, kNetconfNamespace) == 0 || strcmp(module, kNetconfModule) == 0)
        return ByName(attribute->value);
    }
    return std::nullopt;
  }
  for (const lyd_meta* meta = node->meta; meta != nullptr; meta = meta->next) {
    if (strcmp(meta->name, "operation") == 0 &&
        strcmp(meta->annotation->module->name, kNetconfModule) == 0)
      return ByName(lyd_get_meta_value(meta));
  }
  return std::nullopt;
}

const lysc_node* EditSchema(const ly_ctx* context, const lyd_node* node, const lysc_node* parent) {
  if (node->schema != nullptr) return node->schema;
  const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(node);
  const char* name = opaque->name.module_ns;
  if (name == nullptr) return nullptr;
  const lys_module* module = opaque->format == LY_VALUE_XML
                                 ? ly_ctx_get_module_implemented_ns(context, name)
                                 : ly_ctx_get_module_implemented(context, name);
  if (module == nullptr) return nullptr;
  return lys_find_child(parent, module, opaque->name.name, 0, 0, 0);
}

std::string EditPath(const lyd_node* node) {
  if (node->schema != nullptr) return PathOf(node);
  const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(node);
  const lyd_node* parent = lyd_parent(node);
  return (parent != nullptr ? EditPath(parent) : "") + "/" + opaque->name.name;
}

}  // namespace host
