// Filling the model and merging it, at 1,024 to 65,536 entries. The time per entry at the largest
// size is to be at most twice that at the smallest.
#include <benchmark/benchmark.h>

#include "bench/configuration.h"

namespace {

using acl_app::AclCache;

void PerEntry(benchmark::State& state, int64_t entries) {
  state.counters["per_entry"] = benchmark::Counter(
      static_cast<double>(entries),
      benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

// A model with every profile bound, built once, as a daemon builds it at its start.
AclCache& BoundModel(int profiles, int entries) {
  static std::map<std::pair<int, int>, std::unique_ptr<AclCache>> models;
  std::unique_ptr<AclCache>& model = models[{profiles, entries}];
  if (!model) {
    model = std::make_unique<AclCache>();
    FillProfiles(model.get(), profiles, entries);
    BindProfiles(model.get(), profiles);
  }
  return *model;
}

// Arguments: profiles, entries in all.
void BM_Fill(benchmark::State& state) {
  const int profiles = static_cast<int>(state.range(0));
  const int entries = static_cast<int>(state.range(1));
  for (auto _ : state) {
    auto cache = std::make_unique<AclCache>();
    FillProfiles(cache.get(), profiles, entries);
    state.PauseTiming();
    cache.reset();
    state.ResumeTiming();
  }
  PerEntry(state, entries);
}

void BM_Merge(benchmark::State& state) {
  const int profiles = static_cast<int>(state.range(0));
  const int entries = static_cast<int>(state.range(1));
  AclCache& cache = BoundModel(profiles, entries);
  std::list<FiltersCommon::FiltersGroup> groups;
  for (auto _ : state) {
    if (cache.MergeFilterEnvironment(groups) != acl_app::ACL_OK) state.SkipWithError("refused");
    state.PauseTiming();
    groups.clear();
    state.ResumeTiming();
  }
  PerEntry(state, entries);
}

void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgNames({"profiles", "entries"})->Unit(benchmark::kMillisecond);
  for (int profiles : {1, 64}) {
    for (int entries : {1024, 4096, 16384, 65536}) benchmark->Args({profiles, entries});
  }
}
BENCHMARK(BM_Merge)->Apply(Sizes);
BENCHMARK(BM_Fill)->Apply(Sizes);

}  // namespace
