// The content of <data> in replies to <get> and <get-config>.
#ifndef HOST_NETCONF_RETRIEVAL_H_
#define HOST_NETCONF_RETRIEVAL_H_

#include <string>

#include "host/cdb/datastore.h"
#include "host/netconf/rpc_error.h"

namespace host {

struct RetrievalRequest {
  const lyd_node* configuration = nullptr;  // first top-level node, null: none
  bool with_state = false;                  // add the operational data
  const lyd_node* filter = nullptr;         // <filter> as GenericXml reads it, null: all
  const lyd_node* typed_filter = nullptr;   // the same, as the schema reads it
  uint32_t print_options = 0;               // LYD_PRINT_WD_* of libyang
};

// Appends what was asked for to `*xml`. Returns why it cannot be given, otherwise nothing.
RpcErrors Retrieve(const RetrievalRequest& request, Datastore& datastore, std::string* xml);

}  // namespace host

#endif  // HOST_NETCONF_RETRIEVAL_H_
