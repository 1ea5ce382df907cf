#include "host/search_cost/cost_estimate.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <map>
#include <new>
#include <string>
#include <utility>

#include "host/classifier/classifier.h"
#include "host/filter_mgr/ebpf/program/shared.h"
#include "host/runtime/log.h"
#include "host/runtime/worker_thread.h"

namespace host {
namespace {

using classifier::Rule;
using findings::Entry;
using findings::FrameClass;

// What the filter program notes of a frame that has what a field needs.
constexpr std::pair<uint8_t, uint64_t> kHas[] = {
    {FrameClass::kTag, CLS_HAS_TAG},
    {FrameClass::kTosByte, FILTER_HAS_TOS},
    {FrameClass::kProtocol, FILTER_HAS_PROTOCOL},
    {FrameClass::kSource, FILTER_HAS_SRC_IP},
    {FrameClass::kWhole, CLS_HAS_IPV4},
    {FrameClass::kPort, CLS_HAS_PORT},
};

// The rule that the back end of tables makes of the entry.
Rule RuleOf(const Entry& entry) {
  Rule rule;
  rule.value = entry.matches.value;
  rule.mask = entry.matches.mask;
  for (int i = 0; i < findings::kFieldCount; ++i) {
    const auto field = static_cast<findings::Field>(i);
    if (!entry.matches.Has(field)) continue;
    for (const auto& [need, has] : kHas) {
      if ((findings::PlaceOf(field).needs & need) == 0) continue;
      rule.value.word[3] |= has;
      rule.mask.word[3] |= has;
    }
  }
  if (rule.mask.word[0] != 0 || rule.mask.word[1] >> 16 != 0) {  // MAC addresses, the EtherType
    rule.value.word[3] |= FILTER_HAS_ETHERNET;
    rule.mask.word[3] |= FILTER_HAS_ETHERNET;
  }
  rule.action = entry.action == Entry::Action::kDeny     ? CLS_DENY
                : entry.action == Entry::Action::kSetPcp ? CLS_SET_PCP
                                                         : CLS_PERMIT;
  rule.pcp = entry.pcp;
  return rule;
}

// The port's rules of one type, as its group has them.
std::vector<Rule> RulesOf(const findings::Configuration& configuration,
                          const findings::Interface& interface, bool l3) {
  std::map<int, const findings::Profile*> profiles;  // by priority
  for (const std::string& name : interface.profiles) {
    const auto profile = configuration.profiles.find(name);
    if (profile == configuration.profiles.end() || profile->second.l3 != l3) continue;
    profiles.emplace(profile->second.priority, &profile->second);
  }
  std::vector<Rule> rules;
  for (const auto& [priority, profile] : profiles) {
    std::transform(profile->entries.begin(), profile->entries.end(), std::back_inserter(rules),
                   RuleOf);
  }
  return rules;
}

// All tables of a configuration, made port by port.
class Estimator {
 public:
  Estimator() : tables_(&memory_) { tables_.Format(); }  // the heap has the room

  void Add(const std::string& port, bool l3, const std::vector<Rule>& rules) {
    const uint32_t root = root_++;
    classifier::Refusal refusal;
    if (rules.empty()) return;
    if (!tables_.Replace(root, rules.data(), rules.size(), nullptr, &refusal)) {
      found_.refused.push_back({port, "tables cannot hold its " + std::string(l3 ? "L3" : "L2") +
                                          " entries: " + refusal.text});
      tables_.Discard(root);
      return;
    }
    tables_.Publish();
    const classifier::Cost cost = tables_.CostOf(root, SearchSamples(rules.size()));
    const SearchCost here{port, SearchCost::Tables{cost.mean_tables, cost.worst_tables},
                          cost.worst_entries};
    std::optional<SearchCost>& worst = found_.groups[l3 ? 1 : 0];
    if (!worst || *worst < here) worst = here;
  }

  EstimatedCost Take() {
    found_.bytes = memory_.bytes();
    return std::move(found_);
  }

 private:
  classifier::HeapMemory memory_;
  classifier::Classifier tables_;
  uint32_t root_ = 0;
  EstimatedCost found_;
};

}  // namespace

struct CostWorker::Job {
  // Builds all tables, unless nobody wants them any more.
  void Work() {
    Estimator estimator;
    for (const auto& [port, interface] : configuration->interfaces) {
      for (const bool l3 : {false, true}) {
        if (unwanted) return;
        estimator.Add(port, l3, RulesOf(*configuration, interface, l3));
      }
    }
    result = estimator.Take();
  }

  void End() {
    const std::lock_guard<std::mutex> lock(mutex);
    done = true;
    changed.notify_one();
  }

  std::shared_ptr<const findings::Configuration> configuration;
  std::atomic<bool> unwanted{false};
  EstimatedCost result;  // the thread's until it is done
  std::mutex mutex;      // guards `done`
  std::condition_variable changed;
  bool done = false;
};

CostWorker::~CostWorker() {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    ending_ = true;
    for (const auto& job : jobs_) job->unwanted = true;
    changed_.notify_one();
  }
  if (thread_.joinable()) thread_.join();
}

void CostWorker::Add(std::shared_ptr<Job> job) {
  if (!thread_.joinable()) {
    std::string why;
    thread_ = StartWorker([this] { Run(); }, &why);
    if (!thread_.joinable()) {
      Log(LogLevel::kWarning, "what a configuration would cost is not found out: %s", why.c_str());
      return job->End();
    }
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  jobs_.push_back(std::move(job));
  changed_.notify_one();
}

void CostWorker::Run() {
  std::unique_lock<std::mutex> lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return ending_ || !jobs_.empty(); });
    if (ending_) return;
    const std::shared_ptr<Job> job = jobs_.front();  // stays there: the destructor has to find it
    lock.unlock();
    try {
      job->Work();
    } catch (const std::bad_alloc&) {
      job->result = {};
    }
    job->End();
    lock.lock();
    jobs_.pop_front();
  }
}

CostEstimate::CostEstimate(std::shared_ptr<const findings::Configuration> configuration,
                           std::shared_ptr<CostWorker> worker)
    : worker_(std::move(worker)), job_(std::make_shared<CostWorker::Job>()) {
  job_->configuration = std::move(configuration);
  worker_->Add(job_);
}

CostEstimate::~CostEstimate() { job_->unwanted = true; }

bool CostEstimate::Step() {
  constexpr std::chrono::microseconds kMoment{100};
  std::unique_lock<std::mutex> lock(job_->mutex);
  return !job_->changed.wait_for(lock, kMoment, [this] { return job_->done; });
}

const EstimatedCost& CostEstimate::result() const { return job_->result; }

}  // namespace host
