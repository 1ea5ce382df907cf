// The daemon's schema, fetched from the daemon itself: what turns JSON into XML and back.
#ifndef TOOLS_ACLCTL_SCHEMA_H_
#define TOOLS_ACLCTL_SCHEMA_H_

#include <memory>
#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"
#include "tools/aclctl/client.h"

namespace aclctl {

// Loads `modules` and what they import, over `client`.
Failure FetchSchema(Client* client, const std::vector<std::string>& modules,
                    host::ContextPtr* context);

enum class Format { kJson, kXml };

// Data of the daemon (XML, any number of top-level elements) in another form, for people to read
// and for `apply`.
Failure Convert(const ly_ctx* context, const std::string& xml, Format format, std::string* text);

// The output of an RPC of `context`'s, as JSON. `operation` is its qualified name ("module:name"),
// `output` the content of <rpc-reply> as XML.
Failure ConvertOutput(const ly_ctx* context, const std::string& operation,
                      const std::string& output, std::string* text);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_SCHEMA_H_
