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
// entries. So a thread of its own does it, beside the event loop's; whoever wants the result looks
// in from time to time, and may go away: the thread then ends with the group that it is at.
#ifndef HOST_SEARCH_COST_COST_ESTIMATE_H_
#define HOST_SEARCH_COST_COST_ESTIMATE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
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

class CostEstimate {
 public:
  // `configuration` is not changed any more by anybody.
  explicit CostEstimate(std::shared_ptr<const findings::Configuration> configuration);
  ~CostEstimate();
  CostEstimate(const CostEstimate&) = delete;
  CostEstimate& operator=(const CostEstimate&) = delete;

  // Waits a moment, a millisecond at most, for the end. True when there is more to do.
  bool Step();
  // What was found, once Step() has returned false.
  const EstimatedCost& result() const;

 private:
  struct Shared;
  const std::shared_ptr<Shared> shared_;  // with the thread
};

}  // namespace host

#endif  // HOST_SEARCH_COST_COST_ESTIMATE_H_
