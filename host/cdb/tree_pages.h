// Pages: how a large tree is read while it goes on changing.
//
// A reply is made in small parts, between which commits happen, and as slowly as its peer reads;
// yet it must show one state. So a reader does not walk the tree. It takes, at one moment,
// references to pages: some neighbouring nodes each, such as 64 entries of a list. A page costs a
// pointer per node, and all readers of the same nodes share it. Before a commit changes a node, the
// page that has it is detached: it gets copies of its nodes as they are. So a commit pays for what
// it touches, however many readers there are, and readers pay nothing for commits elsewhere. The
// pages of running are kept between readers: taking a view of them costs by page, while a walk over
// all nodes, cold in the cache, would hold up the others for some milliseconds.
//
// Invariants:
//  - lyd_node::priv of a node in a tree that is read in pages is the attached page that has this
//    very node, or null;
//  - an attached page's nodes, and all below them, are as they were when the page was made, and
//    each is the next sibling of the one before;
//  - whoever changes or frees a node of the tree calls DetachTouched() before and DetachParted()
//    behind.
#ifndef HOST_CDB_TREE_PAGES_H_
#define HOST_CDB_TREE_PAGES_H_

#include <libyang/libyang.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

class TreePage;

// What the pages of a server hold together.
struct PageMemory {
  explicit PageMemory(size_t most) : limit(most) {}

  const size_t limit;  // of `used`
  // Nodes of a page at most. Printing one takes a microsecond or two, copying it little more.
  size_t page_nodes = 64;
  size_t used = 0;  // bytes, of copies by estimate
  // Pages that stay when nobody reads. Their tree must outlive them.
  std::vector<std::shared_ptr<TreePage>> kept;
};

class TreePage : public std::enable_shared_from_this<TreePage> {
 public:
  using Nodes = std::vector<const lyd_node*>;

  // The nodes, one at least, have no page yet, and are entries of one list or none that is shown by
  // key; they live until the page is detached or gone.
  TreePage(Nodes nodes, std::shared_ptr<PageMemory> memory);
  TreePage(const TreePage&) = delete;
  TreePage& operator=(const TreePage&) = delete;
  ~TreePage();

  // The attached page that has `node`, or null.
  static TreePage* Of(const lyd_node* node) { return static_cast<TreePage*>(node->priv); }

  // The nodes in their order; detached ones have no parent.
  const Nodes& nodes() const { return nodes_; }
  // Node number `at` in the order in which they are shown (list_order.h).
  const lyd_node* InOrder(size_t at) const { return nodes_[order_.empty() ? at : order_[at]]; }
  // True when there was no memory for the copies. The page has no nodes then, and whoever still
  // needs it has to give up.
  bool lost() const { return lost_; }
  bool attached() const { return attached_; }
  // Keeps the page until it is detached.
  void Keep();
  // Replaces the nodes by copies, if a reader has the page. Does nothing on a detached page.
  void Detach();

 private:
  void Release();

  const std::shared_ptr<PageMemory> memory_;
  Nodes nodes_;
  std::vector<uint32_t> order_;  // empty: as they are
  std::vector<Tree> copies_;
  size_t bytes_ = 0;  // accounted in memory_
  bool kept_ = false;
  bool attached_ = true;
  bool lost_ = false;
};

// Detaches the pages that have nodes which `diff` (in libyang's form) changes among the siblings
// from `first` on (may be null), and below them.
void DetachTouched(const lyd_node* first, const lyd_node* diff);
// Detaches the pages that have got a node which `diff` created between two of theirs.
void DetachParted(const lyd_node* first, const lyd_node* diff);

}  // namespace host

#endif  // HOST_CDB_TREE_PAGES_H_
