#include "host/classifier/table_group.h"

#include <algorithm>
#include <cstring>

#include "host/classifier/store_word.h"

namespace host::classifier {
namespace {

// A new table is this full at most, and grows from there: short probes for few bytes.
constexpr double kFullAtFirst = 0.4;
constexpr double kFullAtMost = 0.65;

// Groups with so many entries have room for all tables at once.
constexpr size_t kManyEntries = 256;

uint8_t Log2AtLeast(size_t count, uint8_t least) {
  uint8_t log2 = least;
  while ((size_t{1} << log2) < count) ++log2;
  return log2;
}

uint8_t SlotsFor(size_t entries) {
  return Log2AtLeast(static_cast<size_t>(static_cast<double>(entries) / kFullAtFirst),
                     TableGroup::kLeastSlots);
}

Refusal TooComplex(size_t left, size_t entries) {
  return {Refusal::kTooComplex, CLS_TABLES, left,
          std::to_string(entries) + " entries do not fit into " + std::to_string(CLS_MAX_TABLES) +
              " tables with " + std::to_string(TableGroup::kMaxChain) +
              " entries in a bucket: too many overlap in too many different masks"};
}

// What a plan is made of: the entries' masks, each once, and their values.
struct PlanInput {
  std::vector<cls_key> masks;
  std::vector<PlanRule> rules;

  PlanInput(const EntryStore& store, const std::vector<uint32_t>& entries) {
    std::vector<uint32_t> numbers;  // by the mask's index in the arrays, plus 1
    rules.reserve(entries.size());
    for (const uint32_t entry : entries) {
      const uint32_t index = store.head(entry).mask;
      if (numbers.size() <= index) numbers.resize(index + 1);
      if (numbers[index] == 0) {
        masks.push_back(store.mask(entry));
        numbers[index] = static_cast<uint32_t>(masks.size());
      }
      rules.push_back({&store.value(entry), numbers[index] - 1});
    }
  }
};

// The limits that a plan tries one after the other: short chains first.
constexpr PlanLimits kLimits[] = {
    {TableGroup::kPlannedTables, TableGroup::kChainTarget},
    {TableGroup::kPlannedTables, 8},
    {TableGroup::kPlannedTables, TableGroup::kMaxChain - 1},
    {CLS_MAX_TABLES, TableGroup::kMaxChain - 1},
};

}  // namespace

std::shared_ptr<TableGroup> TableGroup::Build(Arena* arena, const std::vector<uint32_t>& entries,
                                              const std::vector<uint32_t>& labels, uint64_t born,
                                              Refusal* refusal) {
  for (size_t i = 0; i < entries.size(); ++i) {
    arena->entries.head(entries[i]).label = labels[i];
    arena->entries.body(entries[i]).born = born;
  }
  const PlanInput input(arena->entries, entries);
  std::vector<PlannedTable> plan;
  size_t left = 0;
  for (const PlanLimits& limits : kLimits) {
    plan = PlanTables(input.masks, input.rules, limits, &left);
    if (left == 0) break;
  }
  if (left != 0) {
    *refusal = TooComplex(left, entries.size());
    return nullptr;
  }
  auto made = std::make_shared<TableGroup>(arena);
  bool ok = made->Start(entries.size(), plan.size(), refusal) &&
            made->WriteFilters(ChooseFilters(input.masks, input.rules, plan), refusal);
  for (size_t i = 0; ok && i < plan.size(); ++i) {
    const int number = made->AddTable(plan[i].mask, plan[i].rules.size(), refusal);
    ok = number >= 0;
    for (size_t j = 0; ok && j < plan[i].rules.size(); ++j) {
      const uint32_t entry = entries[plan[i].rules[j]];
      const Bucket bucket = made->Find(made->tables_[number], arena->entries.value(entry));
      ok = made->Place(number, bucket, entry, refusal);
    }
  }
  if (!ok) {
    made->Release(true);
    return nullptr;
  }
  made->planned_tables_ = plan.size();
  made->planned_entries_ = entries.size();
  made->added_ = 0;
  return made;
}

bool TableGroup::Start(size_t entries, size_t tables, Refusal* refusal) {
  table_log2_ = Log2AtLeast(entries > kManyEntries ? CLS_MAX_TABLES : tables + tables / 2 + 2, 2);
  table_log2_ = std::min<uint8_t>(table_log2_, 7);
  table_base_ = arena_->tables.Allocate(table_log2_, refusal);
  if (table_base_ == Pool::kNone) return false;
  const uint32_t index = arena_->groups.Allocate(0, refusal);
  if (index == Pool::kNone) {
    arena_->tables.Free(table_base_, table_log2_);
    return false;
  }
  index_ = index;
  tables_.resize(size_t{1} << table_log2_);
  group() = {};
  group().table_base = table_base_;
  group().table_log2 = table_log2_;
  group().flags = CLS_GROUP_NO_LINK;
  return true;
}

bool TableGroup::WriteFilters(const std::vector<FieldFilter>& filters, Refusal* refusal) {
  for (const FieldFilter& filter : filters) {
    const uint32_t base = arena_->filters.Allocate(filter.bits, refusal);
    if (base == Pool::kNone) return false;
    std::memcpy(arena_->memory->At<cls_filter>(CLS_FILTERS, base), filter.bitmaps.data(),
                filter.bitmaps.size() * sizeof(cls_filter));
    group().field[group().field_count++] = {
        filter.mask, {filter.exempt.tables[0], filter.exempt.tables[1]},
        base,        filter.word,
        filter.bits, 0};
  }
  return true;
}

int TableGroup::AddTable(const cls_key& mask, size_t entries, Refusal* refusal) {
  size_t number = 0;
  while (number < tables_.size() && tables_[number].used) ++number;
  if (number == tables_.size()) return -1;
  Table made;
  made.mask = mask;
  made.log2 = SlotsFor(entries);
  if (!MakeSlots(&made, refusal)) return -1;
  made.used = true;
  tables_[number] = made;
  ++table_count_;
  table(number) = {{mask.word[0], mask.word[1], mask.word[2], mask.word[3]},
                   PlaceOf(made),
                   UINT32_MAX,
                   0,
                   {0, 0}};
  uint64_t bit = 1ULL << (number % 64);
  auto& word = group().tables[number / 64];
  StoreWord(&word, word | bit);
  return static_cast<int>(number);
}

bool TableGroup::Outgrown() const {
  return table_count_ > planned_tables_ + planned_tables_ / 2 + 8 ||
         added_ > planned_entries_ + kManyEntries;
}

TableGroup::Linked TableGroup::Link(uint32_t entry, uint32_t label, uint64_t born,
                                    Refusal* refusal) {
  Bucket bucket;
  int number = ChooseTable(entry, kChainTarget - 1, &bucket);
  if (number < 0 && table_count_ < tables_.size()) {
    number = AddTable(TableMask(arena_->entries.mask(entry)), 1, refusal);
    if (number < 0) return Linked::kNoRoom;
    bucket = Find(tables_[number], arena_->entries.value(entry));
  } else if (number < 0 && tables_.size() == CLS_MAX_TABLES) {
    number = ChooseTable(entry, kMaxChain - 1, &bucket);
  }
  if (number < 0) return Linked::kNoTable;
  arena_->entries.head(entry).label = label;
  arena_->entries.body(entry).born = born;
  ++added_;
  return Place(number, bucket, entry, refusal) ? Linked::kYes : Linked::kNoRoom;
}

int TableGroup::ChooseTable(uint32_t entry, uint32_t chain, Bucket* bucket) const {
  const cls_key& mask = arena_->entries.mask(entry);
  const cls_key& value = arena_->entries.value(entry);
  int best = -1;
  uint32_t best_length = chain + 1;
  for (size_t i = 0; i < tables_.size() && best_length != 0; ++i) {
    if (!tables_[i].used || !Covers(tables_[i].mask, mask)) continue;
    const Bucket found = Find(tables_[i], value);
    const uint32_t length = Length(found);
    if (length >= best_length) continue;
    best = static_cast<int>(i);
    best_length = length;
    *bucket = found;
  }
  return best;
}

uint32_t TableGroup::Length(const Bucket& bucket) const {
  if (!bucket.exists) return 0;
  uint32_t length = 0;
  for (uint32_t entry = slot(bucket.slot) & CLS_INDEX_MASK; entry != 0;
       entry = arena_->entries.head(entry).next) {
    if (!arena_->entries.known(entry).dying) ++length;
  }
  return length;
}

bool TableGroup::Place(uint32_t number, Bucket bucket, uint32_t entry, Refusal* refusal) {
  Table& to = tables_[number];
  const cls_key& value = arena_->entries.value(entry);
  if (!bucket.exists) {
    const auto full = static_cast<double>(1U << to.log2) * kFullAtMost;
    if (!bucket.fits || static_cast<double>(to.filled + 1) > full) {
      if (!Grow(number, value, refusal)) return false;
      bucket = Find(to, value);
    }
    if (slot(bucket.slot) == 0) ++to.filled;
  }
  ++to.entries;
  arena_->entries.known(entry).table = static_cast<uint8_t>(number);
  arena_->entries.known(entry).state = EntryStore::State::kLinked;
  Announce(number, entry);

  const uint64_t hash = Hash(value & to.mask);
  const uint32_t label = arena_->entries.head(entry).label;
  auto& sieve = SieveWord(to, hash);
  StoreWord(&sieve, Sieved(sieve, hash, label));
  const uint32_t fingerprint = CLS_HASH_FINGERPRINT(hash);
  uint32_t next = bucket.exists ? slot(bucket.slot) & CLS_INDEX_MASK : 0;
  uint32_t before = 0;
  while (next != 0 && arena_->entries.head(next).label < label) {
    before = next;
    next = arena_->entries.head(next).next;
  }
  arena_->entries.head(entry).next = next;
  if (before == 0) {
    StoreWord(&slot(bucket.slot), fingerprint | entry);
  } else {
    StoreWord(&arena_->entries.head(before).next, entry);
  }
  return true;
}

void TableGroup::Announce(uint32_t number, uint32_t entry) {
  const cls_key& mask = arena_->entries.mask(entry);
  const cls_key& value = arena_->entries.value(entry);
  const size_t word = number / 64;
  const uint64_t bit = 1ULL << (number % 64);
  cls_group& to = group();
  for (uint32_t i = 0; i < to.field_count; ++i) {
    cls_field& field = to.field[i];
    if ((field.exempt[word] & bit) != 0) continue;
    auto* set = &field.exempt[word];
    if ((mask.word[field.word] & field.mask) == field.mask) {
      const uint32_t hash = cls_filter_hash(value.word[field.word] & field.mask, field.bits);
      set = &arena_->memory->At<cls_filter>(CLS_FILTERS, field.base + hash)->tables[word];
    }
    if ((*set & bit) == 0) StoreWord(set, *set | bit);
  }
  if ((mask.word[0] | mask.word[1]) != 0 && (to.flags & CLS_GROUP_NO_LINK) != 0) {
    StoreWord(&to.flags, to.flags & ~CLS_GROUP_NO_LINK);
  }
  const uint32_t label = arena_->entries.head(entry).label;
  if (label < table(number).best) StoreWord(&table(number).best, label);
}

void TableGroup::Unlink(uint32_t entry) {
  const uint32_t number = arena_->entries.known(entry).table;
  Table& from = tables_[number];
  const Bucket bucket = Find(from, arena_->entries.value(entry));
  const uint32_t first = slot(bucket.slot) & CLS_INDEX_MASK;
  const uint32_t next = arena_->entries.head(entry).next;
  if (first == entry) {
    uint32_t word = (slot(bucket.slot) & ~CLS_INDEX_MASK) | next;
    if (next == 0) {
      // Probes for other buckets go on behind this slot, unless there is nothing.
      const uint32_t base = from.line * CLS_SLOTS_PER_LINE;
      const uint32_t behind = base + ((bucket.slot - base + 1) & ((1U << from.log2) - 1));
      word = slot(behind) == 0 ? 0 : CLS_SLOT_GONE;
      if (word == 0) --from.filled;
    }
    StoreWord(&slot(bucket.slot), word);
  } else {
    uint32_t before = first;
    while (arena_->entries.head(before).next != entry) before = arena_->entries.head(before).next;
    StoreWord(&arena_->entries.head(before).next, next);
  }
  arena_->entries.known(entry).state = EntryStore::State::kUnlinked;
  if (--from.entries == 0) StoreWord(&table(number).best, UINT32_MAX);
}

void TableGroup::ForEach(const std::function<void(uint32_t)>& visit) const {
  for (const Table& table : tables_) {
    if (!table.used) continue;
    for (uint32_t i = 0; i < 1U << table.log2; ++i) {
      uint32_t entry = slot(table.line * CLS_SLOTS_PER_LINE + i) & CLS_INDEX_MASK;
      while (entry != 0) {
        const uint32_t next = arena_->entries.head(entry).next;
        visit(entry);
        entry = next;
      }
    }
  }
}

void TableGroup::Release(bool kept) {
  if (index_ == 0) return;
  ForEach([this, kept](uint32_t entry) {
    arena_->entries.known(entry).state = EntryStore::State::kLoose;
    if (!kept) arena_->entries.Free(entry);
  });
  for (const Table& table : tables_) {
    if (table.used) FreeSlots(table);
  }
  for (uint32_t i = 0; i < group().field_count; ++i) {
    arena_->filters.Free(group().field[i].base, group().field[i].bits);
  }
  arena_->tables.Free(table_base_, table_log2_);
  arena_->groups.Free(index_, 0);
  index_ = 0;
}

}  // namespace host::classifier
