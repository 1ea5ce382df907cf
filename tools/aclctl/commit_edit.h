// Committing an edit: what apply, edit and the commands of one line have in common.
#ifndef TOOLS_ACLCTL_COMMIT_EDIT_H_
#define TOOLS_ACLCTL_COMMIT_EDIT_H_

#include <string>

#include "tools/aclctl/command.h"
#include "tools/aclctl/edit_file.h"

namespace aclctl {

// How an edit is committed.
struct CommitOptions {
  std::string comment;  // kept in the history; empty: none
  std::string confirm;  // seconds within which it must be confirmed; empty: it need not be
  bool strict = false;  // not when the edit brings findings
};

// Declares -m, --confirm and --strict.
void AddCommitOptions(Syntax* syntax, CommitOptions* options);

// What is wrong with the options (kUsage); to be called before the session is opened.
Failure CheckCommitOptions(const CommitOptions& options);

// Commits the edit, waits for the filters, and prints what became of it, and, as warnings, the
// findings that it has brought. With --confirm the commit
// has the token kPersistId, so that it outlives the session and anybody who may write can confirm
// or cancel it.
Failure CommitEdit(const Common& common, Client* client, const Edit& edit,
                   const CommitOptions& options);

inline constexpr char kPersistId[] = "aclctl";

// "<comment ...>" for an operation of NETCONF's; empty for an empty text.
std::string CommentElement(const std::string& comment);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMIT_EDIT_H_
