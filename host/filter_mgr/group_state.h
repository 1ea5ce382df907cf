// The groups of the Filter Manager as operational data (module acl-app-filters).
#ifndef HOST_FILTER_MGR_GROUP_STATE_H_
#define HOST_FILTER_MGR_GROUP_STATE_H_

#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/port_names.h"

struct ly_ctx;
struct lyd_node;

namespace host {

// Builds the tree below the top-level node "filters", with the groups in evaluation order and the
// entries by priority. The caller frees it with lyd_free_all(). Null, with a log line, when the
// context does not have the module or libyang refuses a node.
lyd_node* BuildGroupState(const ly_ctx* context, const GroupTable& table, const PortNames& names);

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_STATE_H_
