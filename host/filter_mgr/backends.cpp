#include "host/filter_mgr/backends.h"

#include <vector>

#include "host/filter_mgr/backend_names.h"
#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/memory_backend.h"
#include "host/filter_mgr/nftables/nftables_backend.h"
#include "host/runtime/log.h"

namespace host {
namespace {

std::unique_ptr<Backend> OpenBpf(const PortNames& names, std::string* reason) {
  EbpfOptions options;
  options.names = names;
  return EbpfBackend::Open(options, reason);
}

std::unique_ptr<Backend> OpenNftables(const PortNames& names, std::string* reason) {
  NftablesOptions options;
  options.names = names;
  std::vector<std::string> missing;
  options.features = ProbeKernel(&missing);
  auto backend = NftablesBackend::Open(options, reason);
  if (backend == nullptr) return nullptr;
  for (const std::string& line : missing) Log(LogLevel::kWarning, "%s", line.c_str());
  return backend;
}

std::unique_ptr<Backend> OpenMemory(const PortNames&, std::string*) {
  return std::make_unique<MemoryBackend>();
}

struct Kind {
  const char* name;
  // Null, with the reason, where it cannot be used.
  std::unique_ptr<Backend> (*open)(const PortNames& names, std::string* reason);
  bool enforces;
};

// The best one first.
constexpr Kind kKinds[] = {
    {kBpfBackend, OpenBpf, true},
    {kNftablesBackend, OpenNftables, true},
    {kMemoryBackend, OpenMemory, false},
};

}  // namespace

OpenedBackend OpenBackend(const std::string& setting, const PortNames& names) {
  std::string known, failures;
  for (const Kind& kind : kKinds) {
    known += std::string(", \"") + kind.name + "\"";
    const bool best = setting == kBestBackend && kind.enforces;
    if (!best && setting != kind.name) continue;
    std::string reason;
    auto backend = kind.open(names, &reason);
    if (backend != nullptr) {
      std::string why = best ? "the best that this kernel allows" : "as filter_backend says";
      const bool first = failures.empty();
      return {std::move(backend), first ? why : failures, kind.enforces, !first};
    }
    failures += failures.empty() ? "" : "; ";
    failures += best ? std::string("not by ") + kind.name + ": " + reason : reason;
  }
  if (!failures.empty()) return {nullptr, failures, false, false};
  return {nullptr,
          "unknown filter_backend \"" + setting + "\": there are \"" + kBestBackend + "\"" + known,
          false, false};
}

}  // namespace host
