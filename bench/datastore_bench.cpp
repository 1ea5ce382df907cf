// The datastore alone: a durable commit that changes one entry, which is to cost the same at any
// number of entries and, but for the disk, less than a millisecond; a whole configuration in one
// edit; and the start from what is stored.
#include <benchmark/benchmark.h>
#include <libyang/libyang.h>

#include <cstdio>
#include <cstdlib>

#include "bench/configuration.h"
#include "bench/measure.h"
#include "bench/scratch.h"
#include "host/cdb/datastore.h"

namespace {

using host::Datastore;
using host::DatastoreErrors;
using host::Tree;

void Require(const DatastoreErrors& errors) {
  if (errors.empty()) return;
  std::fprintf(stderr, "refused: %s: %s\n", errors[0].path.c_str(), errors[0].message.c_str());
  std::abort();
}

std::unique_ptr<Datastore> Open(const Scratch& scratch) {
  host::DatastoreOptions options;
  options.yang_directory = BENCH_YANG_DIRECTORY;
  options.state_directory = scratch.directory();
  options.group_capacity = 65536;
  DatastoreErrors errors;
  std::unique_ptr<Datastore> datastore = Datastore::Open(options, &errors);
  Require(errors);
  return datastore;
}

void Edit(Datastore* datastore, const std::string& json) {
  lyd_node* first = nullptr;
  if (lyd_parse_data_mem(datastore->Context(), json.c_str(), LYD_JSON,
                         LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &first) != LY_SUCCESS) {
    std::abort();
  }
  const Tree edit(first);
  Require(datastore->Edit(edit.get(), {}, {}));
}

void CountMemory(benchmark::State& state) {
  state.counters["peak_MB"] = PeakMegabytes();
  state.counters["then_MB"] = ResidentMegabytes();
}

// Sets the destination port of one entry, another one each time.
void BM_CommitOneEntry(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  const Scratch scratch;
  std::unique_ptr<Datastore> datastore = Open(scratch);
  Edit(datastore.get(), ConfigurationJson(1, entries));
  ResetPeak();
  int port = 0;
  const double synced = SyncSeconds();
  for (auto _ : state) {
    port = port % 60000 + 1;
    Edit(datastore.get(), OneEntryJson(0, port * 7919 % entries, port));
  }
  const auto commits = static_cast<double>(state.iterations());
  state.counters["sync_us"] = (SyncSeconds() - synced) * 1e6 / commits;
  state.counters["commits"] = benchmark::Counter(commits, benchmark::Counter::kIsRate);
  CountMemory(state);
}
BENCHMARK(BM_CommitOneEntry)
    ->ArgName("entries")
    ->Arg(64)
    ->Arg(2048)
    ->Arg(65536)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

void BM_WholeConfigurationInOneEdit(benchmark::State& state) {
  const std::string json = ConfigurationJson(1, static_cast<int>(state.range(0)));
  for (auto _ : state) {
    state.PauseTiming();
    const Scratch scratch;
    std::unique_ptr<Datastore> datastore = Open(scratch);
    ResetPeak();
    state.ResumeTiming();
    Edit(datastore.get(), json);
    state.PauseTiming();
    CountMemory(state);
    datastore.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_WholeConfigurationInOneEdit)
    ->ArgName("entries")
    ->Arg(2048)
    ->Arg(65536)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

void BM_OpenStored(benchmark::State& state) {
  const Scratch scratch;
  Edit(Open(scratch).get(), ConfigurationJson(1, static_cast<int>(state.range(0))));
  for (auto _ : state) {
    state.PauseTiming();
    ResetPeak();
    state.ResumeTiming();
    std::unique_ptr<Datastore> datastore = Open(scratch);
    state.PauseTiming();
    CountMemory(state);
    datastore.reset();
    state.ResumeTiming();
  }
}
BENCHMARK(BM_OpenStored)
    ->ArgName("entries")
    ->Arg(2048)
    ->Arg(65536)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace
