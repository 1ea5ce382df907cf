// Removes filters on purpose.
#ifndef HOST_FILTER_MGR_FLUSH_H_
#define HOST_FILTER_MGR_FLUSH_H_

#include <cstddef>
#include <string>

namespace host {

// Removes all that back ends keep in the kernel, but for that of the one named `but` (empty: of
// all). Goes on with the others where one fails. 0 with the number of ports that were filtered in
// `*ports`, or the first failure's negative errno: -EPERM without the privilege, or while a running
// daemon owns it.
int FlushBackends(const std::string& but, size_t* ports);

}  // namespace host

#endif  // HOST_FILTER_MGR_FLUSH_H_
