#include "host/filter_mgr/flush.h"

#include "host/filter_mgr/backend_names.h"
#include "host/filter_mgr/ebpf/flush.h"
#include "host/filter_mgr/nftables/flush.h"

namespace host {
namespace {

// What removes all that a back end keeps in the kernel.
constexpr struct {
  const char* backend;
  int (*flush)(size_t* ports);
} kFlushes[] = {
    {kBpfBackend, [](size_t* ports) { return FlushEbpf(ports); }},
    {kNftablesBackend, FlushNftables},
};

}  // namespace

int FlushBackends(const std::string& but, size_t* ports) {
  int failure = 0;
  *ports = 0;
  for (const auto& [backend, flush] : kFlushes) {
    if (but == backend) continue;
    size_t count = 0;
    const int error = flush(&count);
    if (error != 0 && failure == 0) failure = error;
    if (error == 0) *ports += count;
  }
  return failure;
}

}  // namespace host
