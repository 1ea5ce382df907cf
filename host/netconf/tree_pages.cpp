// Pages of a tree: see tree_pages.h.
#include "host/netconf/tree_pages.h"

#include <new>
#include <utility>

namespace host {
namespace {

// What a node costs, with its place in its parent's hash table and a short value.
constexpr size_t kBytesPerNode = 160;

size_t CountNodes(const lyd_node* node) {
  size_t count = 1;
  for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
    count += CountNodes(child);
  }
  return count;
}

// `priv` is for the users of a tree; libyang neither reads nor copies it.
void SetPage(const lyd_node* node, TreePage* page) { const_cast<lyd_node*>(node)->priv = page; }

}  // namespace

TreePage::TreePage(Nodes nodes, std::shared_ptr<PageMemory> memory)
    : memory_(std::move(memory)), nodes_(std::move(nodes)) {
  for (const lyd_node* node : nodes_) SetPage(node, this);
  bytes_ = nodes_.capacity() * sizeof(nodes_[0]);
  memory_->used += bytes_;
}

TreePage::~TreePage() {
  Release();
  memory_->used -= bytes_;
}

void TreePage::Release() {
  if (!attached_) return;
  for (const lyd_node* node : nodes_) SetPage(node, nullptr);
  attached_ = false;
}

bool TreePage::TakeFor(uint64_t view) {
  if (last_view_ == view) return false;
  last_view_ = view;
  return true;
}

void TreePage::Detach() {
  if (!attached_) return;
  Release();
  if (memory_->used >= memory_->limit) {
    lost_ = true;
    nodes_.clear();
    return;
  }
  for (const lyd_node*& node : nodes_) {
    lyd_node* copy = nullptr;
    if (lyd_dup_single(node, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_NO_META | LYD_DUP_WITH_FLAGS,
                       &copy) != LY_SUCCESS) {
      throw std::bad_alloc();
    }
    copies_.emplace_back(copy);
    const size_t bytes = CountNodes(copy) * kBytesPerNode;
    bytes_ += bytes;
    memory_->used += bytes;
    node = copy;
  }
}

void DetachTouched(const lyd_node* first, const lyd_node* diff) {
  for (; diff != nullptr; diff = diff->next) {
    const lyd_node* node = IsKey(diff) ? nullptr : FindSame(first, diff);
    if (node == nullptr) continue;
    if (TreePage* page = TreePage::Of(node)) page->Detach();
    DetachTouched(lyd_child(node), lyd_child(diff));
  }
}

}  // namespace host
