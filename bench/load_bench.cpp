// The start of the daemon to the submitted groups, from a start-up file and from the database; what
// of it the configuration manager takes to read all through the cdb_* calls; and the same
// configuration in one edit over NETCONF.
#include <benchmark/benchmark.h>

#include <chrono>

#include "bench/client.h"
#include "bench/configuration.h"
#include "bench/daemon.h"
#include "bench/filter_groups.h"
#include "bench/measure.h"

namespace {

using Clock = std::chrono::steady_clock;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

void CountMemory(benchmark::State& state) {
  state.counters["peak_MB"] = PeakMegabytes();
  state.counters["then_MB"] = ResidentMegabytes();
}

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

void BM_StartFromFile(benchmark::State& state) {
  const std::string configuration = ConfigurationJson(64, static_cast<int>(state.range(0)));
  for (auto _ : state) {
    ResetPeak();
    const auto start = Clock::now();
    Daemon daemon(configuration);
    daemon.RunInitialLoad();
    state.SetIterationTime(SecondsSince(start));
    CountMemory(state);
  }
}

void BM_StartFromDatabase(benchmark::State& state) {
  const auto scratch = std::make_shared<const Scratch>();
  {
    const Daemon first(ConfigurationJson(64, static_cast<int>(state.range(0))), "memory", scratch);
  }
  for (auto _ : state) {
    ResetPeak();
    const auto start = Clock::now();
    Daemon daemon("{}", "memory", scratch);  // what is stored goes before the file
    daemon.RunInitialLoad();
    state.SetIterationTime(SecondsSince(start));
    CountMemory(state);
  }
}

// The same where the filters of an earlier start are in force: they are taken over.
void BM_StartInForce(benchmark::State& state) {
  constexpr int kProfiles = 64, kEntries = 65536;
  const char* const backend = state.range(0) != 0 ? "nftables" : "bpf";
  std::vector<std::string> names;
  names.reserve(kProfiles);
  for (int i = 0; i < kProfiles; ++i) names.push_back(InterfaceName(i));
  if (!Enter(names)) {
    state.SkipWithError("no network namespace");
    return;
  }
  const auto scratch = std::make_shared<const Scratch>();
  {
    Daemon first(ConfigurationJson(kProfiles, kEntries), backend, scratch);
    first.RunInitialLoad();
  }
  for (auto _ : state) {
    const auto start = Clock::now();
    Daemon daemon("{}", backend, scratch);
    daemon.RunInitialLoad();
    state.SetIterationTime(SecondsSince(start));
  }
}
BENCHMARK(BM_StartInForce)
    ->ArgName("nft")
    ->Arg(0)
    ->Arg(1)
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond)
    ->UseManualTime();

void BM_WholeConfigurationOverNetconf(benchmark::State& state) {
  const std::string edit =
      R"(<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><edit-config>)"
      "<target><running/></target><config>" +
      ConfigurationXml(64, static_cast<int>(state.range(0))) + "</config></edit-config></rpc>";
  for (auto _ : state) {
    Daemon daemon("{}");
    daemon.RunInitialLoad();
    daemon.RunWith([&](const std::string& socket) {
      Client client(socket);
      ResetPeak();
      const auto start = Clock::now();
      client.Send(edit);
      if (client.Receive().find("<ok/>") == std::string::npos)
        state.SkipWithError("the edit was refused");
      state.SetIterationTime(SecondsSince(start));
    });
    CountMemory(state);
  }
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("entries")->Arg(64)->Arg(2048)->Arg(65536);
  benchmark->Unit(benchmark::kMillisecond)->UseManualTime();
}
BENCHMARK(BM_StartFromFile)->Apply(Sizes);
BENCHMARK(BM_StartFromDatabase)->Apply(Sizes);
BENCHMARK(BM_WholeConfigurationOverNetconf)->Apply(Sizes);

}  // namespace
