// The YANG modules of the datastore, and libyang's complaints in NETCONF's terms.
#ifndef HOST_CDB_SCHEMA_SCHEMA_H_
#define HOST_CDB_SCHEMA_SCHEMA_H_

#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

// The module of the configuration and of the state that the process itself writes.
constexpr char kAclModule[] = "acl-app";

// Loads the modules from `directory` and its subdirectories "ietf" and "standard". Null with the
// reasons in `errors` on failure, and where they are not those that the program was built with.
// From then on libyang keeps its messages for TakeErrors().
ContextPtr LoadSchema(const std::string& directory, DatastoreErrors* errors);

// Moves what libyang has noted in `context` since the last call to `errors`. `tree` (may be null)
// is the data that was being validated: libyang names a missing node by its schema only, and the
// instance that lacks it is looked up there.
void TakeErrors(const ly_ctx* context, const lyd_node* tree, DatastoreErrors* errors);

// The reason why `value` is none of the leaf or leaf-list `schema`, in words; empty when it is one.
// Then `canonical` (may be null) becomes its canonical text.
std::string WhyNotValue(const lysc_node* schema, const std::string& value,
                        std::string* canonical = nullptr);

// What a value of `type` looks like, for messages: "0..7", "tcp, udp, ... or 0..255".
std::string DescribeType(const lysc_type* type);

}  // namespace host

#endif  // HOST_CDB_SCHEMA_SCHEMA_H_
