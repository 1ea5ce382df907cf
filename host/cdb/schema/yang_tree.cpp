// Helpers over libyang's data trees.
#include "host/cdb/schema/yang_tree.h"

#include <cstdlib>
#include <cstring>
#include <new>

namespace host {

std::string PathOf(const lyd_node* node) {
  std::unique_ptr<char, decltype(&std::free)> path(lyd_path(node, LYD_PATH_STD, nullptr, 0),
                                                   &std::free);
  return path ? path.get() : "";
}

lyd_node* FindSame(const lyd_node* siblings, const lyd_node* node) {
  // libyang takes a leaf with another value for another node.
  if ((node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) == 0)
    return FindBySchema(siblings, node->schema);
  lyd_node* match = nullptr;
  if (siblings == nullptr || lyd_find_sibling_first(siblings, node, &match) != LY_SUCCESS) {
    return nullptr;
  }
  return match;
}

lyd_node* FindBySchema(const lyd_node* siblings, const lysc_node* schema) {
  lyd_node* match = nullptr;
  if (siblings == nullptr ||
      lyd_find_sibling_val(siblings, schema, nullptr, 0, &match) != LY_SUCCESS) {
    return nullptr;
  }
  return match;
}

bool IsKey(const lyd_node* node) { return node->schema != nullptr && lysc_is_key(node->schema); }

bool IsPlainContainer(const lysc_node* schema) {
  return schema->nodetype == LYS_CONTAINER && (schema->flags & LYS_PRESENCE) == 0;
}

bool IsFrame(const lysc_node* schema) {
  if (!IsPlainContainer(schema)) return false;
  const lysc_node* child = nullptr;
  while ((child = lys_getnext(child, schema, nullptr, 0)) != nullptr) {
    if (child->nodetype == LYS_LIST || IsFrame(child)) return true;
  }
  return false;
}

bool HoldsSomething(const lyd_node* node) {
  if (!IsPlainContainer(node->schema)) return true;
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (HoldsSomething(child)) return true;
  }
  return false;
}

bool AppendPredicates(const lysc_node* schema, const std::vector<std::string>& keys,
                      std::string* text) {
  const lysc_node* key = lysc_node_child(schema);  // an element of a leaf-list has none
  for (const std::string& value : keys) {
    const bool single = value.find('\'') == std::string::npos;
    if (!single && value.find('"') != std::string::npos) return false;
    const char quote = single ? '\'' : '"';
    *text += '[';
    *text += key != nullptr ? key->name : ".";
    *text += '=';
    *text += quote + value + quote + "]";
    if (key != nullptr) key = key->next;
  }
  return true;
}

std::string ChildText(const lyd_node* node, const char* name) {
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (child->schema != nullptr && (child->schema->nodetype & LYS_LIST) != 0) break;
    if (strcmp(LYD_NAME(child), name) == 0) return TextOf(child);
  }
  return "";
}

lyd_node* AddCopy(const lyd_node* node, lyd_node* parent, uint32_t options, lyd_node** first) {
  lyd_node* copy = nullptr;
  auto* inner = reinterpret_cast<lyd_node_inner*>(parent);
  if (lyd_dup_single(node, inner, options | LYD_DUP_NO_META, &copy) != LY_SUCCESS ||
      (parent == nullptr && lyd_insert_sibling(*first, copy, first) != LY_SUCCESS)) {
    throw std::bad_alloc();
  }
  return copy;
}

void FreeNode(lyd_node* node, lyd_node** first) {
  if (node == *first) *first = node->next;
  lyd_free_tree(node);
}

Tree CopyTree(const lyd_node* first) {
  if (first == nullptr) return nullptr;
  lyd_node* copy = nullptr;
  if (lyd_dup_siblings(first, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_NO_META, &copy) != LY_SUCCESS) {
    throw std::bad_alloc();
  }
  return Tree(copy);
}

}  // namespace host
