#include "host/filters_common/spare_nodes.h"

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
  if (size_ == kMost) return;
  node.mapped() = FiltersEntry(0);
  nodes_.push_back(std::move(node));
  ++size_;
}

void SpareNodes::KeepAll(Entries* entries) {
  if (entries->empty() || entries->size() > kMost) return;
  size_ += entries->size();
  maps_.push_back(std::move(*entries));
  for (; size_ > kMost && !nodes_.empty(); --size_) nodes_.pop_back();
  for (; size_ > kMost; maps_.pop_front()) size_ -= maps_.front().size();
}

const FiltersEntry& SpareNodes::Insert(const FiltersEntry& entry, Entries::iterator hint,
                                       Entries* entries) {
  Entries::node_type node = Take();
  node.key() = entry.getId();
  node.mapped() = entry;
  return entries->insert(hint, std::move(node))->second;
}

SpareNodes::Entries::node_type SpareNodes::Take() {
  if (size_ == 0) MakeSome();
  --size_;
  if (!nodes_.empty()) {
    Entries::node_type node = std::move(nodes_.back());
    nodes_.pop_back();
    return node;
  }
  Entries& oldest = maps_.front();
  Entries::node_type node = oldest.extract(oldest.begin());
  if (oldest.empty()) maps_.pop_front();
  return node;
}

void SpareNodes::MakeSome() {
  Entries made;
  {
    const OwnArena arena;
    for (unsigned short i = 0; i < kSome; ++i) made.emplace_hint(made.end(), i, FiltersEntry(0));
  }
  KeepAll(&made);
}

bool SpareNodes::TakeApart(size_t most) {
  for (; most > 0 && !maps_.empty(); --most) {
    Entries& newest = maps_.back();
    --size_;  // Keep() counts it again
    Keep(newest.extract(std::prev(newest.end())));
    if (newest.empty()) maps_.pop_back();
  }
  return !maps_.empty();
}

}  // namespace FiltersCommon
