// The part of running that an edit touches.
#include "host/cdb/edit/edit.h"
#include "host/cdb/edit/edit_node.h"

namespace host {
namespace {

bool IsListEntry(const lyd_node* node) { return node->schema->nodetype == LYS_LIST; }

class ScopeCopier {
 public:
  explicit ScopeCopier(lyd_node** first) : first_(first) {}

  // Copies what the edit's siblings touch of `running` below `parent` (a copy, null at the top).
  void Copy(const lyd_node* edit, const lyd_node* running, lyd_node* parent, Operation inherited) {
    for (; edit != nullptr; edit = edit->next) {
      if (edit->schema == nullptr) continue;  // a leaf: it came with its parent
      const lyd_node* match = FindSame(running, edit);
      if (match == nullptr || IsKey(match)) continue;
      const Operation operation = OperationOf(edit, inherited);
      lyd_node* copy = FindSame(parent != nullptr ? lyd_child(parent) : *first_, match);
      const bool whole = Removes(operation) || operation == Operation::kReplace ||
                         (operation == Operation::kCreate && IsPlainContainer(edit->schema));
      if (whole) {
        if (copy != nullptr) FreeNode(copy, first_);
        Duplicate(match, parent, LYD_DUP_RECURSIVE);
        continue;
      }
      if ((edit->schema->nodetype & LYD_NODE_INNER) == 0) {
        if (copy == nullptr) Duplicate(match, parent, 0);
        continue;
      }
      if (copy == nullptr) copy = CopyUnit(match, parent);
      Copy(lyd_child(edit), lyd_child(match), copy, operation);
    }
  }

 private:
  // Copies a node with its content, but for the entries of lists within.
  lyd_node* CopyUnit(const lyd_node* node, lyd_node* parent) {
    lyd_node* copy = Duplicate(node, parent, 0);
    const lyd_node* first = lyd_child(node);
    // Siblings are in schema order, and lists stand together: what is before the first and after
    // the last list entry is the node's own. So a list's length costs nothing.
    const lyd_node* child = first;
    for (; child != nullptr && !IsListEntry(child); child = child->next) CopyOwn(child, copy);
    if (child == nullptr) return copy;
    for (child = first->prev; !IsListEntry(child); child = child->prev) CopyOwn(child, copy);
    return copy;
  }

  void CopyOwn(const lyd_node* node, lyd_node* parent) {
    if (IsKey(node)) return;  // keys come with the entry
    if ((node->schema->nodetype & LYD_NODE_INNER) != 0) {
      CopyUnit(node, parent);
    } else {
      Duplicate(node, parent, 0);
    }
  }

  lyd_node* Duplicate(const lyd_node* node, lyd_node* parent, uint32_t options) {
    return AddCopy(node, parent, options, first_);
  }

  lyd_node** first_;
};

}  // namespace

Tree CopyTouched(const lyd_node* running, const lyd_node* edit,
                 DefaultOperation default_operation) {
  if (default_operation == DefaultOperation::kReplace) return CopyTree(running);
  Tree touched;
  {
    TreeBuilder builder(&touched);
    ScopeCopier(builder).Copy(edit, running, nullptr, FromDefault(default_operation));
  }
  return touched;
}

}  // namespace host
