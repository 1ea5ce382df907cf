// How the filters are, in a line for the operator.
#ifndef HOST_FILTER_MGR_FILTERS_LINE_H_
#define HOST_FILTER_MGR_FILTERS_LINE_H_

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/backends.h"
#include "host/runtime/status_board.h"

namespace host {

// Which back end is in force and why, and on how many ports. A warning where it is not the best
// one, where it filters nothing, or where a port has no interface; an error where a port that is
// there is not filtered.
StatusLine FiltersLine(const OpenedBackend& opened);

}  // namespace host

#endif  // HOST_FILTER_MGR_FILTERS_LINE_H_
