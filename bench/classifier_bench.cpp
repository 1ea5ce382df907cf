// The classifier alone: what a search costs by the size and kind of a rule set, and what building
// and changing its tables cost. In this process; the searches are the BPF program's.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <set>

#include "bench/rule_sets.h"
#include "host/classifier/classifier.h"
#include "host/classifier/linear_matcher.h"

namespace {

using host::classifier::Classifier;
using host::classifier::EntryId;
using host::classifier::Refusal;
using host::classifier::Rule;

constexpr size_t kSizes[] = {16, 256, 1024, 16384, 65536};
constexpr size_t kKeys = 16384;
constexpr int kChanges = 2000;

// Of this thread's work, so that what else the machine does is left out.
double Now() {
  timespec now{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double WallClock() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

void CheckThat(bool holds, const std::string& why) {
  if (holds) return;
  std::fprintf(stderr, "%s\n", why.c_str());
  std::exit(1);
}

size_t Masks(const std::vector<Rule>& rules) {
  std::set<std::vector<uint64_t>> masks;
  for (const Rule& rule : rules) {
    masks.insert(std::vector<uint64_t>(std::begin(rule.mask.word), std::end(rule.mask.word)));
  }
  return masks.size();
}

struct Figures {
  double mean_ns = 0, worst_ns = 0;  // worst: of the slowest 1 % of keys, each the best of 5
  double tables = 0, probes = 0;
  uint32_t most_tables = 0;
};

Figures MeasureSearch(const host::classifier::Memory& memory, uint64_t generation,
                      const std::vector<cls_key>& keys) {
  Figures found;
  std::vector<double> times(keys.size(), 1e9);
  double best = 1e9;
  for (int round = 0; round < 5; ++round) {
    const double start = Now();
    uint64_t sum = 0;
    for (const cls_key& key : keys) {
      sum += host::classifier::Search(memory, 0, key, generation);
    }
    best = std::min(best, (Now() - start) / static_cast<double>(keys.size()));
    CheckThat(sum != 1, "not to be left out");
  }
  for (int round = 0; round < 5; ++round) {
    for (size_t i = 0; i < keys.size(); ++i) {
      const double start = WallClock();
      host::classifier::Search(memory, 0, keys[i], generation);
      times[i] = std::min(times[i], WallClock() - start);
    }
  }
  for (const cls_key& key : keys) {
    host::classifier::SearchCount count;
    host::classifier::Search(memory, 0, key, generation, &count);
    found.tables += count.tables / static_cast<double>(keys.size());
    found.probes += count.probes / static_cast<double>(keys.size());
    found.most_tables = std::max(found.most_tables, count.tables);
  }
  std::sort(times.begin(), times.end());
  found.mean_ns = best * 1e9;
  found.worst_ns = times[times.size() * 99 / 100] * 1e9;
  return found;
}

// Removes an entry and inserts it again at its place, published each time; the time of one change.
double MeasureChange(Classifier* classifier, const std::vector<Rule>& rules,
                     std::vector<EntryId>* ids) {
  std::vector<double> times;
  Refusal refusal;
  for (int i = 0; i < kChanges; ++i) {
    const size_t at = static_cast<size_t>(i) * 7919 % rules.size();
    const double start = Now();
    CheckThat(classifier->Remove((*ids)[at], &refusal), refusal.text);
    classifier->Publish();
    (*ids)[at] = classifier->Insert(0, at == 0 ? 0 : (*ids)[at - 1], rules[at], &refusal);
    CheckThat((*ids)[at] != 0, refusal.text);
    classifier->Publish();
    times.push_back(Now() - start);
    classifier->GracePassed(classifier->TakeTicket());
  }
  std::sort(times.begin(), times.end());
  return times[times.size() / 2] / 2;
}

void Run(bench::Family family, size_t count) {
  const std::vector<Rule> rules = bench::MakeRules(family, count, count + 1);
  const std::vector<cls_key> keys = bench::MakeKeys(rules, kKeys, 2);
  host::classifier::HeapMemory memory;
  Classifier classifier(&memory);
  CheckThat(classifier.Format(), "no memory");
  std::vector<EntryId> ids(count);
  Refusal refusal;
  const double start = Now();
  CheckThat(classifier.Replace(0, rules.data(), count, ids.data(), &refusal), refusal.text);
  classifier.Publish();
  const double build = Now() - start;
  for (size_t i = 0; i < 200; ++i) {
    const Rule* rule = FirstMatch(rules, keys[i]);
    const uint32_t hit = host::classifier::Search(memory, 0, keys[i], classifier.generation());
    const auto* entry = memory.At<cls_entry>(CLS_ENTRIES, hit);
    CheckThat((hit == 0) == (rule == nullptr) && (hit == 0 || entry->cookie == rule->cookie),
              "a wrong verdict");
  }
  const Figures search = MeasureSearch(memory, classifier.generation(), keys);
  const uint32_t tables = classifier.UsageOf(0).tables;
  const double bytes = static_cast<double>(memory.bytes());
  const double change = MeasureChange(&classifier, rules, &ids);
  std::printf("%-4s %6zu %6zu %7u %8.1f %6u %8.1f %9.0f %9.0f %9.1f %9.2f %8.1f\n",
              bench::NameOf(family), count, Masks(rules), tables, search.tables, search.most_tables,
              search.probes, search.mean_ns, search.worst_ns, build * 1e3, change * 1e6,
              bytes / 1e6);
}

}  // namespace

int main() {
  std::printf("%-4s %6s %6s %7s %8s %6s %8s %9s %9s %9s %9s %8s\n", "set", "rules", "masks",
              "tables", "searched", "most", "slots", "mean ns", "1% ns", "build ms", "change us",
              "MB");
  for (const bench::Family family : bench::kFamilies) {
    for (const size_t size : kSizes) Run(family, size);
  }
  return 0;
}
