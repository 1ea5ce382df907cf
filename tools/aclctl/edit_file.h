// Files with edits, which some commands take.
#ifndef TOOLS_ACLCTL_EDIT_FILE_H_
#define TOOLS_ACLCTL_EDIT_FILE_H_

#include <string>

#include "tools/aclctl/commands.h"

namespace aclctl {

// Reads the file that the first operand names (.json or .xml), opens the session, and gives the
// content of <config> for the edit as XML.
Failure OpenWithEdit(const Arguments& arguments, Client* client, std::string* config);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_EDIT_FILE_H_
