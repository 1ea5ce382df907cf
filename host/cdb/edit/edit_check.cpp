// What can be wrong with an edit by itself.
#include <cstring>
#include <utility>
#include <vector>

#include "host/cdb/edit/edit.h"
#include "host/cdb/edit/edit_node.h"
#include "host/cdb/schema/schema.h"

namespace host {
namespace {

constexpr uint16_t kDataNodes = LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST;

DatastoreError Fault(const char* tag, const lyd_node* node, std::string message) {
  DatastoreError error;
  error.tag = tag;
  error.path = EditPath(node);
  error.message = std::move(message);
  error.bad_element = LYD_NAME(node);
  return error;
}

// A sibling that was looked at, and whether it puts something into the configuration.
struct Given {
  const lysc_node* schema;
  bool gives;
};

class EditChecker {
 public:
  explicit EditChecker(const ly_ctx* context) : context_(context) {}

  DatastoreErrors Take() { return std::move(errors_); }

  void CheckSiblings(const lyd_node* first, const lysc_node* parent, Operation inherited) {
    std::vector<Given> others;
    for (const lyd_node* node = first; node != nullptr && errors_.size() <= kMaxErrors;
         node = node->next) {
      const lysc_node* schema = CheckNode(node, parent, inherited);
      if (schema == nullptr) continue;
      const bool several = (schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0;
      const bool in_case = schema->parent != nullptr && schema->parent->nodetype == LYS_CASE;
      if (several && !in_case) continue;
      const bool gives = Gives(node, OperationOf(node, inherited));
      if (in_case && gives) CheckChoice(node, schema, others);
      if (!several) CheckOnce(node, schema, others);
      if (others.empty() || others.back().schema != schema) others.push_back({schema, gives});
    }
  }

 private:
  // The node's schema when its siblings can be compared with it, null after a fault.
  const lysc_node* CheckNode(const lyd_node* node, const lysc_node* parent, Operation inherited) {
    const lysc_node* schema = EditSchema(context_, node, parent);
    if (schema == nullptr || (schema->nodetype & kDataNodes) == 0) {
      AddUnknown(node, parent);
      return nullptr;
    }
    const Operation operation = OperationOf(node, inherited);
    if ((schema->flags & LYS_CONFIG_R) != 0) {
      Add("unknown-element", node, "is state and cannot be configured");
      return nullptr;
    }
    if (node->schema == nullptr) return CheckOpaque(node, schema, operation) ? schema : nullptr;
    if (lysc_is_key(schema)) {
      if (OwnOperation(node).has_value() && Removes(operation))
        Add("bad-attribute", node, "is a key and can only be deleted with its entry");
      return schema;
    }
    if ((schema->nodetype & LYD_NODE_INNER) != 0) {
      CheckSiblings(lyd_child(node), schema, operation);
    }
    return schema;
  }

  // True for the one legal case: a leaf that goes, without a value.
  bool CheckOpaque(const lyd_node* node, const lysc_node* schema, Operation operation) {
    const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(node);
    const std::string value = opaque->value != nullptr ? opaque->value : "";
    if ((schema->nodetype & LYD_NODE_TERM) != 0) {
      if (schema->nodetype == LYS_LEAF && Removes(operation) && value.empty()) return true;
      const std::string why = WhyNotValue(schema, value);
      Add("invalid-value", node, why.empty() ? "has elements within" : why);
      return false;
    }
    if (schema->nodetype == LYS_LIST) {
      CheckKeys(node, schema);
    } else {
      Add("bad-element", node, "cannot have a value of its own");
    }
    return false;
  }

  // Says which key of an entry is missing or bad.
  void CheckKeys(const lyd_node* entry, const lysc_node* schema) {
    bool found = false;
    for (const lysc_node* key = lysc_node_child(schema); key != nullptr && lysc_is_key(key);
         key = key->next) {
      const lyd_node* given = nullptr;
      const lyd_node* child;
      LY_LIST_FOR(lyd_child(entry), child) {
        if (strcmp(LYD_NAME(child), key->name) == 0) given = child;
      }
      if (given == nullptr) {
        DatastoreError error = Fault("missing-element", entry, "");
        error.message = std::string("an entry of ") + schema->name + " needs its key " + key->name;
        error.bad_element = key->name;
        errors_.push_back(std::move(error));
        found = true;
        continue;
      }
      const char* value = TextOf(given);
      const std::string why = WhyNotValue(key, value != nullptr ? value : "");
      if (why.empty()) continue;
      Add("invalid-value", given, why);
      found = true;
    }
    if (!found) Add("bad-element", entry, "is not well formed");
  }

  // Whether the node puts something into the configuration that excludes other cases.
  static bool Gives(const lyd_node* node, Operation operation) {
    if (Removes(operation)) return false;
    if (node->schema == nullptr || !IsPlainContainer(node->schema)) return true;
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) {
      if (Gives(child, OperationOf(child, operation))) return true;
    }
    return false;
  }

  void CheckOnce(const lyd_node* node, const lysc_node* schema, const std::vector<Given>& others) {
    for (const Given& other : others) {
      if (other.schema == schema) return Add("bad-element", node, "is given twice");
    }
  }

  void CheckChoice(const lyd_node* node, const lysc_node* schema,
                   const std::vector<Given>& others) {
    const lysc_node* own_case = schema->parent;
    for (const Given& other : others) {
      const lysc_node* other_case = other.schema->parent;
      if (!other.gives || other_case == own_case || other_case->parent != own_case->parent)
        continue;
      return Add("bad-element", node,
                 std::string("excludes ") + other.schema->name + ", give one of them");
    }
  }

  void AddUnknown(const lyd_node* node, const lysc_node* parent) {
    const auto* opaque = reinterpret_cast<const lyd_node_opaq*>(node);
    const char* ns = node->schema == nullptr ? opaque->name.module_ns : nullptr;
    const bool xml = node->schema == nullptr && opaque->format == LY_VALUE_XML;
    const bool known =
        ns != nullptr && (xml ? ly_ctx_get_module_implemented_ns(context_, ns)
                              : ly_ctx_get_module_implemented(context_, ns)) != nullptr;
    if (node->schema == nullptr && !known) {
      DatastoreError error = Fault("unknown-namespace", node, "");
      const bool none = ns == nullptr || strcmp(ns, kNoNamespace) == 0;
      error.bad_namespace = none ? "" : ns;
      error.message = error.bad_element +
                      (none ? " has no namespace"
                            : " is in the unknown namespace \"" + error.bad_namespace + "\"");
      errors_.push_back(std::move(error));
      return;
    }
    Add("unknown-element", node,
        parent != nullptr ? std::string("is no element of ") + parent->name
                          : "is no part of the configuration");
  }

  // `message` goes on after the node's name, unless it names the node itself.
  void Add(const char* tag, const lyd_node* node, const std::string& message) {
    const bool complete = message.find("invalid value") == 0;
    errors_.push_back(
        Fault(tag, node, complete ? message : std::string(LYD_NAME(node)) + " " + message));
  }

  const ly_ctx* context_;
  DatastoreErrors errors_;
};

}  // namespace

DatastoreErrors CheckEdit(const ly_ctx* context, const lyd_node* edit) {
  EditChecker checker(context);
  checker.CheckSiblings(edit, nullptr, Operation::kMerge);
  return checker.Take();
}

}  // namespace host
