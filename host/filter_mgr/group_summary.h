// The groups in short, as operational data (/groups of module acl-app-filters): what costs no more
// to tell of 65,536 entries than of one.
#ifndef HOST_FILTER_MGR_GROUP_SUMMARY_H_
#define HOST_FILTER_MGR_GROUP_SUMMARY_H_

#include <cstdint>
#include <functional>
#include <memory>

#include "host/filter_mgr/group_table.h"
#include "host/runtime/state_providers.h"
#include "host/runtime/tree_writer.h"

namespace host {

// Builds the tree below the top-level node "groups"; `retries` is the number of attempts to put in
// force what had failed. The caller frees it with lyd_free_all(). Null, with a log line, when the
// context does not have the module or libyang refuses a node. What a search costs is told as far as
// it is found out in a few milliseconds.
lyd_node* BuildGroupSummary(const ly_ctx* context, const GroupTable& table, uint64_t retries);
// The same in pieces, which find that out for all ports; none after `alive` has ended.
std::unique_ptr<StateProviders::Pieces> OpenGroupSummary(const GroupTable& table,
                                                         std::function<uint64_t()> retries,
                                                         const std::weak_ptr<const void>& alive);

// Finds out what searches in both groups cost, step by step.
class CostSampling {
 public:
  // The back end must outlive the object.
  explicit CostSampling(Backend& backend) : backend_(backend) {}
  // Takes the next step, of some milliseconds at most; false when there is none left.
  bool Step() {
    return backend_.SampleCost(kL2, &next_port_[kL2]) || backend_.SampleCost(kL3, &next_port_[kL3]);
  }

 private:
  Backend& backend_;
  uint32_t next_port_[kGroupSlots] = {};
};

// Adds what a search costs, the container "search", to a group.
void AddSearchCost(const SearchCost& cost, lyd_node* group, TreeWriter* writer);

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_SUMMARY_H_
