// What back ends keep in the kernel once no process has it: told, and removed on purpose.
#ifndef HOST_FILTER_MGR_FLUSH_H_
#define HOST_FILTER_MGR_FLUSH_H_

#include <cstddef>
#include <map>
#include <string>

namespace host {

// Removes all that back ends keep in the kernel, but for that of the one named `but` (empty: of
// all). Goes on with the others where one fails. 0 with the number of ports that were filtered in
// `*ports`, or the first failure's negative errno: -EPERM without the privilege, or while a running
// daemon owns it.
int FlushBackends(const std::string& but, size_t* ports);

// How many ports are filtered by what back ends other than `but` have left in the kernel, by the
// back end's name; none where that is 0. Running daemons' filters do not count. Logs what cannot be
// told.
std::map<std::string, size_t> LeftByBackends(const std::string& but);

}  // namespace host

#endif  // HOST_FILTER_MGR_FLUSH_H_
