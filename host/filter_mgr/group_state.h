// The groups of the Filter Manager as operational data (module acl-app-filters).
#ifndef HOST_FILTER_MGR_GROUP_STATE_H_
#define HOST_FILTER_MGR_GROUP_STATE_H_

#include <memory>

#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/port_names.h"
#include "host/runtime/state_providers.h"

struct ly_ctx;
struct lyd_node;

namespace host {

// Builds the tree below the top-level node "filters", with the groups in evaluation order and the
// entries by priority. The caller frees it with lyd_free_all(). Null, with a log line, when the
// context does not have the module or libyang refuses a node.
lyd_node* BuildGroupState(const ly_ctx* context, const GroupTable& table, const PortNames& names);

// The same in pieces of some milliseconds each. A group is shown as it is when its turn comes.
// `table` may go before the pieces do: there are none any more once `*alive` is gone.
std::unique_ptr<StateProviders::Pieces> OpenGroupState(const GroupTable& table,
                                                       const PortNames& names,
                                                       const std::weak_ptr<const void>& alive);

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_STATE_H_
