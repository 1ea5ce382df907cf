// What processes that are gone have left of the tables: told, and removed on purpose.
#ifndef HOST_FILTER_MGR_EBPF_FLUSH_H_
#define HOST_FILTER_MGR_EBPF_FLUSH_H_

#include <cstddef>
#include <string>

#include "host/filter_mgr/left_filters.h"

namespace host {

constexpr char kEbpfDirectory[] = "/sys/fs/bpf/acl-app";

// Takes the program off all interfaces of this network namespace and removes the maps, the guards
// and everything pinned below `directory` for this namespace. 0 with the number of interfaces in
// `*filters`, or a negative errno: -EPERM without the privilege, or while a running daemon uses
// them; -EACCES when programs are in force that this process cannot reach, as `*filters` says. What
// is refused so has changed nothing. With `trial` no filter is removed either way.
int FlushEbpf(LeftFilters* filters, const std::string& directory = kEbpfDirectory,
              bool trial = false);

// How many interfaces of this network namespace have the program, by what is pinned and by what the
// kernel tells; a running daemon's are out of reach. 0, or a negative errno when there may be more.
int LeftByEbpf(LeftFilters* filters, const std::string& directory = kEbpfDirectory);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_FLUSH_H_
