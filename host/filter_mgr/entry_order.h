// A group's entries in the order of their evaluation.
#ifndef HOST_FILTER_MGR_ENTRY_ORDER_H_
#define HOST_FILTER_MGR_ENTRY_ORDER_H_

#include <vector>

#include "platform/filters_common/entry_rows.h"
#include "platform/filters_common/filters_group.h"

namespace host {

// The entries by ascending priority, and by id where that is the same. Valid until the group is
// changed or gone.
std::vector<const FiltersCommon::FiltersEntry*> EntriesInOrder(
    const FiltersCommon::FiltersGroup& group);

// The same as rows, valid for as long.
FiltersCommon::EntryRows RowsInOrder(const FiltersCommon::FiltersGroup& group);

}  // namespace host

#endif  // HOST_FILTER_MGR_ENTRY_ORDER_H_
