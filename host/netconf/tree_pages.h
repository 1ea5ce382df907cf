// Pages: how a large tree is read while it goes on changing.
//
// A reply is made in small parts, between which commits happen, and as slowly as its peer reads;
// yet it must show one state. So a reader does not walk the tree. It takes, at one moment,
// references to pages: some neighbouring nodes each, such as 64 entries of a list. A page costs a
// pointer per node, and all readers of the same nodes share it. Before a commit changes a node, the
// page that has it is detached: it gets copies of its nodes as they are. So a commit pays for what
// it touches, however many readers there are, and readers pay nothing for commits elsewhere.
//
// Invariants:
//  - lyd_node::priv of a node in a tree that is read in pages is the attached page that has this
//    very node, or null;
//  - an attached page's nodes, and all below them, are as they were when the page was made;
//  - whoever changes or frees a node of the tree calls DetachTouched() before.
#ifndef HOST_NETCONF_TREE_PAGES_H_
#define HOST_NETCONF_TREE_PAGES_H_

#include <libyang/libyang.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "host/cdb/yang_tree.h"

namespace host {

// What the pages of a server hold together.
struct PageMemory {
  size_t limit = 0;        // of `used`
  size_t used = 0;         // bytes, of copies by estimate
  uint64_t last_view = 0;  // number of the last view that took pages
};

class TreePage : public std::enable_shared_from_this<TreePage> {
 public:
  using Nodes = std::vector<const lyd_node*>;

  // The nodes have no page yet; they live until the page is detached or gone.
  TreePage(Nodes nodes, std::shared_ptr<PageMemory> memory);
  TreePage(const TreePage&) = delete;
  TreePage& operator=(const TreePage&) = delete;
  ~TreePage();

  // The attached page that has `node`, or null.
  static TreePage* Of(const lyd_node* node) { return static_cast<TreePage*>(node->priv); }

  // The nodes in their order; detached ones have no parent.
  const Nodes& nodes() const { return nodes_; }
  // True when there was no memory for the copies. The page has no nodes then, and whoever still
  // needs it has to give up.
  bool lost() const { return lost_; }
  // True for the first call with this number of a view.
  bool TakeFor(uint64_t view);
  // Replaces the nodes by copies. Does nothing on a detached page.
  void Detach();

 private:
  void Release();

  const std::shared_ptr<PageMemory> memory_;
  Nodes nodes_;
  std::vector<Tree> copies_;
  size_t bytes_ = 0;  // accounted in memory_
  uint64_t last_view_ = 0;
  bool attached_ = true;
  bool lost_ = false;
};

// Detaches the pages that have nodes which `diff` (in libyang's form) changes among the siblings
// from `first` on (may be null), and below them.
void DetachTouched(const lyd_node* first, const lyd_node* diff);

}  // namespace host

#endif  // HOST_NETCONF_TREE_PAGES_H_
