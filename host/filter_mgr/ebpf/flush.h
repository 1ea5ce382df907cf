// What processes that are gone have left of the tables: told, and removed on purpose.
#ifndef HOST_FILTER_MGR_EBPF_FLUSH_H_
#define HOST_FILTER_MGR_EBPF_FLUSH_H_

#include <cstddef>
#include <string>

namespace host {

constexpr char kEbpfDirectory[] = "/sys/fs/bpf/acl-app";

// Takes the program off all interfaces of this network namespace and removes the maps, the guards
// and everything pinned below `directory` for this namespace. 0 with the number of interfaces in
// `*ports`, or a negative errno: -EPERM without the privilege, or while a running daemon uses them.
int FlushEbpf(size_t* ports, const std::string& directory = kEbpfDirectory);

// How many interfaces of this network namespace have a program that no running daemon keeps. 0,
// with their number in `*ports`, or a negative errno. Counts without the privilege for BPF, too.
int LeftByEbpf(size_t* ports, const std::string& directory = kEbpfDirectory);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_FLUSH_H_
