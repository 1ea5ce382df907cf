// The interfaces that the groups in force name, as operational data (module acl-app-filters).
#ifndef HOST_FILTER_MGR_INTERFACE_STATE_H_
#define HOST_FILTER_MGR_INTERFACE_STATE_H_

#include <string>

#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/port_names.h"

struct ly_ctx;
struct lyd_node;

namespace host {

// Builds the tree below the top-level node "interfaces", which the caller frees with
// lyd_free_all(). Null, with a log line, when libyang refuses a node.
lyd_node* BuildInterfaceState(const ly_ctx* context, const GroupTable& table,
                              const PortNames& names, const LinkStates& links);

// How the link and the filters of an interface are called there.
const char* NameOf(LinkState link);
const char* NameOf(PortState filters);

// Whether the groups are in force on an interface that they name: "in-force", "waiting", "failed",
// or "not-enforced" where the back end enforces nothing.
const char* EnforcementOn(const std::string& interface, const Backend& backend);

}  // namespace host

#endif  // HOST_FILTER_MGR_INTERFACE_STATE_H_
