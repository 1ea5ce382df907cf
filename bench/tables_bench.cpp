// Enforcement by tables: what a frame costs in the kernel's test runs, and what it takes to put
// groups in force, change one entry, start, and read all counters. In a network namespace and a BPF
// file system of its own, as root.
#include <benchmark/benchmark.h>
#include <bpf/bpf.h>
#include <linux/bpf.h>
#include <net/if.h>
#include <sched.h>

#include <algorithm>
#include <numeric>

#include "bench/filter_groups.h"
#include "bench/rule_frames.h"

namespace {

using FiltersCommon::FiltersGroup;

// Nanoseconds of a run on the frame, the mean of `repeat` runs one after the other.
double RunOnce(int program, int interface, const std::vector<uint8_t>& frame, int repeat) {
  __sk_buff context{};
  context.ifindex = static_cast<uint32_t>(interface);
  LIBBPF_OPTS(bpf_test_run_opts, run, .data_in = frame.data(),
              .data_size_in = static_cast<uint32_t>(frame.size()), .ctx_in = &context,
              .ctx_size_in = sizeof(context), .repeat = repeat);
  return bpf_prog_test_run_opts(program, &run) == 0 ? static_cast<double>(run.duration) : -1;
}

// The least of several series.
double RunFrame(int program, int interface, const std::vector<uint8_t>& frame, int series = 7,
                int repeat = 20000) {
  double least = 1e9;
  for (int i = 0; i < series; ++i) {
    least = std::min(least, RunOnce(program, interface, frame, repeat));
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

// A program that does nothing; its runs tell what the kernel's taking of time costs.
int LoadEmptyProgram() {
  const bpf_insn instructions[] = {{BPF_ALU64 | BPF_MOV | BPF_K, 0, 0, 0, 0},
                                   {BPF_JMP | BPF_EXIT, 0, 0, 0, 0}};
  return bpf_prog_load(BPF_PROG_TYPE_SCHED_CLS, "acl_empty", "GPL", instructions, 2, nullptr);
}

using Frames = std::vector<std::vector<uint8_t>>;

// What each frame costs where each is followed by another one, as in a network: the least of
// several rounds over all. In `*mean`, the mean of a round, the least of them.
std::vector<double> RunByTurns(int program, int interface, const Frames& frames, double* mean) {
  std::vector<double> least(frames.size(), 1e9);
  *mean = 1e9;
  for (int round = 0; round < 9; ++round) {
    double sum = 0;
    for (size_t i = 0; i < frames.size(); ++i) {
      const double taken = RunOnce(program, interface, frames[i], 1);
      least[i] = std::min(least[i], taken);
      sum += taken;
    }
    *mean = std::min(*mean, sum / static_cast<double>(frames.size()));
  }
  return least;
}

// The mean of the slowest hundredth.
double Worst(std::vector<double> times) {
  std::sort(times.begin(), times.end());
  const auto first = times.end() - static_cast<std::ptrdiff_t>(times.size() / 100);
  return std::accumulate(first, times.end(), 0.0) / static_cast<double>(times.end() - first);
}

// Rule sets as operators write them: what frames that meet them cost, searched each time, in an
// order at random (..._turns) and each again and again; and frames of few flows, by turns.
void BM_RuleSet(benchmark::State& state) {
  constexpr size_t kFrames = 8192, kFlows = 256;
  cpu_set_t one;  // test runs fill the cache of the processor that they are on
  CPU_ZERO(&one);
  CPU_SET(sched_getcpu(), &one);
  sched_setaffinity(0, sizeof(one), &one);
  const bench::Family family = bench::kFamilies[state.range(0)];
  const auto rules = bench::MakeRules(family, static_cast<size_t>(state.range(1)), 1);
  Frames frames;
  for (const cls_key& key : bench::MakeKeys(rules, kFrames, 2)) {
    frames.push_back(bench::FrameOf(key));
  }
  state.SetLabel(bench::NameOf(family));
  auto backend = Enter(1) ? OpenTables() : nullptr;
  if (backend == nullptr || !Apply(backend.get(), bench::GroupOf(rules))) {
    state.SkipWithError("no tables here");
    return;
  }
  const auto interface = static_cast<int>(if_nametoindex("port0"));
  const int program = backend->store().program(), empty = LoadEmptyProgram();
  for (auto _ : state) {
    const double start = Seconds();
    double clock = 0, mean = 0;
    RunByTurns(empty, interface, frames, &clock);
    RunByTurns(program, interface, Frames(frames.begin(), frames.begin() + kFlows), &mean);
    state.counters["flows_ns"] = mean - clock;
    backend->store().config()->cache_slice = 0;
    const std::vector<double> by_turns = RunByTurns(program, interface, frames, &mean);
    state.counters["mean_turns"] = mean - clock;
    state.counters["worst_turns"] = Worst(by_turns) - clock;
    std::vector<double> again;
    again.reserve(frames.size());
    for (const auto& frame : frames) again.push_back(RunFrame(program, interface, frame, 3, 100));
    state.counters["mean_ns"] = std::accumulate(again.begin(), again.end(), 0.0) / kFrames;
    state.counters["worst_ns"] = Worst(again);
    state.SetIterationTime(Seconds() - start);
  }
}
BENCHMARK(BM_RuleSet)
    ->ArgNames({"set", "entries"})
    ->ArgsProduct({{0, 1, 2, 3}, {1024, 16384, 65536}})
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
    const filter_config& config = *backend->store().config();
    state.counters["MiB_each_cpu"] =
        static_cast<double>(config.counter_slice * sizeof(filter_counter) +
                            config.cache_slice * sizeof(filter_cached)) /
        (1 << 20);
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
  double step = 0;  // the longest
  for (uint32_t port = 0, more = 1; more != 0;) {
    start = Seconds();
    more = backend->SampleCost(host::kL3, &port) ? 1 : 0;
    benchmark::DoNotOptimize(backend->CostOf(host::kL3));
    step = std::max(step, Seconds() - start);
  }
  state.counters["cost_step_ms"] = step * 1000;
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
