// Making and reading of differences.
#include "host/cdb/diff.h"

#include <cstring>
#include <new>

#include "host/runtime/watchdog.h"

namespace host {

DiffOperation DiffOperationOf(const lyd_node* node, DiffOperation inherited) {
  for (const lyd_meta* meta = node->meta; meta != nullptr; meta = meta->next) {
    if (strcmp(meta->name, "operation") != 0 || strcmp(meta->annotation->module->name, "yang") != 0)
      continue;
    switch (lyd_get_meta_value(meta)[0]) {
      case 'c':
        return DiffOperation::kCreate;
      case 'd':
        return DiffOperation::kDelete;
      case 'r':
        return DiffOperation::kReplace;
      default:
        return DiffOperation::kNone;
    }
  }
  return inherited;
}

class DiffMaker {
 public:
  // With `borrowers` (may be null) created entries share their content, and are noted there.
  DiffMaker(const ly_ctx* context, std::vector<SharedDifference::Borrower>* borrowers)
      : context_(context), borrowers_(borrowers) {}

  Tree Take() { return Tree(first_); }

  void Compare(const lyd_node* before, const lyd_node* after, lyd_node* parent) {
    for (const lyd_node* old = before; old != nullptr; old = old->next) {
      if (IsKey(old)) continue;
      FeedWatchdog();
      const lyd_node* now = FindSame(after, old);
      if (now == nullptr) {
        Mark(Add(old, parent, LYD_DUP_RECURSIVE), "delete");
      } else if ((old->schema->nodetype & LYD_NODE_INNER) != 0) {
        CompareInner(old, now, parent);
      } else if (old->schema->nodetype == LYS_LEAF && strcmp(TextOf(old), TextOf(now)) != 0) {
        lyd_node* leaf = Add(now, parent, 0);
        Mark(leaf, "replace");
        SetMeta(leaf, "yang:orig-default", "false");
        SetMeta(leaf, "yang:orig-value", TextOf(old));
      }
    }
    for (const lyd_node* now = after; now != nullptr; now = now->next) {
      if (!IsKey(now) && FindSame(before, now) == nullptr) Mark(AddCreated(now, parent), "create");
    }
  }

 private:
  void CompareInner(const lyd_node* old, const lyd_node* now, lyd_node* parent) {
    lyd_node* node = Add(old, parent, 0);
    Mark(node, "none");
    Compare(lyd_child(old), lyd_child(now), node);
    if (lyd_child_no_keys(node) != nullptr) return;
    FreeNode(node, &first_);
  }

  lyd_node* Add(const lyd_node* node, lyd_node* parent, uint32_t options) {
    return AddCopy(node, parent, options, &first_);
  }

  lyd_node* AddCreated(const lyd_node* now, lyd_node* parent) {
    const bool shares =
        borrowers_ != nullptr && parent != nullptr && now->schema->nodetype == LYS_LIST;
    if (!shares) return Add(now, parent, LYD_DUP_RECURSIVE);
    lyd_node* node = Add(now, parent, 0);
    auto* entry = reinterpret_cast<lyd_node_inner*>(node);
    borrowers_->emplace_back(entry, entry->child);
    entry->child = lyd_child(now);
    return node;
  }

  void Mark(lyd_node* node, const char* operation) { SetMeta(node, "yang:operation", operation); }

  void SetMeta(lyd_node* node, const char* name, const char* value) {
    if (lyd_new_meta(context_, node, nullptr, name, value, 0, nullptr) != LY_SUCCESS)
      throw std::bad_alloc();
  }

  const ly_ctx* context_;
  std::vector<SharedDifference::Borrower>* borrowers_;
  lyd_node* first_ = nullptr;
};

namespace {

// Applies differences to one tree.
class DiffApplier {
 public:
  explicit DiffApplier(lyd_node** first) : first_(first) {}

  // `after` are the siblings that the difference leads to, null when they are not known.
  bool ApplySiblings(const lyd_node* diff, DiffOperation inherited, lyd_node* parent,
                     const lyd_node* after) {
    for (; diff != nullptr; diff = diff->next) {
      if (IsKey(diff)) continue;
      FeedWatchdog();
      const DiffOperation operation = DiffOperationOf(diff, inherited);
      if (operation == DiffOperation::kCreate) {
        Create(diff, parent, after);
        continue;
      }
      lyd_node* match = FindSame(parent != nullptr ? lyd_child(parent) : *first_, diff);
      if (match == nullptr) return false;
      if (operation == DiffOperation::kNone) {
        const lyd_node* then = after != nullptr ? FindSame(after, diff) : nullptr;
        const lyd_node* within = then != nullptr ? lyd_child(then) : nullptr;
        if (!ApplySiblings(lyd_child(diff), operation, match, within)) return false;
        continue;
      }
      FreeNode(match, first_);
      if (operation == DiffOperation::kReplace) AddCopy(diff, parent, 0, first_);
    }
    return true;
  }

 private:
  void Create(const lyd_node* diff, lyd_node* parent, const lyd_node* after) {
    // A list's entries are after its keys, so `after` never is the one that is taken.
    lyd_node* made = nullptr;
    if (parent != nullptr && diff->schema->nodetype == LYS_LIST) made = FindSame(after, diff);
    if (made == nullptr || made == after) {
      const lyd_node* copy = AddCopy(diff, parent, LYD_DUP_RECURSIVE, first_);
      const lyd_node* content = lyd_child(diff);
      // What is shared goes with `after`, so the copy's takes its place.
      if (content != nullptr && lyd_parent(content) != diff)
        const_cast<lyd_node_inner*>(reinterpret_cast<const lyd_node_inner*>(diff))->child =
            lyd_child(copy);
      return;
    }
    lyd_unlink_tree(made);
    if (lyd_insert_child(parent, made) != LY_SUCCESS) throw std::bad_alloc();
  }

  lyd_node** first_;
};

}  // namespace

bool ApplyDifference(const lyd_node* diff, Tree* tree, Tree* after) {
  TreeBuilder builder(tree);
  const lyd_node* then = after != nullptr ? after->get() : nullptr;
  return DiffApplier(builder).ApplySiblings(diff, DiffOperation::kNone, nullptr, then);
}

Tree Difference(const ly_ctx* context, const lyd_node* before, const lyd_node* after) {
  DiffMaker maker(context, nullptr);
  maker.Compare(before, after, nullptr);
  return maker.Take();
}

SharedDifference::SharedDifference(const ly_ctx* context, const lyd_node* before,
                                   const lyd_node* after) {
  DiffMaker maker(context, &borrowers_);
  maker.Compare(before, after, nullptr);
  tree_ = maker.Take();
}

SharedDifference::~SharedDifference() {
  for (const auto& [entry, keys] : borrowers_) entry->child = keys;
}

size_t CountChanges(const lyd_node* diff, DiffOperation inherited) {
  size_t count = 0;
  for (; diff != nullptr; diff = diff->next) {
    const DiffOperation operation = DiffOperationOf(diff, inherited);
    const bool counts = diff->schema->nodetype != LYS_CONTAINER && !IsKey(diff);
    if (counts && operation != DiffOperation::kNone) ++count;
    count += CountChanges(lyd_child(diff), operation);
  }
  return count;
}

size_t CountNodes(const lyd_node* first) {
  size_t count = 0;
  for (; first != nullptr; first = first->next) count += 1 + CountNodes(lyd_child(first));
  return count;
}

}  // namespace host
