// The tables of one root in the arrays: entries are linked into them and unlinked, tables grow.
//
// All that is written here is written so that a search at any moment finds what it found before:
// see the invariants in classifier.h.
#ifndef HOST_CLASSIFIER_TABLE_GROUP_H_
#define HOST_CLASSIFIER_TABLE_GROUP_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/classifier/arena.h"
#include "host/classifier/field_filters.h"

namespace host::classifier {

class TableGroup {
 public:
  // Tables that a plan makes at most; the others are for what is added one by one.
  static constexpr uint32_t kPlannedTables = 112;
  // Entries in a bucket from which on another table is preferred, and at most.
  static constexpr uint32_t kChainTarget = 4;
  static constexpr uint32_t kMaxChain = 16;

  // The number of a table's slots, by its log2: one line, and more than all entries need.
  static constexpr uint32_t kLeastSlots = 4, kMostSlots = 24;

  // Where Link() ended.
  enum class Linked { kYes, kNoRoom, kNoTable };

  explicit TableGroup(Arena* arena) : arena_(arena) {}
  TableGroup(const TableGroup&) = delete;
  TableGroup& operator=(const TableGroup&) = delete;

  // New tables for `entries`, which are in no table, have ascending labels and are born in `born`;
  // null when that is refused (the entries are the caller's again, no search has seen them).
  static std::shared_ptr<TableGroup> Build(Arena* arena, const std::vector<uint32_t>& entries,
                                           const std::vector<uint32_t>& labels, uint64_t born,
                                           Refusal* refusal);
  // Takes over what the arrays hold at `index`, after checking it. Null with what is wrong.
  // `entries` gets all that the tables lead to.
  static std::shared_ptr<TableGroup> Adopt(Arena* arena, uint32_t index,
                                           std::vector<uint32_t>* entries, std::string* problem);

  uint32_t index() const { return index_; }
  uint32_t table_count() const { return table_count_; }
  // Whether so much was added one by one since the tables were planned that a new plan is due.
  bool Outgrown() const;

  // Links an entry that was never linked. It is in force from `born` on.
  Linked Link(uint32_t entry, uint32_t label, uint64_t born, Refusal* refusal);
  // Takes an entry out of its chain. Searches that stand on it go on; it can be freed a grace
  // period later.
  void Unlink(uint32_t entry);

  void ForEach(const std::function<void(uint32_t)>& visit) const;
  // Gives back all memory, entries as well unless they are `kept`. No search sees the group any
  // more.
  void Release(bool kept = false);

 private:
  struct Table {
    cls_key mask{};
    uint32_t line = 0;   // its first line of slots
    uint32_t sieve = 0;  // its sieve's first element
    uint8_t log2 = 0;    // of the number of slots
    bool used = false;
    uint32_t filled = 0;   // slots that are not 0
    uint32_t entries = 0;  // linked
  };
  // A bucket's slot, or the one it would get.
  struct Bucket {
    uint32_t slot = 0;
    bool exists = false;
    bool fits = true;  // false: no slot within the probes
  };

  cls_group& group() const { return *arena_->memory->At<cls_group>(CLS_GROUPS, index_); }
  cls_table& table(uint32_t number) const {
    return arena_->memory->At<cls_table>(CLS_TABLES, table_base_)[number];
  }
  uint32_t& slot(uint32_t index) const {
    return arena_->memory->At<cls_slots>(CLS_SLOTS, 0)[index / CLS_SLOTS_PER_LINE]
        .slot[index % CLS_SLOTS_PER_LINE];
  }

  bool Start(size_t entries, size_t tables, Refusal* refusal);
  // The number of a new table; -1 when there is none, or no room.
  int AddTable(const cls_key& mask, size_t entries, Refusal* refusal);
  // Slots of the table's size, all empty, and its sieve.
  bool MakeSlots(Table* table, Refusal* refusal);
  void FreeSlots(const Table& table);
  // The log2 of the elements of the sieve beside so many slots.
  static uint32_t SieveFor(uint32_t slots) {
    constexpr uint32_t kSlotsOfElement = kLeastSlots + 1;  // CLS_SIEVE_WORDS lines
    return slots > kSlotsOfElement ? slots - kSlotsOfElement : 0;
  }
  static uint64_t PlaceOf(const Table& table);
  // A word of a sieve with a bucket, or an entry of one, added.
  static uint64_t Sieved(uint64_t word, uint64_t hash, uint32_t label);
  // The word of the sieve that tells of the buckets with this hash.
  __u64& SieveWord(const Table& table, uint64_t hash) const;
  // Twice as many slots, until `value` finds one.
  bool Grow(uint32_t number, const cls_key& value, Refusal* refusal);
  // The table whose bucket for a new entry is shortest, and its bucket; -1 when all those that
  // could hold it have more than `chain` entries there.
  int ChooseTable(uint32_t entry, uint32_t chain, Bucket* bucket) const;
  Bucket Find(const Table& table, const cls_key& value) const;
  // Entries of the bucket that are not dying.
  uint32_t Length(const Bucket& bucket) const;
  bool Place(uint32_t number, Bucket bucket, uint32_t entry, Refusal* refusal);
  // Makes filters, flags and the best label of the table tell of the entry.
  void Announce(uint32_t number, uint32_t entry);
  bool WriteFilters(const std::vector<FieldFilter>& filters, Refusal* refusal);

  // Restart: what is wrong, empty when nothing is.
  std::string AdoptGroup();
  std::string AdoptTable(uint32_t number, std::vector<uint32_t>* entries);
  std::string AdoptChain(uint32_t number, uint32_t slot, std::vector<uint32_t>* entries);
  std::string CheckEntry(uint32_t number, uint32_t entry) const;
  bool Announced(uint32_t number, uint32_t entry) const;

  Arena* arena_;
  uint32_t index_ = 0;       // of the group, 0: not written yet
  uint32_t table_base_ = 0;  // of its tables
  uint8_t table_log2_ = 0;   // of the number of tables that there is room for
  uint32_t table_count_ = 0;
  size_t planned_tables_ = 0;
  size_t planned_entries_ = 0;
  size_t added_ = 0;  // since they were planned
  std::vector<Table> tables_;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_TABLE_GROUP_H_
