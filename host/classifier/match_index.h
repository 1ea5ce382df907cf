// Finds the entry of a root that has a given value and mask: of twins, the first.
#ifndef HOST_CLASSIFIER_MATCH_INDEX_H_
#define HOST_CLASSIFIER_MATCH_INDEX_H_

#include <cstdint>
#include <vector>

#include "host/classifier/entry_list.h"
#include "host/classifier/entry_store.h"

namespace host::classifier {

// A hash table with linear probing over node ids; values and masks are read where they stand.
class MatchIndex {
 public:
  void Reserve(size_t count) {
    size_t size = 16;
    while (size < count * 2) size *= 2;
    if (size > cells_.size()) Resize(size);
  }

  // The entry whose record has the same match as `record`, kNoEntry when there is none.
  EntryId Find(const EntryStore& store, const EntryList& list, uint32_t record) const {
    if (cells_.empty()) return kNoEntry;
    const uint32_t hash = HashOf(store, record);
    for (size_t i = hash & mask();; i = (i + 1) & mask()) {
      const Cell& cell = cells_[i];
      if (cell.id == kNoEntry) return kNoEntry;
      if (cell.hash != hash) continue;
      const uint32_t other = list[cell.id].record;
      if (store.head(other).mask == store.head(record).mask &&
          store.value(other) == store.value(record)) {
        return cell.id;
      }
    }
  }

  // No other entry of the match may be in the index.
  void Add(const EntryStore& store, const EntryList& list, EntryId id) {
    Reserve(++count_);
    Put({HashOf(store, list[id].record), id});
  }

  void Erase(const EntryStore& store, const EntryList& list, EntryId id) {
    size_t hole = HashOf(store, list[id].record) & mask();
    while (cells_[hole].id != id) hole = (hole + 1) & mask();
    --count_;
    // What stands behind moves up, as far as it may without getting in front of its place.
    for (size_t i = (hole + 1) & mask(); cells_[i].id != kNoEntry; i = (i + 1) & mask()) {
      if (((i - cells_[i].hash) & mask()) < ((i - hole) & mask())) continue;
      cells_[hole] = cells_[i];
      hole = i;
    }
    cells_[hole] = Cell();
  }

 private:
  struct Cell {
    uint32_t hash = 0;
    EntryId id = kNoEntry;
  };

  static uint32_t HashOf(const EntryStore& store, uint32_t record) {
    const uint64_t hash = Hash(store.value(record)) + store.head(record).mask * CLS_HASH_2;
    return static_cast<uint32_t>(hash >> 24);
  }
  size_t mask() const { return cells_.size() - 1; }
  void Put(const Cell& cell) {
    size_t i = cell.hash & mask();
    while (cells_[i].id != kNoEntry) i = (i + 1) & mask();
    cells_[i] = cell;
  }
  void Resize(size_t size) {
    std::vector<Cell> old(size);
    old.swap(cells_);
    for (const Cell& cell : old) {
      if (cell.id != kNoEntry) Put(cell);
    }
  }

  std::vector<Cell> cells_;
  size_t count_ = 0;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_MATCH_INDEX_H_
