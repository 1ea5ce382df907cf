// Enforcement by tables: what a frame costs in the kernel's test runs, and what it takes to put
// groups in force, change one entry, start, and read all counters. In a network namespace and a BPF
// file system of its own, as root.
#include <benchmark/benchmark.h>
#include <bpf/bpf.h>
#include <net/if.h>

#include <algorithm>

#include "bench/filter_groups.h"

namespace {

using FiltersCommon::FiltersGroup;

// Nanoseconds of one run on the frame, the least of several series.
double RunFrame(int program, int interface, const std::vector<uint8_t>& frame) {
  double least = 1e9;
  for (int i = 0; i < 7; ++i) {
    __sk_buff context{};
    context.ifindex = static_cast<uint32_t>(interface);
    LIBBPF_OPTS(bpf_test_run_opts, run, .data_in = frame.data(),
                .data_size_in = static_cast<uint32_t>(frame.size()), .ctx_in = &context,
                .ctx_size_in = sizeof(context), .repeat = 20000);
    if (bpf_prog_test_run_opts(program, &run) != 0) return -1;
    least = std::min(least, static_cast<double>(run.duration));
  }
  return least;
}

// The program on one frame again and again: from the cache of decisions, and searched each time.
void BM_Frame(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const auto kind = static_cast<Kind>(state.range(1));
  auto backend = Enter(1) ? OpenTables() : nullptr;
  if (backend == nullptr || !Apply(backend.get(), MakeGroup(count, 1, kind))) {
    state.SkipWithError("no tables here");
    return;
  }
  const auto interface = static_cast<int>(if_nametoindex("port0"));
  const int program = backend->store().program();
  for (auto _ : state) {
    const double start = Seconds();
    const uint32_t cache = backend->store().config()->cache_slice;
    state.counters["cached_ns"] = RunFrame(program, interface, FrameOf(0));
    backend->store().config()->cache_slice = 0;
    state.counters["first_ns"] = RunFrame(program, interface, FrameOf(0));
    state.counters["last_ns"] = RunFrame(program, interface, FrameOf(count - 1));
    state.counters["none_ns"] = RunFrame(program, interface, FrameOf(-1));
    backend->store().config()->cache_slice = cache;
    state.SetIterationTime(Seconds() - start);
  }
}
BENCHMARK(BM_Frame)
    ->ArgNames({"entries", "l2"})
    ->ArgsProduct({{16, 256, 1024, 16384, 65536}, {kL3Entries, kL2Entries}})
    ->UseManualTime()
    ->Iterations(1);

// A whole group, from nothing.
void BM_Program(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  for (auto _ : state) {
    auto backend = Enter(ports) ? OpenTables() : nullptr;
    const FiltersGroup group = MakeGroup(kMostEntries, ports, kL3Entries);
    const double start = Seconds();
    if (backend == nullptr || !Apply(backend.get(), group)) state.SkipWithError("no tables here");
    state.SetIterationTime(Seconds() - start);
    if (backend == nullptr) return;
    state.counters["MiB"] = static_cast<double>(backend->store().bytes()) / (1 << 20);
  }
}

// One entry going and coming back by turns, from updateGroup() to in force; the start over what is
// in force; and the counters of all entries.
void BM_Change(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  auto backend = Enter(ports) ? OpenTables() : nullptr;
  if (backend == nullptr || !Apply(backend.get(), MakeGroup(kMostEntries, ports, kL3Entries))) {
    state.SkipWithError("no tables here");
    return;
  }
  double least[2] = {1e9, 1e9};
  int left_out = -1;
  for (auto _ : state) {
    left_out = left_out < 0 ? kMostEntries / 3 : -1;
    const FiltersGroup group = MakeGroup(kMostEntries, ports, kL3Entries, left_out);
    const double start = Seconds();
    if (!Apply(backend.get(), group)) state.SkipWithError("refused");
    const double taken = Seconds() - start;
    state.SetIterationTime(taken);
    least[left_out < 0] = std::min(least[left_out < 0], taken);
    backend->Idle();
    backend->Poll();
  }
  state.counters["remove_ms"] = least[0] * 1000;
  state.counters["add_ms"] = least[1] * 1000;
  double start = 0, hits = 1e9;
  for (int i = 0; i < 10; ++i) {
    start = Seconds();
    benchmark::DoNotOptimize(backend->HitsOf(host::kL3));
    hits = std::min(hits, Seconds() - start);
  }
  state.counters["hits_ms"] = hits * 1000;
  backend.reset();
  const FiltersGroup group = MakeGroup(kMostEntries, ports, kL3Entries, left_out);
  start = Seconds();
  backend = OpenTables();
  state.counters["adopt_ms"] = (Seconds() - start) * 1000;
  start = Seconds();
  if (backend == nullptr || !Apply(backend.get(), group)) state.SkipWithError("refused");
  state.counters["compare_ms"] = (Seconds() - start) * 1000;
  state.counters["writes"] = static_cast<double>(backend->writes());
}

BENCHMARK(BM_Program)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(64)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Change)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(16)
    ->Arg(64)
    ->UseManualTime()
    ->Iterations(30)
    ->Unit(benchmark::kMillisecond);

}  // namespace
