// Instance paths as XPath in XML.
#ifndef HOST_NETCONF_MESSAGE_QUALIFIED_PATH_H_
#define HOST_NETCONF_MESSAGE_QUALIFIED_PATH_H_

#include <string>

struct ly_ctx;

namespace host {

// `path`, in libyang's form, which names a module only where it changes, with the module's name as
// prefix on every name. What declares these prefixes, as attributes, is added to `*declarations`.
// Modules that `context` does not have are left out.
std::string QualifiedPath(const std::string& path, const ly_ctx* context,
                          std::string* declarations);

}  // namespace host

#endif  // HOST_NETCONF_MESSAGE_QUALIFIED_PATH_H_
