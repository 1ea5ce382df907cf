// The datastore alone: loading a configuration, and a commit that changes one entry. The commit is
// to cost the same at any number of entries, and below a millisecond.
#include <benchmark/benchmark.h>
#include <libyang/libyang.h>

#include <cstdio>
#include <cstdlib>
#include <map>

#include "bench/configuration.h"
#include "bench/scratch.h"
#include "host/cdb/datastore.h"

namespace {

using host::Datastore;
using host::DatastoreErrors;

void Require(const DatastoreErrors& errors) {
  if (errors.empty()) return;
  std::fprintf(stderr, "refused: %s: %s\n", errors[0].path.c_str(), errors[0].message.c_str());
  std::abort();
}

std::unique_ptr<Datastore> OpenWith(const Scratch& scratch, const std::string& startup_file) {
  host::DatastoreOptions options;
  options.yang_directory = BENCH_YANG_DIRECTORY;
  options.startup_file = startup_file;
  options.state_directory = scratch.directory();
  DatastoreErrors errors;
  std::unique_ptr<Datastore> datastore = Datastore::Open(options, &errors);
  Require(errors);
  return datastore;
}

void BM_Load(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  for (auto _ : state) {
    state.PauseTiming();
    const Scratch scratch;
    const std::string file = scratch.Write("startup.json", ConfigurationJson(1, entries));
    state.ResumeTiming();
    std::unique_ptr<Datastore> datastore = OpenWith(scratch, file);
    state.PauseTiming();
    datastore.reset();
    state.ResumeTiming();
  }
  state.counters["per_entry"] = benchmark::Counter(
      entries, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// Sets the destination port of one entry, another one each time.
void BM_CommitOneEntry(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  const Scratch scratch;
  std::unique_ptr<Datastore> datastore =
      OpenWith(scratch, scratch.Write("startup.json", ConfigurationJson(1, entries)));
  int port = 0;
  for (auto _ : state) {
    port = port % 60000 + 1;
    const std::string text = OneEntryJson(0, port * 7919 % entries, port);
    lyd_node* edit = nullptr;
    if (lyd_parse_data_mem(datastore->Context(), text.c_str(), LYD_JSON,
                           LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &edit) != LY_SUCCESS) {
      std::abort();
    }
    Require(datastore->Edit(edit, {}, {}));
    lyd_free_all(edit);
  }
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgName("entries")->RangeMultiplier(4)->Range(1024, 65536);
}
BENCHMARK(BM_Load)->Apply(Sizes)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_CommitOneEntry)->Apply(Sizes)->Unit(benchmark::kMicrosecond);

}  // namespace
