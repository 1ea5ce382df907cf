// Differences in libyang's form: nodes carry yang:operation, and those without inherit their
// parent's.
#ifndef HOST_CDB_DIFF_H_
#define HOST_CDB_DIFF_H_

#include <cstddef>
#include <utility>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

enum class DiffOperation {
  kNone,  // the node is there before and after; something below it changed
  kCreate,
  kDelete,
  kReplace,  // a leaf with another value
};

// The node's operation, `inherited` when it has none of its own.
DiffOperation DiffOperationOf(const lyd_node* node, DiffOperation inherited);

// The difference that makes `before` into `after`, both normalized; null when there is none. Does
// what lyd_diff_siblings() does, which takes quadratic time where many entries of a list change.
Tree Difference(const ly_ctx* context, const lyd_node* before, const lyd_node* after);

// A difference as Difference() makes it, but for entries of lists that are created: these have the
// content of the entries in `after` for theirs, so that a bulk edit is not there twice. It is to be
// read from the top down, for the parents of that content are not the difference's. To be gone
// before the entries are, wherever they have been moved meanwhile.
class SharedDifference {
 public:
  SharedDifference(const ly_ctx* context, const lyd_node* before, const lyd_node* after);
  SharedDifference(const SharedDifference&) = delete;
  SharedDifference& operator=(const SharedDifference&) = delete;
  ~SharedDifference();

  const lyd_node* get() const { return tree_.get(); }

 private:
  friend class DiffMaker;
  // An entry, and the first of the keys that are its own.
  using Borrower = std::pair<lyd_node_inner*, lyd_node*>;

  std::vector<Borrower> borrowers_;
  Tree tree_;
};

// Applies a difference to `tree`. False when a node is missing that the difference changes; the
// tree is then half changed. Linear, which lyd_diff_apply_all() is not. `after` (may be null) is
// the tree that the difference leads to: what is created is then taken out of it instead of being
// copied, and a difference that shares it goes on sharing it.
bool ApplyDifference(const lyd_node* diff, Tree* tree, Tree* after = nullptr);

// List entries that a difference creates or deletes, and leaves (keys aside) that it creates,
// deletes or sets.
size_t CountChanges(const lyd_node* diff, DiffOperation inherited = DiffOperation::kNone);

// Nodes from `first` on, with all below.
size_t CountNodes(const lyd_node* first);

}  // namespace host

#endif  // HOST_CDB_DIFF_H_
