// The initial load: what the configuration manager reads through the cdb_* calls, and the whole
// start of the daemon from a start-up file to the submitted groups.
#include <benchmark/benchmark.h>

#include "bench/configuration.h"
#include "bench/daemon.h"

namespace {

void BM_InitialLoad(benchmark::State& state) {
  const int profiles = static_cast<int>(state.range(0));
  const int entries = static_cast<int>(state.range(1));
  for (auto _ : state) {
    Daemon daemon(ConfigurationJson(profiles, entries));
    state.SetIterationTime(daemon.RunInitialLoad());
  }
  state.counters["per_entry"] = benchmark::Counter(
      entries, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_InitialLoad)
    ->ArgNames({"profiles", "entries"})
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime()
    ->ArgsProduct({{1, 64}, {1024, 4096, 16384, 65536}});

}  // namespace
