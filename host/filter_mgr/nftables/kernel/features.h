// What this kernel's packet filter can do, found out by trying.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_FEATURES_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_FEATURES_H_

#include <string>
#include <vector>

namespace host {

struct KernelFeatures {
  // Writing the PCP of a tagged frame does that and nothing else.
  bool set_pcp = false;
  // A table can belong to a socket, so that nobody else changes it, and outlive it.
  bool ownership = false;
  // A base chain names its interface, whether or not there is one of that name at the moment, and
  // follows the name. Otherwise it needs the interface and sticks to it.
  bool hooks_by_name = false;
};

// Tries each in a network namespace of its own, with real frames where it takes them. What cannot
// be tried, for lack of privileges for instance, counts as missing. `missing` gets a line for each
// feature that is: why, and what follows from it.
KernelFeatures ProbeKernel(std::vector<std::string>* missing);

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_FEATURES_H_
