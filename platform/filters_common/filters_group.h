// A filter group: entries by id, under the group's own id, priority, stage and type.
//
// A group is a value. Copies share their entries until one of the copies is changed, so that a copy
// costs the same for any number of entries; groups that share belong to one thread.
//
// Groups of many entries are built anew over and over, while others like them go. So the nodes of a
// large group lie in memory of its own, side by side, which goes as a whole (node_arena.h).
#ifndef PLATFORM_FILTERS_COMMON_FILTERS_GROUP_H_
#define PLATFORM_FILTERS_COMMON_FILTERS_GROUP_H_

#include <map>
#include <memory>

#include "platform/filters_common/counted_ptr.h"
#include "platform/filters_common/entry_rows.h"
#include "platform/filters_common/filters_entry.h"
#include "platform/filters_common/filters_types.h"

namespace FiltersCommon {

class FiltersGroup {
 public:
  using Entries = std::map<unsigned short, FiltersEntry>;

  explicit FiltersGroup(const unsigned short& id);

  unsigned short getId() const { return id_; }
  unsigned short getPriority() const { return priority_; }
  void setPriority(const unsigned short& priority) { priority_ = priority; }

  filtersGroupStage_t getStage() const { return stage_; }
  // FILTERS_ERR_TYPE, and no change, for an unknown stage.
  filtersErr_t setStage(const filtersGroupStage_t& stage);
  filtersGroupType_t getType() const { return type_; }
  // FILTERS_ERR_TYPE, and no change, for an unknown type.
  filtersErr_t setType(const filtersGroupType_t& type);

  // Stores a copy under the entry's id. FILTERS_ERR_EXISTS when the id is taken.
  filtersErr_t insertEntry(const FiltersEntry& entry);
  // FILTERS_ERR_NOT_FOUND when there is no such entry.
  filtersErr_t removeEntry(const unsigned short& id);
  Entries getEntries() const { return store_->entries; }
  // Valid until the group is changed.
  const Entries& getEntriesRef() const { return store_->entries; }
  // The entries in the order of their evaluation, laid flat. Null where that was not kept: entries
  // were removed, or inserted in another order. Valid until the group is changed.
  const EntryRows* getRows() const {
    return store_->rows.size() == store_->entries.size() ? &store_->rows : nullptr;
  }

 private:
  struct Store {
    Store() = default;
    Store(const Store& other) : entries(other.entries) {}
    Store& operator=(const Store&) = delete;
    ~Store();

    std::unique_ptr<NodeArena> arena;  // of the nodes from the `shared`th entry on; null for few
    size_t shared = 0;
    Entries entries;
    EntryRows rows;  // of all entries, or none
  };

  // The entries, made this group's own.
  Entries& OwnEntries();

  unsigned short id_;
  unsigned short priority_ = 0;
  filtersGroupStage_t stage_ = FILTERS_GROUP_STAGE_NONE;
  filtersGroupType_t type_ = FILTERS_GROUP_TYPE_NONE;
  CountedPtr<Store> store_;  // never null; shared between copies, then not changed
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_FILTERS_GROUP_H_
