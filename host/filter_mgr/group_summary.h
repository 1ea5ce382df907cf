// The groups in short, as operational data (/groups of module acl-app-filters): what costs no more
// to tell of 65,536 entries than of one.
#ifndef HOST_FILTER_MGR_GROUP_SUMMARY_H_
#define HOST_FILTER_MGR_GROUP_SUMMARY_H_

#include <cstdint>

#include "host/filter_mgr/group_table.h"
#include "host/runtime/tree_writer.h"

namespace host {

// Builds the tree below the top-level node "groups"; `retries` is the number of attempts to put in
// force what had failed. The caller frees it with lyd_free_all(). Null, with a log line, when the
// context does not have the module or libyang refuses a node.
lyd_node* BuildGroupSummary(const ly_ctx* context, const GroupTable& table, uint64_t retries);

// Adds what a search costs, the container "search", to a group.
void AddSearchCost(const SearchCost& cost, lyd_node* group, TreeWriter* writer);

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_SUMMARY_H_
