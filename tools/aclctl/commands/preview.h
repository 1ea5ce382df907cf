// What an edit would do: diff and check, for commands that have one at hand.
#ifndef TOOLS_ACLCTL_COMMANDS_PREVIEW_H_
#define TOOLS_ACLCTL_COMMANDS_PREVIEW_H_

#include "tools/aclctl/command.h"
#include "tools/aclctl/edit_file.h"

namespace aclctl {

// Prints what the edit in `file` would change.
Failure Diff(const Common& common, const EditFile& file);
// Prints whether the edit would be refused and what it would take; `strict`: also what is found in
// it is a refusal.
Failure Check(const Common& common, const EditFile& file, bool strict);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMANDS_PREVIEW_H_
