// What a configuration would cost, before it is put in force: how many tables a frame would be
// looked up in, how much memory the tables would take, and whether they can hold it at all.
//
// It is found out by building the tables, as the back end of tables would, but in this process's
// own memory: all ports and both groups in one classifier, whose limits they share. So it is exact
// for groups that are put in force whole; tables that have grown by single changes may be some
// more.
//
// The entries of a port are those of its profiles, by priority, as the groups have them. Building
// takes about a microsecond for each entry, and is done in steps: one group of one port at a time,
// which for the largest group is 0.1 s.
#ifndef HOST_SEARCH_COST_COST_ESTIMATE_H_
#define HOST_SEARCH_COST_COST_ESTIMATE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/classifier/classifier.h"
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
  explicit CostEstimate(std::shared_ptr<const findings::Configuration> configuration);

  // Builds the tables of the next port's group. True when there is more to do.
  bool Step();
  // What was found; whole when Step() has returned false.
  const EstimatedCost& result() const { return result_; }

 private:
  using Interfaces = std::map<std::string, findings::Interface>;

  std::vector<classifier::Rule> RulesOf(const findings::Interface& interface, bool l3) const;

  const std::shared_ptr<const findings::Configuration> configuration_;
  classifier::HeapMemory memory_;
  classifier::Classifier tables_;
  Interfaces::const_iterator next_;
  bool l3_ = false;  // of the next port, its L3 group
  uint32_t root_ = 0;
  EstimatedCost result_;
};

}  // namespace host

#endif  // HOST_SEARCH_COST_COST_ESTIMATE_H_
