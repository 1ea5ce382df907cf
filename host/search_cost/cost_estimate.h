// What a configuration would cost, before it is put in force: how many tables a frame would be
// looked up in, how much memory the tables would take, and whether they can hold it at all.
//
// It is found out by building the tables, as the back end of tables would, but in this process's
// own memory: all ports and both groups in one classifier, whose limits they share. So it is exact
// for groups that are put in force whole; tables that have grown by single changes may be some
// more.
//
// The entries of a port are those of its profiles, by priority, as the groups have them. Building
// takes about a microsecond for each entry, 0.1 s for the largest group, and needs nothing but the
// entries. So a thread beside the event loop's does it, one estimate after the other: however many
// are asked for, they take one processor and the memory of one estimate's tables. Whoever wants a
// result looks in from time to time, and may go away: the thread then leaves the estimate with the
// group that it is at.
#ifndef HOST_SEARCH_COST_COST_ESTIMATE_H_
#define HOST_SEARCH_COST_COST_ESTIMATE_H_

#include <array>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "host/findings/configuration.h"
#include "host/search_cost/search_cost.h"

namespace host {

struct EstimatedCost {
  // A port whose entries the tables cannot hold.
  struct Refused {
    std::string port;
    std::string text;  // why, for people
  };

  std::array<std::optional<SearchCost>, 2> groups;  // L2, L3; none: no port has entries of it
  uint64_t bytes = 0;                               // of all tables
  std::vector<Refused> refused;
};

// Makes estimates in a thread of its own, which begins with the first of them.
class CostWorker {
 public:
  CostWorker() = default;
  // Waits for the group that the thread is at.
  ~CostWorker();
  CostWorker(const CostWorker&) = delete;
  CostWorker& operator=(const CostWorker&) = delete;

 private:
  friend class CostEstimate;
  struct Job;

  // What cannot be made, for want of a thread or of memory, is done without a result.
  void Add(std::shared_ptr<Job> job);
  void Run();

  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::deque<std::shared_ptr<Job>> jobs_;
  bool ending_ = false;
  std::thread thread_;  // but this, which is the loop's
};

class CostEstimate {
 public:
  // `configuration` is not changed any more by anybody.
  CostEstimate(std::shared_ptr<const findings::Configuration> configuration,
               std::shared_ptr<CostWorker> worker);
  ~CostEstimate();
  CostEstimate(const CostEstimate&) = delete;
  CostEstimate& operator=(const CostEstimate&) = delete;

  // Waits a moment, a tenth of a millisecond at most, for the end. True when there is more to do.
  bool Step();
  // What was found, once Step() has returned false; nothing where it could not be made.
  const EstimatedCost& result() const;

 private:
  const std::shared_ptr<CostWorker> worker_;
  const std::shared_ptr<CostWorker::Job> job_;  // shared with the thread
};

}  // namespace host

#endif  // HOST_SEARCH_COST_COST_ESTIMATE_H_
