// All commands of aclctl. Each is defined in the file that carries it out: see command.h.
#ifndef TOOLS_ACLCTL_COMMANDS_H_
#define TOOLS_ACLCTL_COMMANDS_H_

#include <string>
#include <vector>

#include "tools/aclctl/command.h"

namespace aclctl {

extern const Command kApply;
extern const Command kBind;
extern const Command kCancel;
extern const Command kCheck;
extern const Command kComplete;
extern const Command kConfirm;
extern const Command kDelete;
extern const Command kDiff;
extern const Command kEdit;
extern const Command kEvents;
extern const Command kExport;
extern const Command kFlush;
extern const Command kHistory;
extern const Command kImport;
extern const Command kMove;
extern const Command kRecoverAccept;
extern const Command kRecoverEmpty;
extern const Command kRecoverWith;
extern const Command kRename;
extern const Command kRenumber;
extern const Command kRollback;
extern const Command kSet;
extern const Command kShowAcl;
extern const Command kShowCommit;
extern const Command kShowCommits;
extern const Command kShowConfig;
extern const Command kShowFindings;
extern const Command kShowGroups;
extern const Command kShowLines;
extern const Command kShowResources;
extern const Command kShowStatus;
extern const Command kTrace;
extern const Command kUnbind;
extern const Command kWatch;

// All of them, in the order of the help.
const std::vector<const Command*>& AllCommands();

// The words of a command's name.
std::vector<std::string> WordsOf(const Command& command);

// The command that `words` begin with, or null. `*taken` is the number of words that name it.
const Command* FindCommand(const std::vector<std::string>& words, size_t* taken);

// Why `words` begin no command.
std::string WhyNoCommand(const std::vector<std::string>& words);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMANDS_H_
