// The content of <data> in replies to <get> and <get-config>.
//
// Configuration is shown as it is when the stream begins, whatever is committed while it goes on;
// state follows it, each part as it is when its turn comes.
#ifndef HOST_NETCONF_REPLY_RETRIEVAL_H_
#define HOST_NETCONF_REPLY_RETRIEVAL_H_

#include <functional>
#include <memory>

#include "host/cdb/datastore.h"
#include "host/cdb/tree_pages.h"
#include "host/netconf/message/rpc_error.h"
#include "host/netconf/reply/data_stream.h"

namespace host {

struct RetrievalRequest {
  struct Configuration {
    const lyd_node* first = nullptr;        // top-level node, null: none
    std::shared_ptr<const void> tree = {};  // keeps it alive; null where that is not needed
  };
  std::function<Configuration()> configuration;  // asked when the stream begins
  bool with_state = false;                       // add the operational data
  const lyd_node* filter = nullptr;              // <filter> as GenericXml reads it, null: all
  const lyd_node* typed_filter = nullptr;        // the same, as the schema reads it
  uint32_t print_options = 0;                    // LYD_PRINT_WD_* of libyang
  bool trusted = false;                          // may hold up others by costly expressions
};

// The stream for a request, of which it needs no more than the configuration afterwards. Null with
// the reason in `errors` when the filter is not to be used.
std::unique_ptr<DataStream> Retrieve(const RetrievalRequest& request, Datastore& datastore,
                                     const std::shared_ptr<PageMemory>& memory, RpcErrors* errors);

}  // namespace host

#endif  // HOST_NETCONF_REPLY_RETRIEVAL_H_
