#include "host/filter_mgr/flush.h"

#include <cstring>

#include "host/filter_mgr/backend_names.h"
#include "host/filter_mgr/ebpf/flush.h"
#include "host/filter_mgr/nftables/flush.h"
#include "host/runtime/log.h"

namespace host {
namespace {

// What a back end keeps in the kernel: both give 0 with a number of ports, or a negative errno.
constexpr struct Keeper {
  const char* backend;
  int (*flush)(size_t* ports);
  int (*left)(size_t* ports);
} kKeepers[] = {
    {kBpfBackend, [](size_t* ports) { return FlushEbpf(ports); },
     [](size_t* ports) { return LeftByEbpf(ports); }},
    {kNftablesBackend, FlushNftables, LeftByNftables},
};

}  // namespace

int FlushBackends(const std::string& but, size_t* ports) {
  int failure = 0;
  *ports = 0;
  for (const Keeper& keeper : kKeepers) {
    if (but == keeper.backend) continue;
    size_t count = 0;
    const int error = keeper.flush(&count);
    if (error != 0 && failure == 0) failure = error;
    if (error == 0) *ports += count;
  }
  return failure;
}

std::map<std::string, size_t> LeftByBackends(const std::string& but) {
  std::map<std::string, size_t> left;
  for (const Keeper& keeper : kKeepers) {
    if (but == keeper.backend) continue;
    size_t ports = 0;
    const int error = keeper.left(&ports);
    if (error != 0) {
      Log(LogLevel::kInfo, "whether %s has left filters cannot be told: %s", keeper.backend,
          std::strerror(-error));
    }
    if (ports != 0) left.emplace(keeper.backend, ports);
  }
  return left;
}

}  // namespace host
