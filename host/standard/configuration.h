// Our configuration (module acl-app) to and from plain profiles.
#ifndef HOST_STANDARD_CONFIGURATION_H_
#define HOST_STANDARD_CONFIGURATION_H_

#include "host/cdb/schema/yang_tree.h"
#include "host/standard/document.h"
#include "host/standard/profiles.h"

namespace host::standard {

// The configuration from the node `first` on (null: empty), data of acl-app in `context`, which
// must have been made with LY_CTX_SET_PRIV_PARSED (see host/cdb/schema/schema.h).
Profiles ReadConfiguration(const ly_ctx* context, const lyd_node* first);

// The profiles as a document of acl-app. Values are numbers where they could be names.
void WriteConfiguration(const Profiles& profiles, Document* document);

// "a.b.c.d/length" or, under a whole mask, with `bare`, "a.b.c.d"; "aa:bb:cc:dd:ee:ff".
std::string PrefixText(const Value& value, bool bare);
std::string MacText(uint64_t address);

}  // namespace host::standard

#endif  // HOST_STANDARD_CONFIGURATION_H_
