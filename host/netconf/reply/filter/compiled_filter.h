// The <filter> of a request, of either type (RFC 6241 sections 6 and 8.9), ready for use.
#ifndef HOST_NETCONF_REPLY_FILTER_COMPILED_FILTER_H_
#define HOST_NETCONF_REPLY_FILTER_COMPILED_FILTER_H_

#include <memory>
#include <optional>
#include <string>

#include "host/netconf/message/rpc_error.h"
#include "host/netconf/reply/filter/subtree_filter.h"

namespace host {

// Without both parts: everything is selected.
struct CompiledFilter {
  std::unique_ptr<const SubtreeFilter> subtree;  // also of XPath expressions that are patterns
  std::string xpath;  // an expression that must be evaluated; may be empty
};

// The filter that `filter` is, as GenericXml reads it (null: all), and the schema (`typed`), for
// data of `context`. `trusted`: who asks may hold up others by costly expressions. Nullopt with the
// reason in `errors` when it is not to be used.
std::optional<CompiledFilter> CompileFilter(const lyd_node* filter, const lyd_node* typed,
                                            const ly_ctx* context, bool trusted, RpcErrors* errors);

}  // namespace host

#endif  // HOST_NETCONF_REPLY_FILTER_COMPILED_FILTER_H_
