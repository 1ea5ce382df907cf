// What a reader sees of a tree: its content at one moment, or what a filter selects of it, in
// parts.
//
// Elements that lists are in are taken apart: their start, the nodes within by pages
// (tree_pages.h), their end. All others, such as a list entry without further lists, are seen as a
// whole.
//
// Lists of configuration are seen by key (list_order.h). The tree has them in another order, and
// to sort them would take a moment that nobody has; but each page knows the order of its few nodes,
// so the pages of a list are merged while they are read. A part is then a stretch of a page that
// comes before what all other pages still have: a whole page where the list was made in order, a
// node in the worst case.
#ifndef HOST_NETCONF_REPLY_TREE_VIEW_H_
#define HOST_NETCONF_REPLY_TREE_VIEW_H_

#include <libyang/libyang.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/cdb/tree_pages.h"
#include "host/netconf/reply/filter/subtree_filter.h"

namespace host {

struct ViewPart {
  enum class Kind { kStart, kNodes, kEnd };
  Kind kind = Kind::kEnd;
  // kStart, kEnd: the element.
  const lysc_node* schema = nullptr;
  // kStart: the entry's keys, as XML; and whether the element counts without content.
  std::string keys;
  bool always = false;
  // kNodes: nodes of a page, in its order, of each what `filter` selects; all without it.
  std::shared_ptr<const TreePage> page;
  size_t first = 0, count = 0;
  std::shared_ptr<const SubtreeFilter::NodeRefs> filter;
};

// The text of the key `name` of an element that starts.
std::string KeyIn(const ViewPart& part, const std::string& name);

class TreeView {
 public:
  static constexpr int kFewChildren = 8;

  // Sees the siblings from `first` on (may be null) as they are now. `tree` keeps them alive, where
  // that is needed; `filter` (null: all) must outlive the view. List entries that hold lists, but
  // have no more than `few_children`, are not taken apart.
  TreeView(const lyd_node* first, std::shared_ptr<const void> tree, const SubtreeFilter* filter,
           std::shared_ptr<PageMemory> memory, int few_children = kFewChildren);
  TreeView(const TreeView&) = delete;
  TreeView& operator=(const TreeView&) = delete;
  ~TreeView();

  // Moves the next part out; false when there is none left.
  bool Next(ViewPart* part);

 private:
  using FilterRefs = std::shared_ptr<const SubtreeFilter::NodeRefs>;
  class Merge;
  // A part, or what becomes parts when it is its turn: the entries of a list.
  struct Item {
    ViewPart part;
    std::unique_ptr<Merge> list;
  };
  using Items = std::vector<Item>;
  struct Level {
    Items items;
    size_t next = 0;
  };

  Items TakeSiblings(const lyd_node* first, const FilterRefs& filter);
  Items TakeApart(const lyd_node* node, const FilterRefs& filter);
  bool IsTakenApart(const lyd_node* node);

  const std::shared_ptr<const void> tree_;
  const std::shared_ptr<PageMemory> memory_;
  const int few_children_;
  std::unordered_map<const lysc_node*, bool> has_lists_;
  std::vector<Level> levels_;  // the innermost last; after tree_: pages go first
};

}  // namespace host

#endif  // HOST_NETCONF_REPLY_TREE_VIEW_H_
