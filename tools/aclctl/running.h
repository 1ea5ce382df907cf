// The running configuration, or the part of it that matters, and the edit that makes it another.
#ifndef TOOLS_ACLCTL_RUNNING_H_
#define TOOLS_ACLCTL_RUNNING_H_

#include <string>

#include "tools/aclctl/client.h"
#include "tools/aclctl/lines.h"

namespace aclctl {

// Fetches what `scope` needs; `*tree` is null when there is nothing of it.
Failure FetchRunning(Client* client, const ly_ctx* context, const Scope& scope, host::Tree* tree);
// The same as the reply's text, and from that.
Failure FetchRunningText(Client* client, const Scope& scope, std::string* reply);
Failure ReadRunningText(const std::string& reply, const ly_ctx* context, host::Tree* tree);

// The content of <config> for an edit-config with the default operation "none" that makes `from`
// into `to`; empty when they are the same. It is refused where an entry or a profile that it makes
// is there by then, or one that it deletes is not: nobody's commit in between is overwritten whole.
std::string EditBetween(const ConfigTree& from, const ConfigTree& to);

// The tree as the content of <config>, with empty containers: an empty configuration is not the
// same as none.
std::string PrintXml(const lyd_node* tree);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_RUNNING_H_
