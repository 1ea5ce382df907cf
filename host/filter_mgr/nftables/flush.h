// What processes that are gone have left in the kernel's packet filter: told, and removed on
// purpose.
#ifndef HOST_FILTER_MGR_NFTABLES_FLUSH_H_
#define HOST_FILTER_MGR_NFTABLES_FLUSH_H_

#include <cstddef>

namespace host {

// Removes all tables of the Filter Manager from the kernel's packet filter, in one transaction. 0
// with the number of ports in `*ports`, or a negative errno: -EPERM without CAP_NET_ADMIN, or while
// a running daemon owns a table.
int FlushNftables(size_t* ports);

// How many ports have a table that no process owns. 0, with their number in `*ports`, or a negative
// errno.
int LeftByNftables(size_t* ports);

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_FLUSH_H_
