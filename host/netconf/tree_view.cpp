// Views of trees: see tree_view.h.
#include "host/netconf/tree_view.h"

#include <utility>

#include "host/netconf/xml_text.h"

namespace host {
namespace {

bool HasLists(const lysc_node* schema) {
  const lysc_node* child = nullptr;
  while ((child = lys_getnext(child, schema, nullptr, 0)) != nullptr) {
    if (child->nodetype == LYS_LIST || (child->nodetype == LYS_CONTAINER && HasLists(child))) {
      return true;
    }
  }
  return false;
}

std::string KeysOf(const lyd_node* node) {
  std::string xml;
  for (const lyd_node* child = lyd_child(node); child != nullptr && IsKey(child);
       child = child->next) {
    const std::string name = child->schema->name;
    xml += "<" + name + ">" + XmlEscape(lyd_get_value(child)) + "</" + name + ">";
  }
  return xml;
}

}  // namespace

TreeView::TreeView(const lyd_node* first, std::shared_ptr<const void> tree,
                   const SubtreeFilter* filter, std::shared_ptr<PageMemory> memory,
                   int few_children)
    : tree_(std::move(tree)), memory_(std::move(memory)), few_children_(few_children) {
  FilterRefs refs;
  if (filter != nullptr) refs = std::make_shared<SubtreeFilter::NodeRefs>(filter->Top());
  TakeSiblings(first, refs);
}

bool TreeView::Next(ViewPart* part) {
  if (next_ == parts_.size()) return false;
  *part = std::move(parts_[next_++]);
  return true;
}

bool TreeView::IsTakenApart(const lyd_node* node) {
  if ((node->schema->nodetype & LYD_NODE_INNER) == 0) return false;
  const auto [known, is_new] = has_lists_.try_emplace(node->schema);
  if (is_new) known->second = HasLists(node->schema);
  if (!known->second || node->schema->nodetype == LYS_CONTAINER) return known->second;
  int children = 0;
  for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
    if (++children > few_children_) return true;
  }
  return false;
}

void TreeView::TakeSiblings(const lyd_node* first, const FilterRefs& filter) {
  TreePage::Nodes loose;  // without a page so far
  const auto add = [&](std::shared_ptr<TreePage> page) {
    parts_.push_back({ViewPart::Kind::kPage, nullptr, "", false, std::move(page), filter});
  };
  const auto make_page = [&] {
    if (loose.empty()) return;
    auto page = std::make_shared<TreePage>(std::move(loose), memory_);
    if (tree_ == nullptr) page->Keep();
    add(std::move(page));
    loose = {};
  };
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    if (TreePage* page = TreePage::Of(node)) {
      make_page();
      add(page->shared_from_this());
      node = page->nodes().back();
    } else if (IsTakenApart(node)) {
      make_page();
      TakeApart(node, filter);
    } else {
      if (loose.empty()) loose.reserve(memory_->page_nodes);
      loose.push_back(node);
      if (loose.size() == memory_->page_nodes) make_page();
    }
  }
  make_page();
}

void TreeView::TakeApart(const lyd_node* node, const FilterRefs& filter) {
  bool whole = filter == nullptr;
  SubtreeFilter::NodeRefs below;
  if (!whole && !SubtreeFilter::Enter(*filter, node, &whole, &below)) return;
  const bool is_entry = node->schema->nodetype == LYS_LIST;
  const bool always = is_entry && (whole || SubtreeFilter::AsksForKey(below, node));
  parts_.push_back({ViewPart::Kind::kStart, node->schema, KeysOf(node), always, nullptr, nullptr});
  FilterRefs refs;
  if (!whole) refs = std::make_shared<SubtreeFilter::NodeRefs>(std::move(below));
  TakeSiblings(lyd_child_no_keys(node), refs);
  parts_.push_back({ViewPart::Kind::kEnd, node->schema, "", false, nullptr, nullptr});
}

}  // namespace host
