// The operation <trace> of acl-app-filters: which entries decide about a frame that somebody
// describes. It looks at the groups in force, and sends nothing.
#ifndef HOST_FILTER_MGR_TRACE_OPERATION_H_
#define HOST_FILTER_MGR_TRACE_OPERATION_H_

#include <string>

#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/port_names.h"

struct lyd_node;

namespace host {

// Answers the operation whose input is given (StateProviders::Answer). Takes some milliseconds for
// the largest groups: every entry of the port is looked at once.
lyd_node* AnswerTrace(const lyd_node* input, const GroupTable& table, const PortNames& names,
                      std::string* error);

}  // namespace host

#endif  // HOST_FILTER_MGR_TRACE_OPERATION_H_
