// Our program at the ingress of interfaces, as the kernel tells it: also where the links that hold
// it there are pinned out of this process's sight, as in another mount namespace's BPF file system
// or behind a directory's permissions.
#ifndef HOST_FILTER_MGR_EBPF_SEEN_PROGRAMS_H_
#define HOST_FILTER_MGR_EBPF_SEEN_PROGRAMS_H_

#include <set>
#include <vector>

namespace host {

struct SeenPrograms {
  std::set<int> ours;     // interfaces with our program on a link
  std::set<int> unnamed;  // with programs whose names this process may not read
};

// Looks at these interfaces of this network namespace (bpf(2), BPF_PROG_QUERY). 0, also where the
// kernel has no such links; or a negative errno: -EPERM without CAP_NET_ADMIN.
int SeePrograms(const std::vector<int>& interfaces, SeenPrograms* seen);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_SEEN_PROGRAMS_H_
