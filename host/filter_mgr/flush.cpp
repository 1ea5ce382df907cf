#include "host/filter_mgr/flush.h"

#include <cstring>

#include "host/filter_mgr/backend_names.h"
#include "host/filter_mgr/ebpf/flush.h"
#include "host/filter_mgr/nftables/flush.h"
#include "host/runtime/log.h"

namespace host {
namespace {

// What a back end keeps in the kernel: all give 0 or a negative errno.
constexpr struct Keeper {
  const char* backend;
  int (*try_flush)(LeftFilters* filters);  // null: a flush does all or nothing
  int (*flush)(LeftFilters* filters);
  int (*left)(LeftFilters* filters);
} kKeepers[] = {
    {kNftablesBackend, nullptr, [](LeftFilters* filters) { return FlushNftables(&filters->ports); },
     [](LeftFilters* filters) { return LeftByNftables(&filters->ports); }},
    {kBpfBackend, [](LeftFilters* filters) { return FlushEbpf(filters, kEbpfDirectory, true); },
     [](LeftFilters* filters) { return FlushEbpf(filters); },
     [](LeftFilters* filters) { return LeftByEbpf(filters); }},
};

}  // namespace

int FlushBackends(const std::string& but, LeftFilters* removed) {
  *removed = {};
  for (const auto step : {&Keeper::try_flush, &Keeper::flush}) {
    for (const Keeper& keeper : kKeepers) {
      if (but == keeper.backend || keeper.*step == nullptr) continue;
      LeftFilters filters;
      const int error = (keeper.*step)(&filters);
      if (error != 0) {
        *removed = filters;
        return error;
      }
      if (step == &Keeper::flush) removed->ports += filters.ports;
    }
  }
  return 0;
}

std::map<std::string, LeftFilters> LeftByBackends(const std::string& but) {
  std::map<std::string, LeftFilters> left;
  for (const Keeper& keeper : kKeepers) {
    if (but == keeper.backend) continue;
    LeftFilters filters;
    const int error = keeper.left(&filters);
    if (error != 0) {
      Log(LogLevel::kInfo, "whether %s has left filters cannot be told: %s", keeper.backend,
          std::strerror(-error));
    }
    if (filters.ports != 0) left.emplace(keeper.backend, filters);
  }
  return left;
}

}  // namespace host
