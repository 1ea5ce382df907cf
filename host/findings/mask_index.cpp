#include "host/findings/mask_index.h"

#include <algorithm>

namespace host::findings {
namespace {

constexpr size_t kFirstSlots = 4;

uint64_t Fold(const cls_key& mask) {
  return mask.word[0] | mask.word[1] << 7 | mask.word[2] | mask.word[3] << 32;
}

size_t Place(const cls_key& value) { return CLS_HASH_POSITION(classifier::Hash(value)); }

// The single bits of `mask`.
std::vector<cls_key> BitsOf(const cls_key& mask) {
  std::vector<cls_key> bits;
  for (int i = 0; i < 4; ++i) {
    for (uint64_t left = mask.word[i]; left != 0; left &= left - 1) {
      cls_key bit{};
      bit.word[i] = left & -left;
      bits.push_back(bit);
    }
  }
  return bits;
}

cls_key operator|(const cls_key& a, const cls_key& b) {
  return {
      {a.word[0] | b.word[0], a.word[1] | b.word[1], a.word[2] | b.word[2], a.word[3] | b.word[3]}};
}

cls_key Without(const cls_key& a, const cls_key& b) {
  return {{a.word[0] & ~b.word[0], a.word[1] & ~b.word[1], a.word[2] & ~b.word[2],
           a.word[3] & ~b.word[3]}};
}

// The ones in all words: in pairs of bits, in nibbles, in bytes, all words beside each other.
int CountBits(const cls_key& mask) {
  constexpr uint64_t kPairs = 0x5555555555555555, kNibbles = 0x3333333333333333,
                     kBytes = 0x0f0f0f0f0f0f0f0f;
  uint64_t bytes = 0;
  for (uint64_t word : mask.word) {
    word -= word >> 1 & kPairs;
    word = (word & kNibbles) + (word >> 2 & kNibbles);
    bytes += (word + (word >> 4)) & kBytes;
  }
  // The words have 256 bits, one more than a byte can count.
  return static_cast<int>((bytes & 0x00ff00ff00ff00ff) * 0x0001000100010001 >> 48) +
         static_cast<int>((bytes >> 8 & 0x00ff00ff00ff00ff) * 0x0001000100010001 >> 48);
}

}  // namespace

// The slot of the set of that value in the table, or the free one where it belongs.
uint32_t* MaskIndex::Slot(Table* table, const cls_key& value) const {
  size_t at = Place(value);
  for (;; ++at) {
    uint32_t* slot = &table->slots[at & (table->slots.size() - 1)];
    if (*slot == kNone || sets_[*slot].value == value) return slot;
  }
}

uint32_t MaskIndex::Find(const Table& table, const cls_key& value) const {
  for (size_t at = Place(value);; ++at) {
    const uint32_t place = table.slots[at & (table.slots.size() - 1)];
    if (place == kNone || sets_[place].value == value) return place;
  }
}

void MaskIndex::Insert(Table* table, uint32_t place) {
  table->sets.push_back(place);
  if (table->sets.size() * 2 > table->slots.size()) {
    table->slots.assign(table->slots.size() * 2, kNone);
    for (const uint32_t old : table->sets) *Slot(table, sets_[old].value) = old;
  } else {
    *Slot(table, sets_[place].value) = place;
  }
}

void MaskIndex::Add(const FrameSet& set) {
  const auto [known, is_new] =
      table_of_.try_emplace({set.mask, set.classes}, static_cast<uint32_t>(tables_.size()));
  if (is_new) {
    tables_.push_back({std::vector<uint32_t>(kFirstSlots, kNone), {}});
    extents_.push_back({set.mask, set.classes, 0});
    folds_.push_back(Fold(set.mask));
  }
  Table* table = &tables_[known->second];
  if (Find(*table, set.value) == kNone) {
    sets_.push_back(set);
    entries_.push_back(next_);
    Insert(table, static_cast<uint32_t>(sets_.size() - 1));
    ++extents_[known->second].sets;
  }
  ++next_;
}

uint32_t MaskIndex::FirstCovering(const FrameSet& set, uint64_t* work) const {
  const uint64_t fold = Fold(set.mask);
  const Classes classes = set.classes & CompleteClasses();
  uint32_t first = kNone;
  for (size_t i = 0; i < folds_.size(); ++i) {
    if ((folds_[i] & ~fold) != 0) continue;
    const Extent& extent = extents_[i];
    if ((extent.classes & classes) != classes) continue;
    if (!classifier::Covers(extent.mask, set.mask)) continue;
    const uint32_t place = Find(tables_[i], set.value & extent.mask);
    if (place != kNone) first = std::min(first, entries_[place]);
    *work += kLookUpWork;
  }
  *work += folds_.size() / 4;
  return first;
}

const FrameSet& MaskIndex::SetOf(uint32_t entry) const {
  return sets_[std::lower_bound(entries_.begin(), entries_.end(), entry) - entries_.begin()];
}

// Most cubes are not filled: so no way is noted before that is known.
bool MaskIndex::MayFill(const Cube& cube, size_t class_number, std::vector<Way>* ways) const {
  double filled = 0;
  for (const bool note : {false, true}) {
    for (size_t i = 0; i < extents_.size(); ++i) {
      const Extent& extent = extents_[i];
      if ((extent.classes >> class_number & 1) == 0) continue;
      const cls_key extra = Without(extent.mask, cube.mask);
      const int bits = CountBits(extra);
      if (bits > kMostBits) continue;
      const size_t most = std::min<size_t>(extent.sets, size_t{1} << bits);
      if (most > kMostOfTable) continue;
      if (note) ways->push_back({static_cast<uint32_t>(i), extra, most < extent.sets});
      filled += static_cast<double>(most) / static_cast<double>(uint64_t{1} << bits);
    }
    if (filled < 1) return false;
  }
  return true;
}

void MaskIndex::Meeting(const Cube& cube, size_t class_number, std::vector<uint32_t>* found,
                        uint64_t* work) const {
  *work += tables_.size() * kTableWork;
  std::vector<Way> ways;
  if (!MayFill(cube, class_number, &ways)) return;
  const auto take = [&](uint32_t place) {
    ++*work;
    if (place == kNone) return;
    if (Meet(sets_[place].value, sets_[place].mask, cube)) found->push_back(place);
  };
  for (const Way& way : ways) {
    const Table& table = tables_[way.table];
    if (!way.look_up) {
      for (const uint32_t place : table.sets) take(place);
      continue;
    }
    std::vector<cls_key> values = {cube.value & extents_[way.table].mask};
    for (const cls_key& bit : BitsOf(way.extra)) {
      const size_t count = values.size();
      for (size_t i = 0; i < count; ++i) values.push_back(values[i] | bit);
    }
    *work += values.size() * kLookUpWork;
    for (const cls_key& value : values) take(Find(table, value));
  }
  std::sort(found->begin(), found->end());
}

}  // namespace host::findings
