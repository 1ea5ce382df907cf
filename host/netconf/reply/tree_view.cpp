// Views of trees: see tree_view.h.
#include "host/netconf/reply/tree_view.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <new>
#include <utility>

#include "host/cdb/list_order.h"
#include "host/xml/xml_text.h"

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

// The entries of a list, some on pages and some taken apart, by key.
class TreeView::Merge {
 public:
  explicit Merge(FilterRefs filter) : filter_(std::move(filter)) {}

  void Add(std::shared_ptr<const TreePage> page) {
    sources_.push_back({std::move(page), 0, nullptr, {}});
  }
  // An entry that is taken apart: `inside` has its start, what is in it, and its end.
  void Add(const lyd_node* entry, Items inside) {
    lyd_node* copy = nullptr;  // with its keys, for the entry may go
    if (lyd_dup_single(entry, nullptr, LYD_DUP_NO_META, &copy) != LY_SUCCESS)
      throw std::bad_alloc();
    sources_.push_back({nullptr, 0, Tree(copy), std::move(inside)});
  }

  // Gives the next stretch of a page in `*part`, or an entry that is taken apart in `*inside`.
  // False when there is nothing left.
  bool Take(ViewPart* part, Items* inside) {
    if (!is_heap_) std::make_heap(sources_.begin(), sources_.end(), IsBehind);
    is_heap_ = true;
    if (sources_.empty()) return false;
    std::pop_heap(sources_.begin(), sources_.end(), IsBehind);
    Source source = std::move(sources_.back());
    sources_.pop_back();
    if (source.page == nullptr) {
      *inside = std::move(source.inside);
      return true;
    }
    const size_t first = source.next, size = source.page->nodes().size();
    source.next = size;
    if (size > first && !sources_.empty() &&
        Compare(source.page->InOrder(size - 1), sources_.front().Head()) > 0) {
      source.next = first + 1;
      while (source.next < size && !IsBehind(source, sources_.front())) ++source.next;
    }
    // A page that is lost has no nodes, and says so to whoever prints it.
    const size_t count = source.next > first ? source.next - first : 0;
    *part = {ViewPart::Kind::kNodes, nullptr, "", false, source.page, first, count, filter_};
    if (source.next < size) {
      sources_.push_back(std::move(source));
      std::push_heap(sources_.begin(), sources_.end(), IsBehind);
    }
    return true;
  }

 private:
  struct Source {
    std::shared_ptr<const TreePage> page;  // null: an entry that is taken apart
    size_t next;                           // node of the page
    Tree entry;
    Items inside;

    // The next node; null when the page is lost.
    const lyd_node* Head() const {
      if (page == nullptr) return entry.get();
      return page->lost() ? nullptr : page->InOrder(next);
    }
  };

  // What is lost comes first, so that the reader learns it soon.
  static int Compare(const lyd_node* a, const lyd_node* b) {
    if (a == nullptr || b == nullptr) return (a != nullptr ? 1 : 0) - (b != nullptr ? 1 : 0);
    return CompareKeys(a, b);
  }
  static bool IsBehind(const Source& a, const Source& b) { return Compare(a.Head(), b.Head()) > 0; }

  const FilterRefs filter_;
  std::vector<Source> sources_;  // a heap once the first was taken: the next one in front
  bool is_heap_ = false;
};

std::string KeyIn(const ViewPart& part, const std::string& name) {
  const std::string& xml = part.keys;
  const size_t start = xml.find("<" + name + ">") + name.size() + 2;
  std::string text = xml.substr(start, xml.find('<', start) - start);
  constexpr std::pair<const char*, char> kEscapes[] = {
      {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&apos;", '\''}, {"&amp;", '&'}};
  for (const auto& [escape, character] : kEscapes) {
    for (size_t at = 0; (at = text.find(escape, at)) != std::string::npos; ++at) {
      text.replace(at, std::strlen(escape), 1, character);
    }
  }
  return text;
}

TreeView::TreeView(const lyd_node* first, std::shared_ptr<const void> tree,
                   const SubtreeFilter* filter, std::shared_ptr<PageMemory> memory,
                   int few_children)
    : tree_(std::move(tree)), memory_(std::move(memory)), few_children_(few_children) {
  FilterRefs refs;
  if (filter != nullptr) refs = std::make_shared<SubtreeFilter::NodeRefs>(filter->Top());
  levels_.push_back({TakeSiblings(first, refs)});
}

TreeView::~TreeView() = default;

bool TreeView::Next(ViewPart* part) {
  while (!levels_.empty()) {
    Level& level = levels_.back();
    if (level.next == level.items.size()) {
      levels_.pop_back();
      continue;
    }
    Item& item = level.items[level.next];
    if (item.list == nullptr) {
      *part = std::move(item.part);
      ++level.next;
      return true;
    }
    Items inside;
    if (!item.list->Take(part, &inside)) {
      item.list.reset();
      ++level.next;
    } else if (inside.empty()) {
      return true;
    } else {
      levels_.push_back({std::move(inside)});
    }
  }
  return false;
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

TreeView::Items TreeView::TakeSiblings(const lyd_node* first, const FilterRefs& filter) {
  Items items;
  TreePage::Nodes loose;            // without a page so far
  const lysc_node* list = nullptr;  // that is being merged by the last item; null: none
  const auto add = [&](std::shared_ptr<TreePage> page) {
    if (list != nullptr) return items.back().list->Add(std::move(page));
    const size_t count = page->nodes().size();
    items.push_back(
        {{ViewPart::Kind::kNodes, nullptr, "", false, std::move(page), 0, count, filter}, nullptr});
  };
  const auto make_page = [&] {
    if (loose.empty()) return;
    auto page = std::make_shared<TreePage>(std::move(loose), memory_);
    if (tree_ == nullptr) page->Keep();
    add(std::move(page));
    loose = {};
  };
  for (const lyd_node* node = first; node != nullptr; node = node->next) {
    const lysc_node* in_list = IsShownByKey(node->schema) ? node->schema : nullptr;
    if (in_list != list) {
      make_page();
      list = in_list;
      if (list != nullptr) items.push_back({{}, std::make_unique<Merge>(filter)});
    }
    if (TreePage* page = TreePage::Of(node)) {
      make_page();
      add(page->shared_from_this());
      node = page->nodes().back();
    } else if (IsTakenApart(node)) {
      make_page();
      Items inside = TakeApart(node, filter);
      if (inside.empty()) continue;
      if (list != nullptr) {
        items.back().list->Add(node, std::move(inside));
      } else {
        std::move(inside.begin(), inside.end(), std::back_inserter(items));
      }
    } else {
      if (loose.empty()) loose.reserve(memory_->page_nodes);
      loose.push_back(node);
      if (loose.size() == memory_->page_nodes) make_page();
    }
  }
  make_page();
  return items;
}

// Nothing where the filter selects nothing of the element.
TreeView::Items TreeView::TakeApart(const lyd_node* node, const FilterRefs& filter) {
  bool whole = filter == nullptr;
  SubtreeFilter::NodeRefs below;
  if (!whole && !SubtreeFilter::Enter(*filter, node, &whole, &below)) return {};
  const bool is_entry = node->schema->nodetype == LYS_LIST;
  const bool always = is_entry && (whole || SubtreeFilter::AsksForKey(below, node));
  ViewPart start;
  start.kind = ViewPart::Kind::kStart;
  start.schema = node->schema;
  start.keys = KeysOf(node);
  start.always = always;
  ViewPart end;
  end.schema = node->schema;
  FilterRefs refs;
  if (!whole) refs = std::make_shared<SubtreeFilter::NodeRefs>(std::move(below));
  Items inside = TakeSiblings(lyd_child_no_keys(node), refs);
  inside.insert(inside.begin(), Item{std::move(start), nullptr});
  inside.push_back({std::move(end), nullptr});
  return inside;
}

}  // namespace host
