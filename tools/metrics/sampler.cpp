// Reads the daemon again and again: see sampler.h.
#include "tools/metrics/sampler.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <utility>

namespace metrics {
namespace {

using client::Failure;

constexpr size_t kBusiest = 12;
constexpr std::chrono::seconds kStatePatience{10};
constexpr std::chrono::minutes kFindingsPatience{5};
// What does not change with a commit, such as that an interface is there, may change findings.
constexpr std::chrono::minutes kFindingsAge{1};
constexpr int kRestFactor = 50;
constexpr std::chrono::minutes kLongestRest{10};

// When the next reading is due after one that began at `start` and ended at `end`.
Clock::time_point DueAfter(Clock::time_point start, Clock::time_point end,
                           std::chrono::milliseconds interval) {
  const Clock::duration rest = std::min<Clock::duration>(kRestFactor * (end - start), kLongestRest);
  return std::max(start + interval, end + rest);
}

double Seconds(Clock::duration duration) { return std::chrono::duration<double>(duration).count(); }

}  // namespace

Sampler::Sampler(const SamplerOptions& options)
    : options_(options),
      end_(eventfd(0, EFD_CLOEXEC)),
      reader_(options.socket, {kStatePatience, end_}),
      state_thread_([this] { Run(); }),
      findings_thread_([this] { RunFindings(); }) {}

Sampler::~Sampler() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
  }
  wake_.notify_all();
  const eventfd_t one = 1;
  eventfd_write(end_, one);
  state_thread_.join();
  findings_thread_.join();
  close(end_);
}

std::shared_ptr<const Snapshot> Sampler::Last() const {
  const std::lock_guard<std::mutex> lock(mutex_);
  return last_;
}

bool Sampler::Rest(Clock::time_point when) {
  std::unique_lock<std::mutex> lock(mutex_);
  return !wake_.wait_until(lock, when, [this] { return ending_; });
}

void Sampler::Publish(Snapshot snapshot) {
  const std::lock_guard<std::mutex> lock(mutex_);
  snapshot.findings = findings_;
  last_ = std::make_shared<Snapshot>(std::move(snapshot));
}

void Sampler::Run() {
  Clock::time_point start;
  do {
    start = Clock::now();
    Read();
  } while (Rest(std::max(start + options_.interval, Clock::now())));
}

void Sampler::Read() {
  Snapshot next = *Last();
  const Failure failure = ReadParts(&next);
  ++(failure ? next.failures : next.readings);
  next.up = !failure;
  next.trouble = failure.message;
  for (const std::string& detail : failure.details) next.trouble += "; " + detail;
  Publish(std::move(next));
}

Failure Sampler::ReadParts(Snapshot* next) {
  const Clock::time_point start = Clock::now();
  State state;
  if (Failure failure = reader_.ReadState(&state)) return failure;
  next->state_s = Seconds(Clock::now() - start);
  if (next->read_at && state.started != next->state.started) ++next->restarts;
  next->state = std::move(state);
  next->read_at = std::chrono::system_clock::now();
  if (texts_of_ != next->state.running) {
    if (Failure failure = reader_.ReadProfiles(&next->profiles)) return failure;
    texts_.clear();
    texts_of_ = next->state.running;
  }
  if (start < hits_due_) return {};
  if (Failure failure = ReadHits(next)) return failure;
  return ReadBusiest(next);
}

Failure Sampler::ReadHits(Snapshot* next) {
  const Clock::time_point start = Clock::now();
  next->hits_by_entry = next->state.entries() <= options_.most_hits;
  std::vector<EntryHits> hits;
  if (Failure failure = reader_.ReadHits(next->hits_by_entry, &next->hits_counted, &hits)) {
    return failure;
  }
  const Clock::time_point end = Clock::now();
  hits_due_ = DueAfter(start, end, options_.interval);
  next->hits_s = Seconds(end - start);
  history_.Add(hits, end);
  next->hits.clear();
  if (next->hits_by_entry) next->hits = std::move(hits);
  return {};
}

Failure Sampler::ReadBusiest(Snapshot* next) {
  next->busy = history_.Busiest(kBusiest, Clock::now());
  std::vector<BusyEntry> unknown;
  for (const BusyEntry& entry : next->busy) {
    if (texts_.count(entry.hits.name) == 0) unknown.push_back(entry);
  }
  if (Failure failure = reader_.ReadTexts(&unknown)) return failure;
  for (const BusyEntry& entry : unknown) texts_[entry.hits.name] = entry;
  for (BusyEntry& entry : next->busy) {
    const BusyEntry& known = texts_[entry.hits.name];
    entry.match = known.match;
    entry.action = known.action;
    entry.description = known.description;
  }
  return {};
}

void Sampler::RunFindings() {
  DaemonReader reader(options_.socket, {kFindingsPatience, end_});
  Clock::time_point due = Clock::now(), read_at{};
  while (Rest(due)) {
    due = Clock::now() + std::min<Clock::duration>(options_.interval, std::chrono::seconds(1));
    const std::shared_ptr<const Snapshot> last = Last();
    Findings found;
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      found = findings_;
    }
    const bool known = found.commit == last->state.running;
    if (!last->up || (known && Clock::now() - read_at < kFindingsAge)) continue;
    const Clock::time_point start = Clock::now();
    const Failure failure = reader.ReadFindings(&found);
    due = DueAfter(start, Clock::now(), options_.interval);
    if (failure) continue;
    read_at = Clock::now();
    const std::lock_guard<std::mutex> lock(mutex_);
    findings_ = std::move(found);
    auto next = std::make_shared<Snapshot>(*last_);
    next->findings = findings_;
    last_ = std::move(next);
  }
}

}  // namespace metrics
