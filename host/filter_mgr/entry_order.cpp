#include "host/filter_mgr/entry_order.h"

#include <algorithm>

namespace host {

std::vector<const FiltersCommon::FiltersEntry*> EntriesInOrder(
    const FiltersCommon::FiltersGroup& group) {
  std::vector<const FiltersCommon::FiltersEntry*> result;
  result.reserve(group.getEntriesRef().size());
  for (const auto& [id, entry] : group.getEntriesRef()) result.push_back(&entry);
  const auto before = [](const auto* a, const auto* b) {
    return a->getPriority() < b->getPriority();
  };
  // Ids and priorities mostly ascend together.
  if (!std::is_sorted(result.begin(), result.end(), before)) {
    std::stable_sort(result.begin(), result.end(), before);
  }
  return result;
}

FiltersCommon::EntryRows RowsInOrder(const FiltersCommon::FiltersGroup& group) {
  FiltersCommon::EntryRows rows;
  for (const FiltersCommon::FiltersEntry* entry : EntriesInOrder(group)) rows.Add(*entry);
  return rows;
}

}  // namespace host
