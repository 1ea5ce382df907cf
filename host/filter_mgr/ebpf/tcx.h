// What tc's BPF hook of newer kernels is called (linux/bpf.h of 6.6, which Debian 12's headers
// lack).
#ifndef HOST_FILTER_MGR_EBPF_TCX_H_
#define HOST_FILTER_MGR_EBPF_TCX_H_

#include <linux/bpf.h>

#include <cstdint>

namespace host {

constexpr auto kTcxIngress = static_cast<bpf_attach_type>(46);
constexpr uint32_t kMostTcxPrograms = 64;  // of an interface (BPF_MPROG_MAX)

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_TCX_H_
