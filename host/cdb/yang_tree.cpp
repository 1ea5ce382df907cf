// Helpers over libyang's data trees.
#include "host/cdb/yang_tree.h"

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

std::string ChildText(const lyd_node* node, const char* name) {
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (child->schema != nullptr && (child->schema->nodetype & LYS_LIST) != 0) break;
    if (strcmp(LYD_NAME(child), name) == 0) return TextOf(child);
  }
  return "";
}

namespace {

// Strips what is below `node`; true when the node itself is implicit or empty.
bool StripNode(lyd_node* node) {
  if ((node->schema->nodetype & LYD_NODE_TERM) != 0) return (node->flags & LYD_DEFAULT) != 0;
  lyd_node* next;
  lyd_node* child;
  LY_LIST_FOR_SAFE(lyd_child(node), next, child) {
    if (StripNode(child)) lyd_free_tree(child);
  }
  node->flags &= ~static_cast<uint32_t>(LYD_DEFAULT);
  return lyd_child(node) == nullptr && IsPlainContainer(node->schema) && !IsFrame(node->schema);
}

}  // namespace

void Normalize(const ly_ctx* context, Tree* tree) {
  lyd_node* first = tree->release();
  if (lyd_new_implicit_all(&first, context, LYD_IMPLICIT_NO_STATE, nullptr) != LY_SUCCESS)
    throw std::bad_alloc();
  lyd_node* next;
  lyd_node* node;
  LY_LIST_FOR_SAFE(first, next, node) {
    if (!StripNode(node)) continue;
    if (node == first) first = next;
    lyd_free_tree(node);
  }
  tree->reset(first);
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
