// A commit as an operator's client sees it: from the request for one entry's change on the NETCONF
// socket to the reply, which comes after both groups are updated.
#include <benchmark/benchmark.h>
#include <pthread.h>

#include <algorithm>
#include <chrono>
#include <thread>
#include <vector>

#include "bench/client.h"
#include "bench/configuration.h"
#include "bench/daemon.h"
#include "bench/filter_groups.h"

namespace {

// Microseconds by a clock of clock_gettime(2).
double Microseconds(clockid_t clock) {
  timespec now = {};
  clock_gettime(clock, &now);
  return 1e6 * static_cast<double>(now.tv_sec) + 1e-3 * static_cast<double>(now.tv_nsec);
}

double Median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return values.empty() ? 0 : *middle;
}

// Changes one entry after the other, of the first of the configuration's profiles, each so long
// after the reply to the one before. `cpu_us` is what the daemon's thread works meanwhile.
void EditOneEntry(benchmark::State& state, const std::string& configuration, int entries,
                  const std::string& filter_backend, std::chrono::milliseconds pause = {}) {
  Daemon daemon(configuration, filter_backend);
  daemon.RunInitialLoad();
  clockid_t cpu = 0;
  if (pthread_getcpuclockid(pthread_self(), &cpu) != 0) std::abort();
  daemon.RunWith([&](const std::string& socket) {
    Client client(socket);
    int port = 0;
    std::vector<double> times, works;
    for (auto _ : state) {
      std::this_thread::sleep_for(pause);
      const double start = Microseconds(CLOCK_MONOTONIC), work = Microseconds(cpu);
      port = port % 60000 + 1;
      client.Send(ChangePort(port * 7919 % entries, port));
      if (client.Receive().find("<ok/>") == std::string::npos) {
        state.SkipWithError("the edit was refused");
        break;
      }
      works.push_back(Microseconds(cpu) - work);
      times.push_back(Microseconds(CLOCK_MONOTONIC) - start);
      state.SetIterationTime(times.back() * 1e-6);
    }
    state.counters["least_us"] = times.empty() ? 0 : *std::min_element(times.begin(), times.end());
    state.counters["median_us"] = Median(std::move(times));
    state.counters["cpu_us"] = Median(std::move(works));
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
    ->UseManualTime();

// The same down to the kernel, with each of the back ends that filter, in a network of its own: one
// commit behind the other, or each by itself, when all work that may wait is done.
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
               state.range(1) != 0 ? "nftables" : "bpf", std::chrono::milliseconds(state.range(2)));
}
BENCHMARK(BM_EditConfigOneEntryEnforced)
    ->ArgNames({"ports", "nft", "pause_ms"})
    ->ArgsProduct({{1, 16, 64}, {0, 1}, {0, 50}})
    ->Iterations(50)
    ->Unit(benchmark::kMicrosecond)
    ->UseManualTime();

}  // namespace
