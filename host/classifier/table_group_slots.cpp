// A table's slots and its sieve: see table_group.h.
#include <algorithm>
#include <cstring>

#include "host/classifier/store_word.h"
#include "host/classifier/table_group.h"

namespace host::classifier {

static_assert(sizeof(cls_sieve) == sizeof(cls_filter), "they stand in one array");

bool TableGroup::MakeSlots(Table* table, Refusal* refusal) {
  const uint32_t line = arena_->slots.Allocate(table->log2 - kLeastSlots, refusal);
  if (line == Pool::kNone) return false;
  const uint32_t sieve = arena_->filters.Allocate(SieveFor(table->log2), refusal);
  if (sieve == Pool::kNone) {
    arena_->slots.Free(line, table->log2 - kLeastSlots);
    return false;
  }
  table->line = line;
  table->sieve = sieve;
  table->filled = 0;
  std::memset(arena_->memory->At<cls_slots>(CLS_SLOTS, line), 0, sizeof(uint32_t) << table->log2);
  std::memset(arena_->memory->At<cls_sieve>(CLS_FILTERS, sieve), 0,
              sizeof(cls_sieve) << SieveFor(table->log2));
  return true;
}

void TableGroup::FreeSlots(const Table& table) {
  arena_->slots.Free(table.line, table.log2 - kLeastSlots);
  arena_->filters.Free(table.sieve, SieveFor(table.log2));
}

uint64_t TableGroup::PlaceOf(const Table& table) {
  return CLS_PLACE(table.sieve, table.line * CLS_SLOTS_PER_LINE, table.log2);
}

uint64_t TableGroup::Sieved(uint64_t word, uint64_t hash, uint32_t label) {
  const uint32_t best = std::max(static_cast<uint32_t>(word >> 32), ~label);
  return uint64_t{best} << 32 | static_cast<uint32_t>(word) | CLS_HASH_SIEVE(hash);
}

__u64& TableGroup::SieveWord(const Table& table, uint64_t hash) const {
  const uint32_t line = (CLS_HASH_POSITION(hash) & ((1U << table.log2) - 1)) / CLS_SLOTS_PER_LINE;
  auto* sieve = arena_->memory->At<cls_sieve>(CLS_FILTERS, table.sieve + line / CLS_SIEVE_WORDS);
  return sieve->word[line % CLS_SIEVE_WORDS];
}

TableGroup::Bucket TableGroup::Find(const Table& table, const cls_key& value) const {
  const cls_key key = value & table.mask;
  const uint64_t hash = Hash(key);
  const uint32_t first = table.line * CLS_SLOTS_PER_LINE;
  const uint32_t last = (1U << table.log2) - 1;
  Bucket free{0, false, false};
  for (uint32_t probe = 0; probe < CLS_MAX_PROBES; ++probe) {
    const uint32_t at = first + ((CLS_HASH_POSITION(hash) + probe) & last);
    const uint32_t found = slot(at);
    const uint32_t entry = found & CLS_INDEX_MASK;
    if (entry == 0) {
      if (!free.fits) free = {at, false, true};
      if (found == 0) break;
    } else if (((found ^ CLS_HASH_FINGERPRINT(hash)) & ~CLS_INDEX_MASK) == 0 &&
               (arena_->entries.value(entry) & table.mask) == key) {
      return {at, true, true};
    }
  }
  return free;
}

bool TableGroup::Grow(uint32_t number, const cls_key& value, Refusal* refusal) {
  Table& from = tables_[number];
  for (uint8_t log2 = from.log2 + 1; log2 <= kMostSlots; ++log2) {
    Table to = from;
    to.log2 = log2;
    if (!MakeSlots(&to, refusal)) return false;
    bool fits = true;
    for (uint32_t i = 0; fits && i < 1U << from.log2; ++i) {
      const uint32_t moved = slot(from.line * CLS_SLOTS_PER_LINE + i);
      if ((moved & CLS_INDEX_MASK) == 0) continue;
      const cls_key& of = arena_->entries.value(moved & CLS_INDEX_MASK);
      const Bucket bucket = Find(to, of);
      fits = bucket.fits;
      if (fits) slot(bucket.slot) = moved;
      const uint64_t hash = Hash(of & to.mask);
      auto& sieve = SieveWord(to, hash);
      sieve = Sieved(sieve, hash, arena_->entries.head(moved & CLS_INDEX_MASK).label);
      ++to.filled;
    }
    if (!fits || !Find(to, value).fits) {  // no search has seen it
      FreeSlots(to);
      continue;
    }
    StoreWord(&table(number).place, PlaceOf(to));
    arena_->Retire({0, Retired::kSlots, from.log2 - kLeastSlots, from.line, 0, nullptr});
    arena_->Retire({0, Retired::kSieve, SieveFor(from.log2), from.sieve, 0, nullptr});
    from = to;
    return true;
  }
  *refusal = {Refusal::kNoRoom, CLS_SLOTS, 1U << (kMostSlots - kLeastSlots),
              "an entry finds no slot in a table of " + std::to_string(1U << kMostSlots) +
                  ", which is the largest there is"};
  return false;
}

}  // namespace host::classifier
