// How the filters are, in a line for the operator.
#ifndef HOST_FILTER_MGR_FILTERS_LINE_H_
#define HOST_FILTER_MGR_FILTERS_LINE_H_

#include <cstddef>
#include <map>
#include <string>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/backends.h"
#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/left_filters.h"
#include "host/runtime/status_board.h"

namespace host {

// Ports that are filtered by what was in the kernel at the start.
struct LeftInForce {
  size_t own = 0;                             // by the same back end, until a group takes its place
  std::map<std::string, LeftFilters> others;  // by others, until this one's groups are in force
};

// How many entries the groups in force have, and those that wait to take their place; a warning
// where one is nearly full, an error where none has entries because those sent were refused.
StatusLine GroupsLine(const GroupTable& table);

// Which back end is in force and why, and on how many ports. A warning where it is not the best
// one, where it filters nothing, where a port has no interface, or where what an earlier process
// left is still in force; an error where that is out of reach, where a port that is there is not
// filtered, or where nothing filters because the groups of `table` were refused.
StatusLine FiltersLine(const OpenedBackend& opened, const GroupTable& table,
                       const LeftInForce& left);

}  // namespace host

#endif  // HOST_FILTER_MGR_FILTERS_LINE_H_
