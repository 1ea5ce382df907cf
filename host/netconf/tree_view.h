// What a reader sees of a tree: its content at one moment, or what a filter selects of it, in
// parts.
//
// Elements that lists are in are taken apart: their start, the nodes within by pages
// (tree_pages.h), their end. All others, such as a list entry without further lists, are seen as a
// whole.
#ifndef HOST_NETCONF_TREE_VIEW_H_
#define HOST_NETCONF_TREE_VIEW_H_

#include <libyang/libyang.h>

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/netconf/subtree_filter.h"
#include "host/netconf/tree_pages.h"

namespace host {

struct ViewPart {
  enum class Kind { kStart, kPage, kEnd };
  Kind kind = Kind::kEnd;
  // kStart, kEnd: the element.
  const lysc_node* schema = nullptr;
  // kStart: the entry's keys, as XML; and whether the element counts without content.
  std::string keys;
  bool always = false;
  // kPage: nodes, of each what `filter` selects; all without it.
  std::shared_ptr<const TreePage> page;
  std::shared_ptr<const SubtreeFilter::NodeRefs> filter;
};

class TreeView {
 public:
  static constexpr int kFewChildren = 8;

  // Sees the siblings from `first` on (may be null) as they are now. `tree` keeps them alive, where
  // that is needed; `filter` (null: all) must outlive the view. List entries that hold lists, but
  // have no more than `few_children`, are not taken apart.
  TreeView(const lyd_node* first, std::shared_ptr<const void> tree, const SubtreeFilter* filter,
           std::shared_ptr<PageMemory> memory, int few_children = kFewChildren);

  // Moves the next part out; false when there is none left.
  bool Next(ViewPart* part);

 private:
  using FilterRefs = std::shared_ptr<const SubtreeFilter::NodeRefs>;

  void TakeSiblings(const lyd_node* first, const FilterRefs& filter);
  void TakeApart(const lyd_node* node, const FilterRefs& filter);
  bool IsTakenApart(const lyd_node* node);

  const std::shared_ptr<const void> tree_;
  const std::shared_ptr<PageMemory> memory_;
  const int few_children_;
  std::unordered_map<const lysc_node*, bool> has_lists_;
  std::vector<ViewPart> parts_;  // after tree_: pages go first
  size_t next_ = 0;
};

}  // namespace host

#endif  // HOST_NETCONF_TREE_VIEW_H_
