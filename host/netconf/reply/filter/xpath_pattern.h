// XPath expressions that can be applied as data go by, node by node, as subtree filters are.
//
// They are what operators mostly write: location paths of names, with / and //, whose predicates
// compare a child (or, for a leaf, '.') with a value, or ask for its presence; and unions of these.
#ifndef HOST_NETCONF_REPLY_FILTER_XPATH_PATTERN_H_
#define HOST_NETCONF_REPLY_FILTER_XPATH_PATTERN_H_

#include <optional>
#include <string>

#include "host/netconf/reply/filter/subtree_filter.h"

namespace host {

// The filter that selects what `xpath` (in libyang's own form: modules' names as prefixes) selects
// of data of `context`; nullopt when the expression is of another kind.
std::optional<SubtreeFilter> CompileXPath(const std::string& xpath, const ly_ctx* context);

}  // namespace host

#endif  // HOST_NETCONF_REPLY_FILTER_XPATH_PATTERN_H_
