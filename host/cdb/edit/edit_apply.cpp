// Application of an edit to a tree.
#include <new>
#include <unordered_set>
#include <utility>

#include "host/cdb/edit/edit.h"
#include "host/cdb/edit/edit_node.h"
#include "host/runtime/watchdog.h"

namespace host {
namespace {

// Whether an entry of an edit is what it would make: no operations within, nothing that the schema
// does not know or that there may be several of, no empty containers.
bool IsPlainEntry(const lyd_node* entry) {
  if (entry->schema == nullptr || entry->schema->nodetype != LYS_LIST) return false;
  lyd_node* node;
  LYD_TREE_DFS_BEGIN(const_cast<lyd_node*>(entry), node) {
    if (node->schema == nullptr || node->meta != nullptr) return false;
    if (node != entry && (node->schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0) return false;
    if (IsPlainContainer(node->schema) && lyd_child(node) == nullptr) return false;
    LYD_TREE_DFS_END(const_cast<lyd_node*>(entry), node);
  }
  return true;
}

class EditApplier {
 public:
  // With `takes` the edit belongs to the applier, which moves nodes out of it.
  EditApplier(const ly_ctx* context, lyd_node** first, bool takes)
      : context_(context), first_(first), takes_(takes) {}

  DatastoreErrors Take() { return std::move(errors_); }

  void ApplySiblings(const lyd_node* edit, lyd_node* parent, Operation inherited) {
    const bool replacing = inherited == Operation::kReplace;
    std::unordered_set<const lyd_node*> kept;
    const lyd_node* next = nullptr;
    for (; edit != nullptr && errors_.empty(); edit = next) {
      next = edit->next;
      if (IsKey(edit)) continue;
      FeedWatchdog();
      const lyd_node* result = ApplyNode(edit, parent, OperationOf(edit, inherited));
      if (replacing && result != nullptr) kept.insert(result);
    }
    if (replacing && errors_.empty()) RemoveOthers(parent, kept);
  }

 private:
  // Returns the node of the target that the edit's node stands for, null when there is none now.
  lyd_node* ApplyNode(const lyd_node* edit, lyd_node* parent, Operation operation) {
    lyd_node* match = Find(edit, parent);
    if (Removes(operation)) {
      if (operation == Operation::kDelete && (match == nullptr || !HoldsSomething(match)))
        Fail("data-missing", edit, "does not exist, it cannot be deleted");
      if (match != nullptr) Remove(match);
      return nullptr;
    }
    const bool container = IsPlainContainer(edit->schema);
    if (operation == Operation::kCreate && match != nullptr && HoldsSomething(match)) {
      Fail("data-exists", edit, "exists already");
      return nullptr;
    }
    if (operation == Operation::kNone && match == nullptr && !container) {
      Fail("data-missing", edit, "does not exist, and the edit does not create it");
      return nullptr;
    }
    if ((edit->schema->nodetype & LYD_NODE_TERM) != 0)
      return operation == Operation::kNone ? match : SetTerm(edit, match, parent);
    if (match == nullptr && takes_ && parent != nullptr && operation != Operation::kNone &&
        IsPlainEntry(edit)) {
      return Move(const_cast<lyd_node*>(edit), parent);
    }
    if (match == nullptr) match = Insert(edit, parent);
    if (!container) ClearOtherCases(match);
    ApplySiblings(lyd_child(edit), match, operation);
    if (container && lyd_child(match) == nullptr && !IsFrame(match->schema)) {
      Remove(match);
      return nullptr;
    }
    return match;
  }

  lyd_node* SetTerm(const lyd_node* edit, lyd_node* match, lyd_node* parent) {
    if (match != nullptr) {
      if (lyd_compare_single(match, edit, 0) == LY_SUCCESS) return match;
      Remove(match);
    }
    lyd_node* set = Insert(edit, parent);
    ClearOtherCases(set);
    return set;
  }

  lyd_node* Find(const lyd_node* edit, lyd_node* parent) const {
    const lyd_node* siblings = parent != nullptr ? lyd_child(parent) : *first_;
    if (edit->schema != nullptr) return FindSame(siblings, edit);
    const lysc_node* schema =
        EditSchema(context_, edit, parent != nullptr ? parent->schema : nullptr);
    return schema != nullptr ? FindBySchema(siblings, schema) : nullptr;
  }

  // Adds a copy of the edit's node, an entry with its keys, without further content.
  lyd_node* Insert(const lyd_node* edit, lyd_node* parent) {
    return AddCopy(edit, parent, 0, first_);
  }

  lyd_node* Move(lyd_node* entry, lyd_node* parent) {
    lyd_unlink_tree(entry);
    if (lyd_insert_child(parent, entry) != LY_SUCCESS) throw std::bad_alloc();
    ClearOtherCases(entry);
    return entry;
  }

  void Remove(lyd_node* node) { FreeNode(node, first_); }

  // What is set in one case of a choice ends the choice's other cases (RFC 7950, section 7.9); so
  // does what is set in a container without presence for the choice that the container is in.
  void ClearOtherCases(lyd_node* node) {
    for (; node != nullptr; node = lyd_parent(node)) {
      const lysc_node* in = node->schema->parent;
      while (in != nullptr && in->nodetype == LYS_CASE) {
        RemoveChoice(node, in->parent, in);
        in = in->parent->parent;
      }
      const lyd_node* parent = lyd_parent(node);
      if (parent == nullptr || !IsPlainContainer(parent->schema)) return;
    }
  }

  // Removes the siblings of `node` that belong to `choice`, but not to its case `keep`.
  void RemoveChoice(lyd_node* node, const lysc_node* choice, const lysc_node* keep) {
    lyd_node* next;
    lyd_node* sibling;
    LY_LIST_FOR_SAFE(lyd_first_sibling(node), next, sibling) {
      const lysc_node* in = sibling->schema->parent;
      const lysc_node* chosen = nullptr;  // the case of `choice` that the sibling is in
      for (; in != nullptr && (in->nodetype & (LYS_CASE | LYS_CHOICE)) != 0; in = in->parent) {
        if (in->parent == choice) chosen = in;
      }
      if (chosen != nullptr && chosen != keep) Remove(sibling);
    }
  }

  void RemoveOthers(lyd_node* parent, const std::unordered_set<const lyd_node*>& kept) {
    lyd_node* next;
    lyd_node* node;
    LY_LIST_FOR_SAFE(parent != nullptr ? lyd_child(parent) : *first_, next, node) {
      if (!IsKey(node) && kept.count(node) == 0) Remove(node);
    }
  }

  void Fail(const char* tag, const lyd_node* edit, const char* why) {
    DatastoreError error;
    error.tag = tag;
    error.path = EditPath(edit);
    error.message = std::string(LYD_NAME(edit)) + " " + why;
    error.bad_element = LYD_NAME(edit);
    errors_.push_back(std::move(error));
  }

  const ly_ctx* context_;
  lyd_node** first_;
  const bool takes_;
  DatastoreErrors errors_;
};

}  // namespace

DatastoreErrors ApplyEdit(const ly_ctx* context, const lyd_node* edit,
                          DefaultOperation default_operation, Tree* target) {
  TreeBuilder builder(target);
  EditApplier applier(context, builder, /*takes=*/false);
  applier.ApplySiblings(edit, nullptr, FromDefault(default_operation));
  return applier.Take();
}

DatastoreErrors ApplyEditFrom(const ly_ctx* context, Tree edit, DefaultOperation default_operation,
                              Tree* target) {
  TreeBuilder builder(target);
  EditApplier applier(context, builder, /*takes=*/true);
  applier.ApplySiblings(edit.get(), nullptr, FromDefault(default_operation));
  return applier.Take();
}

}  // namespace host
