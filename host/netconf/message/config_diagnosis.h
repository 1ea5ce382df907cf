// Finds out what is wrong with a configuration that the parser refused.
#ifndef HOST_NETCONF_MESSAGE_CONFIG_DIAGNOSIS_H_
#define HOST_NETCONF_MESSAGE_CONFIG_DIAGNOSIS_H_

#include "host/cdb/schema/yang_tree.h"
#include "host/netconf/message/rpc_error.h"

namespace host {

inline constexpr char kTextConfig[] = "<config> holds a text, not elements";

// Adds what the schema `context` refuses within `config`, a <config> element as GenericXml reads
// it, to `*errors`: unknown elements, bad values, attributes that do not belong there; each with
// the path of the instance. Stops when there are more than kMaxErrors.
void DiagnoseConfig(const lyd_node* config, const ly_ctx* context, RpcErrors* errors);

}  // namespace host

#endif  // HOST_NETCONF_MESSAGE_CONFIG_DIAGNOSIS_H_
