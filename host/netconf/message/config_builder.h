// Builds the tree of a configuration straight from its text, where that is as plain as what
// programs write: elements without prefixes, no attributes but edit operations, values without
// references.
//
// libyang's parser takes some three times as long for it. It reads all else, and says what is
// wrong: so nothing is refused here, and what is built is what the parser would have made of it.
#ifndef HOST_NETCONF_MESSAGE_CONFIG_BUILDER_H_
#define HOST_NETCONF_MESSAGE_CONFIG_BUILDER_H_

#include <string_view>

#include "host/cdb/schema/yang_tree.h"

namespace host {

// The tree of `text`, one element with what is within it, as lyd_parse_data_mem() with
// LYD_PARSE_ONLY and LYD_PARSE_STRICT reads it. `name_space` is the default namespace in scope, or
// empty. Null when that is for the parser to read. A scan (ScanXml()) has found `text` not too deep
// and without foreign attributes.
Tree BuildConfig(const ly_ctx* context, std::string_view text, std::string_view name_space);

}  // namespace host

#endif  // HOST_NETCONF_MESSAGE_CONFIG_BUILDER_H_
