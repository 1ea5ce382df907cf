#include "platform/filters_common/filters_group.h"

#include <cstddef>
#include <iterator>
#include <utility>
#include <vector>

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

// Nodes of maps that are gone, for maps to come. They hold nothing.
//
// New ones are made many at a time, side by side, and not in the gaps that other objects of their
// size have left: walking a group of scattered nodes takes two to three times as long.
class SpareNodes {
 public:
  static SpareNodes& OfThread() {
    static thread_local SpareNodes spare;
    return spare;
  }

  // Takes the node if there is room.
  void Keep(FiltersGroup::Entries::node_type node) {
    if (nodes_.size() == kMost) return;
    node.mapped() = FiltersEntry(0);
    nodes_.push_back(std::move(node));
  }

  // Takes all nodes that there is room for, the last first: so they come back in their order, which
  // mostly is that of their addresses.
  void KeepAll(FiltersGroup::Entries* entries) {
    while (!entries->empty() && nodes_.size() < kMost)
      Keep(entries->extract(std::prev(entries->end())));
  }

  // Puts a copy of `entry`, whose id is not taken, into `entries`, next to `hint`.
  void Insert(const FiltersEntry& entry, FiltersGroup::Entries::iterator hint,
              FiltersGroup::Entries* entries) {
    if (nodes_.empty()) MakeSome();
    FiltersGroup::Entries::node_type node = std::move(nodes_.back());
    nodes_.pop_back();
    node.key() = entry.getId();
    node.mapped() = entry;
    entries->insert(hint, std::move(node));
  }

 private:
  static constexpr size_t kMost = size_t{2} * 65536;  // two groups as large as they can be
  static constexpr unsigned short kSome = 1024;       // 80 kB

  void MakeSome() {
    FiltersGroup::Entries made;
    {
      const OwnArena arena;
      for (unsigned short i = 0; i < kSome; ++i) made.emplace_hint(made.end(), i, FiltersEntry(0));
    }
    KeepAll(&made);
  }

  std::vector<FiltersGroup::Entries::node_type> nodes_;
};

}  // namespace

FiltersGroup::Store::~Store() { SpareNodes::OfThread().KeepAll(&entries); }

FiltersGroup::FiltersGroup(const unsigned short& id) : id_(id), store_(CountedPtr<Store>::Make()) {}

filtersErr_t FiltersGroup::setStage(const filtersGroupStage_t& stage) {
  if (stage != FILTERS_GROUP_STAGE_PRE_INGRESS) return FILTERS_ERR_TYPE;
  stage_ = stage;
  return FILTERS_OK;
}

filtersErr_t FiltersGroup::setType(const filtersGroupType_t& type) {
  if (type != FILTERS_GROUP_TYPE_L2 && type != FILTERS_GROUP_TYPE_L3) return FILTERS_ERR_TYPE;
  type_ = type;
  return FILTERS_OK;
}

FiltersGroup::Entries& FiltersGroup::OwnEntries() {
  if (!store_.unique()) store_ = CountedPtr<Store>::Make(*store_);
  return store_->entries;
}

filtersErr_t FiltersGroup::insertEntry(const FiltersEntry& entry) {
  const unsigned short id = entry.getId();
  const Entries& held = store_->entries;
  // Groups are mostly built in ascending order of id: then the place is the end.
  const bool append = held.empty() || held.rbegin()->first < id;
  if (!append && held.count(id) != 0) return FILTERS_ERR_EXISTS;
  Entries& entries = OwnEntries();
  SpareNodes::OfThread().Insert(entry, append ? entries.end() : entries.lower_bound(id), &entries);
  return FILTERS_OK;
}

filtersErr_t FiltersGroup::removeEntry(const unsigned short& id) {
  if (store_->entries.count(id) == 0) return FILTERS_ERR_NOT_FOUND;
  SpareNodes::OfThread().Keep(OwnEntries().extract(id));
  return FILTERS_OK;
}

}  // namespace FiltersCommon
