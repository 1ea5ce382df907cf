#include "host/filters_common/spare_nodes.h"

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <utility>

// jemalloc's way in (its manual page, "mallctl"). Null in a program that is not linked with it.
extern "C" int mallctl(const char* name, void* old_value, size_t* old_size, void* new_value,
                       size_t new_size) __attribute__((weak));

namespace FiltersCommon {
namespace {

// As long as it lives, the thread's memory comes from an arena that nothing else comes from.
class OwnArena {
 public:
  OwnArena() {
    if (mallctl == nullptr) return;
    static thread_local const unsigned int own = [] {
      unsigned int arena = 0;
      size_t size = sizeof(arena);
      mallctl("arenas.create", &arena, &size, nullptr, 0);
      return arena;
    }();
    other_ = Change(own);
  }
  ~OwnArena() {
    if (mallctl != nullptr) Change(other_);
  }
  OwnArena(const OwnArena&) = delete;
  OwnArena& operator=(const OwnArena&) = delete;

 private:
  // The one before.
  static unsigned int Change(unsigned int arena) {
    mallctl("thread.tcache.flush", nullptr, nullptr, nullptr, 0);
    unsigned int before = 0;
    size_t size = sizeof(before);
    mallctl("thread.arena", &before, &size, &arena, sizeof(arena));
    return before;
  }

  unsigned int other_ = 0;
};

}  // namespace

SpareNodes& SpareNodes::OfThread() {
  static thread_local SpareNodes spare;
  return spare;
}

void SpareNodes::Keep(Entries::node_type node) {
  if (size() >= kMost) return;
  nodes_.push_back(std::move(node));
}

void SpareNodes::KeepAll(Entries* entries) {
  for (; size() + entries->size() > kMost && !nodes_.empty(); nodes_.pop_back()) continue;
  empty_ = std::min(empty_, nodes_.size());
  if (size() >= kMost) return;
  while (size() + entries->size() > kMost) entries->erase(std::prev(entries->end()));
  if (entries->empty()) return;
  if (entries->size() >= kLarge && dismantler_.Add(entries)) return;
  in_maps_ += entries->size();
  maps_.push_back(std::move(*entries));
}

const FiltersEntry& SpareNodes::Insert(const FiltersEntry& entry, Entries::iterator hint,
                                       Entries* entries) {
  Entries::node_type node = Take();
  node.key() = entry.getId();
  node.mapped() = entry;
  return entries->insert(hint, std::move(node))->second;
}

SpareNodes::Entries::node_type SpareNodes::Take() {
  if (nodes_.empty()) dismantler_.Take(&nodes_);
  if (!nodes_.empty()) {
    Entries::node_type node = std::move(nodes_.back());
    nodes_.pop_back();
    empty_ = std::min(empty_, nodes_.size());
    return node;
  }
  if (maps_.empty()) FindMap();
  Entries& oldest = maps_.front();
  Entries::node_type node = oldest.extract(oldest.begin());
  --in_maps_;
  if (oldest.empty()) maps_.pop_front();
  return node;
}

void SpareNodes::FindMap() {
  Entries map = dismantler_.TakeBack();
  if (map.empty()) {
    const OwnArena arena;
    for (unsigned short i = 0; i < kSome; ++i) map.emplace_hint(map.end(), i, FiltersEntry(0));
  }
  in_maps_ += map.size();
  maps_.push_back(std::move(map));
}

bool SpareNodes::TakeApart(size_t most) {
  for (; most > 0 && !maps_.empty(); --most) {
    Entries& newest = maps_.back();
    nodes_.push_back(newest.extract(std::prev(newest.end())));
    --in_maps_;
    if (newest.empty()) maps_.pop_back();
  }
  if (empty_ == nodes_.size()) dismantler_.Take(&nodes_);
  for (; most > 0 && empty_ < nodes_.size(); --most) nodes_[empty_++].mapped() = FiltersEntry(0);
  return size() > empty_;
}

}  // namespace FiltersCommon
