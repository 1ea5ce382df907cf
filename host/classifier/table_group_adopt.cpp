// Taking over tables that another process left: every word that a search follows is checked.
#include "host/classifier/table_group.h"

namespace host::classifier {

std::shared_ptr<TableGroup> TableGroup::Adopt(Arena* arena, uint32_t index,
                                              std::vector<uint32_t>* entries,
                                              std::string* problem) {
  auto group = std::make_shared<TableGroup>(arena);
  group->index_ = index;
  if (!arena->groups.Claim(index, 0)) {
    *problem = "there is no group " + std::to_string(index);
    return nullptr;
  }
  *problem = group->AdoptGroup();
  for (uint32_t i = 0; problem->empty() && i < group->tables_.size(); ++i) {
    if ((group->group().tables[i / 64] >> (i % 64) & 1) != 0) {
      *problem = group->AdoptTable(i, entries);
      if (!problem->empty()) *problem = "table " + std::to_string(i) + ": " + *problem;
    }
  }
  if (!problem->empty()) {
    *problem = "group " + std::to_string(index) + ", " + *problem;
    return nullptr;
  }
  group->planned_tables_ = group->table_count_;
  group->planned_entries_ = entries->size();
  return group;
}

std::string TableGroup::AdoptGroup() {
  const cls_group& from = group();
  table_base_ = from.table_base;
  if (from.table_log2 > 7 || !arena_->tables.Claim(table_base_, from.table_log2)) {
    return "its tables do not lie in their array";
  }
  table_log2_ = static_cast<uint8_t>(from.table_log2);
  tables_.resize(size_t{1} << table_log2_);
  for (size_t i = tables_.size(); i < CLS_MAX_TABLES; ++i) {
    if ((from.tables[i / 64] >> (i % 64) & 1) != 0) return "it has more tables than room for them";
  }
  if (from.field_count > CLS_MAX_FILTERS) return "it has too many filters";
  for (uint32_t i = 0; i < from.field_count; ++i) {
    const cls_field& field = from.field[i];
    if (field.word > 3 || field.bits == 0 || field.bits > 20 ||
        !arena_->filters.Claim(field.base, field.bits)) {
      return "filter " + std::to_string(i) + " does not lie in its array";
    }
  }
  return "";
}

std::string TableGroup::AdoptTable(uint32_t number, std::vector<uint32_t>* entries) {
  const cls_table& from = table(number);
  const uint32_t first = CLS_PLACE_FIRST(from.place);
  const uint32_t log2 = CLS_PLACE_LOG2(from.place);
  Table& to = tables_[number];
  if (log2 < kLeastSlots || log2 > kMostSlots || (from.place & 0xe0) != 0 ||
      first % CLS_SLOTS_PER_LINE != 0 ||
      !arena_->slots.Claim(first / CLS_SLOTS_PER_LINE, log2 - kLeastSlots) ||
      !arena_->filters.Claim(CLS_PLACE_SIEVE(from.place), SieveFor(log2))) {
    return "its slots or its sieve do not lie in their array";
  }
  to.mask = {{from.mask[0], from.mask[1], from.mask[2], from.mask[3]}};
  to.line = first / CLS_SLOTS_PER_LINE;
  to.sieve = CLS_PLACE_SIEVE(from.place);
  to.log2 = static_cast<uint8_t>(log2);
  to.used = true;
  ++table_count_;
  for (uint32_t i = 0; i < 1U << log2; ++i) {
    const uint32_t at = first + i;
    if (slot(at) != 0) ++to.filled;
    if ((slot(at) & CLS_INDEX_MASK) == 0) continue;
    std::string problem = AdoptChain(number, at, entries);
    if (!problem.empty()) return problem;
  }
  return "";
}

std::string TableGroup::AdoptChain(uint32_t number, uint32_t at, std::vector<uint32_t>* entries) {
  Table& to = tables_[number];
  uint32_t label = 0;
  for (uint32_t entry = slot(at) & CLS_INDEX_MASK; entry != 0;
       entry = arena_->entries.head(entry).next) {
    if (!arena_->entries.Claim(entry)) {
      return "entry " + std::to_string(entry) + " does not lie in its array, or is met twice";
    }
    arena_->entries.known(entry).table = static_cast<uint8_t>(number);
    arena_->entries.known(entry).state = EntryStore::State::kLinked;
    ++to.entries;
    std::string problem = CheckEntry(number, entry);
    const Bucket bucket = Find(to, arena_->entries.value(entry));
    if (problem.empty() && (!bucket.exists || bucket.slot != at)) problem = "is in a wrong slot";
    if (problem.empty() && arena_->entries.head(entry).label < label) problem = "is out of order";
    if (!problem.empty()) return "entry " + std::to_string(entry) + " " + problem;
    label = arena_->entries.head(entry).label;
    entries->push_back(entry);
  }
  return "";
}

std::string TableGroup::CheckEntry(uint32_t number, uint32_t entry) const {
  const EntryStore& store = arena_->entries;
  const cls_head& head = store.head(entry);
  const cls_entry& body = store.body(entry);
  const cls_key& mask = store.mask(entry);
  if ((body.value & mask) != body.value) return "has bits outside of its mask";
  if (!Covers(tables_[number].mask, mask)) return "compares less than its table";
  if (head.value != static_cast<uint32_t>(body.value.word[3]) ||
      head.tag != CLS_HASH_TAG(Hash(body.value))) {
    return "does not agree with its head";
  }
  if (head.label == 0 || head.label == UINT32_MAX) return "has no label";
  if (body.action > CLS_SET_PCP || body.pcp > 7) return "has no action";
  return Announced(number, entry) ? "" : "is not told of by its table or a filter";
}

bool TableGroup::Announced(uint32_t number, uint32_t entry) const {
  const cls_group& in = group();
  const cls_key& mask = arena_->entries.mask(entry);
  const cls_key& value = arena_->entries.value(entry);
  if (arena_->entries.head(entry).label < table(number).best) return false;
  const uint64_t hash = Hash(value & tables_[number].mask);
  const uint64_t sieve = SieveWord(tables_[number], hash);
  if (sieve != Sieved(sieve, hash, arena_->entries.head(entry).label)) return false;
  if ((in.flags & CLS_GROUP_NO_LINK) != 0 && (mask.word[0] | mask.word[1]) != 0) return false;
  for (uint32_t i = 0; i < in.field_count; ++i) {
    const cls_field& field = in.field[i];
    uint64_t told = field.exempt[number / 64];
    if ((mask.word[field.word] & field.mask) == field.mask) {
      const uint32_t hash = cls_filter_hash(value.word[field.word] & field.mask, field.bits);
      const auto* filter = arena_->memory->At<cls_filter>(CLS_FILTERS, field.base + hash);
      told |= filter->tables[number / 64];
    }
    if ((told >> (number % 64) & 1) == 0) return false;
  }
  return true;
}

}  // namespace host::classifier
