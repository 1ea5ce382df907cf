// What back ends keep in the kernel once no process has it: told, and removed on purpose.
#ifndef HOST_FILTER_MGR_FLUSH_H_
#define HOST_FILTER_MGR_FLUSH_H_

#include <cstddef>
#include <map>
#include <string>

#include "host/filter_mgr/left_filters.h"

namespace host {

// Removes all that back ends keep in the kernel, but for that of the one named `but` (empty: of
// all). 0 with the number of ports that were filtered in `*removed`; or a negative errno, with what
// stands in the way in `*removed`: -EPERM without the privilege, or while a running daemon owns it,
// -EACCES when it is out of reach. What can be refused is tried before anything is removed.
int FlushBackends(const std::string& but, LeftFilters* removed);

// What back ends other than `but` have left in the kernel, by the back end's name; nothing where no
// port is filtered. Rules that a running daemon owns do not count. Logs what cannot be told.
std::map<std::string, LeftFilters> LeftByBackends(const std::string& but);

}  // namespace host

#endif  // HOST_FILTER_MGR_FLUSH_H_
