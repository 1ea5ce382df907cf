// Pages of a tree: see tree_pages.h.
#include "host/cdb/tree_pages.h"

#include <algorithm>
#include <new>
#include <numeric>
#include <utility>

#include "host/cdb/diff.h"
#include "host/cdb/list_order.h"

namespace host {
namespace {

// What a node costs, with its place in its parent's hash table and a short value.
constexpr size_t kBytesPerNode = 160;

// `priv` is for the users of a tree; libyang neither reads nor copies it.
void SetPage(const lyd_node* node, TreePage* page) { const_cast<lyd_node*>(node)->priv = page; }

}  // namespace

TreePage::TreePage(Nodes nodes, std::shared_ptr<PageMemory> memory)
    : memory_(std::move(memory)), nodes_(std::move(nodes)) {
  for (const lyd_node* node : nodes_) SetPage(node, this);
  const auto before = [this](uint32_t a, uint32_t b) {
    return CompareKeys(nodes_[a], nodes_[b]) < 0;
  };
  if (IsShownByKey(nodes_.front()->schema)) {
    order_.resize(nodes_.size());
    std::iota(order_.begin(), order_.end(), 0);
    if (std::is_sorted(order_.begin(), order_.end(), before)) {
      order_ = {};
    } else {
      std::sort(order_.begin(), order_.end(), before);
    }
  }
  bytes_ = nodes_.capacity() * sizeof(void*) + order_.capacity() * sizeof(uint32_t);
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

void TreePage::Keep() {
  std::vector<std::shared_ptr<TreePage>>& kept = memory_->kept;
  if (kept.size() == kept.capacity()) {  // about to grow: first without those that are gone
    kept.erase(std::remove_if(kept.begin(), kept.end(),
                              [](const auto& page) { return !page->attached(); }),
               kept.end());
  }
  kept.push_back(shared_from_this());
  kept_ = true;
}

void TreePage::Detach() {
  if (!attached_) return;
  Release();
  const bool read = weak_from_this().use_count() > (kept_ ? 1 : 0);
  if (!read || memory_->used >= memory_->limit) {
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

void DetachParted(const lyd_node* first, const lyd_node* diff) {
  for (; diff != nullptr; diff = diff->next) {
    const lyd_node* node = IsKey(diff) ? nullptr : FindSame(first, diff);
    if (node == nullptr) continue;
    TreePage* page = node->next != nullptr ? TreePage::Of(node->next) : nullptr;
    // A first node's prev is the last one.
    if (page != nullptr && node != first && TreePage::Of(node->prev) == page &&
        TreePage::Of(node) == nullptr) {
      page->Detach();
    }
    DetachParted(lyd_child(node), lyd_child(diff));
  }
}

}  // namespace host
