// The names of the back ends, as settings, logs and operational data have them.
#ifndef HOST_FILTER_MGR_BACKEND_NAMES_H_
#define HOST_FILTER_MGR_BACKEND_NAMES_H_

namespace host {

constexpr char kBpfBackend[] = "bpf";
constexpr char kNftablesBackend[] = "nftables";
constexpr char kMemoryBackend[] = "memory";
// For the setting filter_backend: the best one that enforces anything.
constexpr char kBestBackend[] = "kernel";
constexpr const char* kBackendSettings[] = {kBestBackend, kBpfBackend, kNftablesBackend,
                                            kMemoryBackend};

}  // namespace host

#endif  // HOST_FILTER_MGR_BACKEND_NAMES_H_
