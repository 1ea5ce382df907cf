// A commit as an operator's client sees it: from the request for one entry's change on the NETCONF
// socket to the reply, which comes after both groups are updated.
#include <benchmark/benchmark.h>

#include <algorithm>

#include "bench/client.h"
#include "bench/configuration.h"
#include "bench/daemon.h"
#include "bench/filter_groups.h"

namespace {

// Changes one entry after the other, of the first of the configuration's profiles.
void EditOneEntry(benchmark::State& state, const std::string& configuration, int entries,
                  const std::string& filter_backend) {
  Daemon daemon(configuration, filter_backend);
  daemon.RunInitialLoad();
  daemon.RunWith([&](const std::string& socket) {
    Client client(socket);
    int port = 0;
    double least = 1e9;
    for (auto _ : state) {
      const double start = Seconds();
      port = port % 60000 + 1;
      client.Send(ChangePort(port * 7919 % entries, port));
      if (client.Receive().find("<ok/>") == std::string::npos) {
        state.SkipWithError("the edit was refused");
        break;
      }
      least = std::min(least, Seconds() - start);
    }
    state.counters["least_us"] = least * 1e6;
  });
}

void BM_EditConfigOneEntry(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  EditOneEntry(state, ConfigurationJson(1, entries), entries, "memory");
}
BENCHMARK(BM_EditConfigOneEntry)
    ->ArgName("entries")
    ->RangeMultiplier(4)
    ->Range(1024, 65536)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

// The same down to the kernel, with each of the back ends that filter, in a network of its own.
void BM_EditConfigOneEntryEnforced(benchmark::State& state) {
  constexpr int kEntries = 65536;
  const int ports = static_cast<int>(state.range(0));
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(ports));
  for (int port = 0; port < ports; ++port) names.push_back(InterfaceName(port));
  if (!Enter(names)) {
    state.SkipWithError("no network namespace");
    return;
  }
  EditOneEntry(state, ConfigurationJson(ports, kEntries), kEntries / ports,
               state.range(1) != 0 ? "nftables" : "bpf");
}
BENCHMARK(BM_EditConfigOneEntryEnforced)
    ->ArgNames({"ports", "nft"})
    ->ArgsProduct({{1, 16, 64}, {0, 1}})
    ->Iterations(50)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace
