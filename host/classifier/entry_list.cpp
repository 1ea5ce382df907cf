#include "host/classifier/entry_list.h"

#include <algorithm>

namespace host::classifier {
namespace {

// Behind the last entry, labels go on at this distance while there is room: room for as many
// entries as there are indexes, and for insertions between them.
constexpr uint32_t kAppendStep = 1U << 12;

// A range of 2^n labels may hold so much of 2^n entries, each doubling less by this factor. So the
// work of spreading is spread as well (Bender et al., "Two simplified algorithms for maintaining
// order in a list", ESA 2002).
constexpr double kThinning = 1.4;

}  // namespace

uint32_t EntryList::LabelAfter(EntryId id, EntryId sentinel, bool tight) const {
  const uint32_t before = id == sentinel ? kFirstLabel : nodes_[id].label;
  const uint32_t behind = LabelBehind(id, sentinel);
  const uint32_t free = behind - before - 1;
  if (free == 0) return 0;
  if (tight) return before + 1;
  if (behind == kLastLabel) return before + std::min((free + 1) / 2, kAppendStep);
  // Runs of insertions go forward mostly, each behind the last: they get the larger part.
  return before + 1 + free / 4;
}

EntryList::Spread EntryList::SpreadAround(EntryId id, EntryId sentinel) const {
  const uint32_t around = id == sentinel ? kFirstLabel : nodes_[id].label;
  EntryId first = id == sentinel ? nodes_[id].next : id;
  EntryId last = first;
  size_t count = 1;
  double capacity = 1;
  for (uint32_t log2 = 1;; ++log2) {
    capacity *= 2 / kThinning;
    const uint64_t size = 1ULL << log2;
    const auto low = static_cast<uint32_t>(around & ~(size - 1));
    const auto high = static_cast<uint32_t>(low + (size - 1));
    while (nodes_[first].prev != sentinel && nodes_[nodes_[first].prev].label >= low) {
      first = nodes_[first].prev;
      ++count;
    }
    while (nodes_[last].next != sentinel && nodes_[nodes_[last].next].label <= high) {
      last = nodes_[last].next;
      ++count;
    }
    // One more is to come, and the ends of all labels are taken.
    const uint64_t step = (size - 2) / (count + 1);
    if ((static_cast<double>(count) <= capacity && step >= 3) || log2 == 32) {
      return {first, count, static_cast<uint32_t>(low + step), static_cast<uint32_t>(step)};
    }
  }
}

}  // namespace host::classifier
