// Subtree filters: see subtree_filter.h.
#include "host/netconf/reply/filter/subtree_filter.h"

#include <cstring>

#include "host/xml/generic_xml.h"

namespace host {

std::string SubtreeFilter::Canonical(const ly_ctx* context, const lysc_node* schema,
                                     const std::string& text) {
  const char* canonical = nullptr;
  if (schema == nullptr || (schema->nodetype & LYD_NODE_TERM) == 0 ||
      lyd_value_validate(context, schema, text.data(), text.size(), nullptr, nullptr, &canonical) !=
          LY_SUCCESS) {
    ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
    return text;
  }
  std::string result = canonical;
  lydict_remove(context, canonical);
  return result;
}

SubtreeFilter::SubtreeFilter(const lyd_node* filter, const ly_ctx* context)
    : nodes_(Compile(filter, nullptr, context)) {}

std::vector<SubtreeFilter::Node> SubtreeFilter::Compile(const lyd_node* element,
                                                        const lysc_node* schema,
                                                        const ly_ctx* context) {
  std::vector<Node> nodes;
  for (const lyd_node* child = lyd_child(element); child != nullptr; child = child->next) {
    Node node;
    node.name = XmlName(child);
    node.name_space = XmlNamespace(child);
    node.any_namespace = node.name_space.empty();
    node.never = AsOpaque(child)->attr != nullptr;
    const lys_module* module =
        node.any_namespace ? (schema != nullptr ? schema->module : nullptr)
                           : ly_ctx_get_module_implemented_ns(context, node.name_space.c_str());
    const lysc_node* found =
        module == nullptr || (schema == nullptr && XmlName(element) != "filter")
            ? nullptr
            : lys_find_child(schema, module, node.name.c_str(), 0, 0, 0);
    node.children = Compile(child, found, context);
    if (node.children.empty()) {
      node.content = XmlText(child);
      if (!node.content.empty()) node.content = Canonical(context, found, node.content);
    }
    nodes.push_back(std::move(node));
  }
  return nodes;
}

bool SubtreeFilter::MatchesName(const Node& node, const lys_module* module, const char* name) {
  return !node.never && node.name == name && (node.any_namespace || node.name_space == module->ns);
}

bool SubtreeFilter::MaySelect(const lys_module* module, const char* name) const {
  for (const Node& node : nodes_) {
    if (MatchesName(node, module, name)) return true;
  }
  return false;
}

// True when a child of `parent` has the name and, where it has one, the value of the node.
bool SubtreeFilter::MatchesContent(const Node& node, const lyd_node* parent) {
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    // Keys come first, so a list entry is mostly decided after a look at one or two children.
    if (!MatchesName(node, child->schema->module, child->schema->name)) continue;
    if (node.content.empty()) return HoldsSomething(child);
    if ((child->schema->nodetype & LYD_NODE_TERM) != 0 && node.content == lyd_get_value(child)) {
      return true;
    }
  }
  return false;
}

// True when `node` selects `data`: wholly, or what the nodes that are added to `below` select.
bool SubtreeFilter::Wants(const Node& node, const lyd_node* data, bool* whole, NodeRefs* below) {
  if (!MatchesName(node, data->schema->module, data->schema->name)) return false;
  if (node.children.empty()) {
    if (node.content.empty() ||
        ((data->schema->nodetype & LYD_NODE_TERM) != 0 && node.content == lyd_get_value(data))) {
      return *whole = true;
    }
    return false;
  }
  if ((data->schema->nodetype & LYD_NODE_INNER) == 0) return false;
  bool only_content = true;
  for (const Node& child : node.children) {
    if (!child.IsTest()) {
      only_content = false;
    } else if (!MatchesContent(child, data)) {
      return false;
    }
  }
  if (only_content) return *whole = true;
  for (const Node& child : node.children) {
    if (!child.only_tests) below->push_back(&child);
  }
  return true;
}

bool SubtreeFilter::Enter(const NodeRefs& nodes, const lyd_node* data, bool* whole,
                          NodeRefs* below) {
  bool wanted = false;
  for (const Node* node : nodes) {
    wanted |= Wants(*node, data, whole, below);
    if (*whole) return true;
  }
  return wanted;
}

bool SubtreeFilter::AsksForKey(const NodeRefs& below, const lyd_node* data) {
  for (const lyd_node* key = lyd_child(data); key != nullptr && IsKey(key); key = key->next) {
    for (const Node* node : below) {
      if (node->children.empty() && MatchesName(*node, key->schema->module, key->schema->name)) {
        return true;
      }
    }
  }
  return false;
}

Tree SubtreeFilter::Select(const NodeRefs& nodes, const lyd_node* data, bool* whole) {
  NodeRefs below;
  if (!Enter(nodes, data, whole, &below) || *whole) return nullptr;
  lyd_node* copy = nullptr;
  if (lyd_dup_single(data, nullptr, LYD_DUP_NO_META | LYD_DUP_WITH_FLAGS, &copy) != LY_SUCCESS) {
    return nullptr;
  }
  Tree owner(copy);
  // lyd_dup_single() copies a list entry with its keys.
  SelectBelow(below, data, copy);
  if (lyd_child_no_keys(copy) == nullptr && !AsksForKey(below, data)) return nullptr;
  return owner;
}

void SubtreeFilter::SelectBelow(const NodeRefs& nodes, const lyd_node* data, lyd_node* copy) {
  for (const lyd_node* child = lyd_child_no_keys(data); child != nullptr; child = child->next) {
    bool whole = false;
    Tree part = Select(nodes, child, &whole);
    if (whole) {
      lyd_node* all = nullptr;
      if (lyd_dup_single(child, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_NO_META | LYD_DUP_WITH_FLAGS,
                         &all) == LY_SUCCESS) {
        part.reset(all);
      }
    }
    if (part != nullptr) lyd_insert_child(copy, part.release());
  }
}

SubtreeFilter::NodeRefs SubtreeFilter::Top() const {
  NodeRefs nodes;
  for (const Node& node : nodes_) nodes.push_back(&node);
  return nodes;
}

}  // namespace host
