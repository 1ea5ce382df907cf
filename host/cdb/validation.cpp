// Validation of what an edit makes: see validation.h.
#include "host/cdb/validation.h"

#include <cstring>
#include <utility>
#include <vector>

namespace host {
namespace {

// Whether an XPath expression may look at nodes named `name`: by the name, or at any nodes.
bool MayLookAt(const lyxp_expr* expression, const char* name) {
  const char* text = lyxp_get_expr(expression);
  for (const char* sign : {name, "*", "//", "::", "node()"}) {
    if (std::strstr(text, sign) != nullptr) return true;
  }
  return false;
}

// Whether a value of the type must fit other data.
bool Refers(const lysc_type* type) {
  if (type->basetype == LY_TYPE_LEAFREF || type->basetype == LY_TYPE_INST) return true;
  if (type->basetype != LY_TYPE_UNION) return false;
  LY_ARRAY_COUNT_TYPE i;
  const auto* members = reinterpret_cast<const lysc_type_union*>(type);
  LY_ARRAY_FOR(members->types, i) {
    if (Refers(members->types[i])) return true;
  }
  return false;
}

// Whether the schema can call for or against a node of `schema`, its musts aside.
bool IsConstrained(const lysc_node* schema) {
  if (lysc_is_key(schema)) return Refers(reinterpret_cast<const lysc_node_leaf*>(schema)->type);
  constexpr uint16_t kKnown = LYS_CONTAINER | LYS_CHOICE | LYS_CASE | LYS_LEAF;
  if ((schema->nodetype & kKnown) == 0 || lysc_node_when(schema) != nullptr) return true;
  if ((schema->flags & (LYS_MAND_TRUE | LYS_SET_DFLT)) != 0) return true;
  if (schema->nodetype == LYS_CHOICE)
    return reinterpret_cast<const lysc_node_choice*>(schema)->dflt != nullptr;
  if (schema->nodetype != LYS_LEAF) return false;
  const auto* leaf = reinterpret_cast<const lysc_node_leaf*>(schema);
  return leaf->dflt != nullptr || Refers(leaf->type);
}

bool AnyBelowIsConstrained(const lysc_node* schema) {
  for (const lysc_node* child = lysc_node_child(schema); child != nullptr; child = child->next) {
    if (IsConstrained(child) || AnyBelowIsConstrained(child)) return true;
  }
  return false;
}

// Whether something from `first` on, `list` aside, has a constraint that may look at the list.
bool IsLookedAt(const lysc_node* first, const lysc_node* list) {
  for (const lysc_node* node = first; node != nullptr; node = node->next) {
    if (node == list || (node->flags & LYS_CONFIG_R) != 0) continue;
    LY_ARRAY_COUNT_TYPE i;
    const lysc_must* musts = lysc_node_musts(node);
    LY_ARRAY_FOR(musts, i) {
      if (MayLookAt(musts[i].cond, list->name)) return true;
    }
    lysc_when* const* whens = lysc_node_when(node);
    LY_ARRAY_FOR(whens, i) {
      if (MayLookAt(whens[i]->cond, list->name)) return true;
    }
    if ((node->nodetype & (LYS_LEAF | LYS_LEAFLIST)) != 0) {
      const lysc_type* type = reinterpret_cast<const lysc_node_leaf*>(node)->type;
      const auto* reference = reinterpret_cast<const lysc_type_leafref*>(type);
      if (type->basetype != LY_TYPE_LEAFREF ? Refers(type) : MayLookAt(reference->path, list->name))
        return true;
    }
    if (IsLookedAt(lysc_node_child(node), list)) return true;
  }
  return false;
}

}  // namespace

bool EditValidator::IsUnconstrained(const lysc_node* list) {
  const auto [found, is_new] = unconstrained_.try_emplace(list, false);
  if (!is_new) return found->second;
  const auto* as_list = reinterpret_cast<const lysc_node_list*>(list);
  const bool bounded = as_list->min != 0 || as_list->max != UINT32_MAX;
  if (bounded || as_list->uniques != nullptr || lysc_node_musts(list) != nullptr) return false;
  // What a choice or a condition further up removes would take the entries' place with it.
  for (const lysc_node* node = list; node != nullptr; node = node->parent) {
    if (lysc_node_when(node) != nullptr || node->nodetype == LYS_CASE) return false;
  }
  if (AnyBelowIsConstrained(list)) return false;
  uint32_t at = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context_, &at)) {
    if (module->implemented != 0 && IsLookedAt(module->compiled->data, list)) return false;
  }
  return found->second = true;
}

// Whether an entry is as valid outside the tree as in it.
bool EditValidator::NeedsNothing(const lyd_node* entry) {
  if (!IsUnconstrained(entry->schema)) return false;
  lyd_node* node;
  LYD_TREE_DFS_BEGIN(const_cast<lyd_node*>(entry), node) {
    if (lysc_node_musts(node->schema) != nullptr) return false;
    LYD_TREE_DFS_END(const_cast<lyd_node*>(entry), node);
  }
  return true;
}

bool EditValidator::Validate(Tree* tree) {
  TreeBuilder builder(tree);
  std::vector<std::pair<lyd_node*, lyd_node*>> aside;  // parents and entries
  const auto set_aside = [&](lyd_node* first, const auto& recurse) -> void {
    lyd_node* next;
    lyd_node* node;
    LY_LIST_FOR_SAFE(first, next, node) {
      lyd_node* parent = lyd_parent(node);
      if (parent != nullptr && node->schema->nodetype == LYS_LIST && NeedsNothing(node)) {
        lyd_unlink_tree(node);
        aside.emplace_back(parent, node);
      } else {
        recurse(lyd_child(node), recurse);
      }
    }
  };
  lyd_node** first = builder;
  set_aside(*first, set_aside);
  const bool valid =
      lyd_validate_all(first, context_, LYD_VALIDATE_NO_STATE, nullptr) == LY_SUCCESS;
  for (const auto& [parent, entry] : aside) lyd_insert_child(parent, entry);
  return valid;
}

}  // namespace host
