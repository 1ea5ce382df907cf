// The order of lists: see list_order.h.
#include "host/cdb/list_order.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <vector>

namespace host {
namespace {

// The value of a number, in an order that is that of all numbers of its type.
std::optional<int64_t> NumberIn(const lyd_value& value) {
  switch (value.realtype->basetype) {
    case LY_TYPE_INT8:
      return value.int8;
    case LY_TYPE_INT16:
      return value.int16;
    case LY_TYPE_INT32:
      return value.int32;
    case LY_TYPE_INT64:
      return value.int64;
    case LY_TYPE_UINT8:
      return value.uint8;
    case LY_TYPE_UINT16:
      return value.uint16;
    case LY_TYPE_UINT32:
      return value.uint32;
    case LY_TYPE_UINT64:
      return static_cast<int64_t>(value.uint64 ^ (uint64_t{1} << 63));
    default:
      return std::nullopt;
  }
}

int CompareValues(const lyd_node* a, const lyd_node* b) {
  const auto x = NumberIn(reinterpret_cast<const lyd_node_term*>(a)->value);
  const auto y = NumberIn(reinterpret_cast<const lyd_node_term*>(b)->value);
  if (x.has_value() && y.has_value()) return *x < *y ? -1 : *x > *y ? 1 : 0;
  return std::strcmp(TextOf(a), TextOf(b));
}

bool BothListed(const lyd_node* a, const lyd_node* b) {
  return a->schema == b->schema && IsShownByKey(a->schema);
}

bool IsInOrder(const lyd_node* node) {
  for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
    const lyd_node* next = child->next;
    if (next != nullptr && BothListed(child, next) && CompareKeys(child, next) > 0) return false;
    if (!IsInOrder(child)) return false;
  }
  return true;
}

void CopyOrdered(const lyd_node* node, lyd_node* parent, lyd_node** first) {
  lyd_node* copy = AddCopy(node, parent, LYD_DUP_WITH_FLAGS, first);
  std::vector<const lyd_node*> children;
  for (const lyd_node* child = lyd_child_no_keys(node); child != nullptr; child = child->next) {
    children.push_back(child);
  }
  // Entries of one list stand together.
  for (auto begin = children.begin(); begin != children.end();) {
    const auto end = std::find_if_not(begin, children.end(), [begin](const lyd_node* other) {
      return *begin == other || BothListed(*begin, other);
    });
    std::stable_sort(begin, end,
                     [](const lyd_node* a, const lyd_node* b) { return CompareKeys(a, b) < 0; });
    begin = end;
  }
  for (const lyd_node* child : children) CopyOrdered(child, copy, first);
}

}  // namespace

int CompareKeys(const lyd_node* a, const lyd_node* b) {
  if (a->schema->nodetype == LYS_LEAFLIST) return CompareValues(a, b);
  const lyd_node *x = lyd_child(a), *y = lyd_child(b);
  for (; x != nullptr && y != nullptr && IsKey(x); x = x->next, y = y->next) {
    const int order = CompareValues(x, y);
    if (order != 0) return order;
  }
  return 0;
}

Tree InKeyOrder(const lyd_node* node) {
  if (IsInOrder(node)) return nullptr;
  Tree copy;
  {
    TreeBuilder builder(&copy);
    CopyOrdered(node, nullptr, builder);
  }
  return copy;
}

}  // namespace host
