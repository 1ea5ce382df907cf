// What daemons of network namespaces that are gone have left.
#ifndef HOST_FILTER_MGR_EBPF_DEAD_STORES_H_
#define HOST_FILTER_MGR_EBPF_DEAD_STORES_H_

#include <string>

namespace host {

// Removes the stores below `directory` that no daemon uses and of whose links none is alive. A
// namespace takes its interfaces with it, but not what is pinned. Only where programs hang on
// links: otherwise nothing tells. A namespace that is there, but whose ports were all made anew
// while its daemon was away, looks the same: it loses what its entries have counted; its guards,
// which are not pinned, keep the ports shut until its daemon has made the filters anew.
void RemoveDeadStores(const std::string& directory);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_DEAD_STORES_H_
