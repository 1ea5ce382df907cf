// The table of commands: see commands.h.
#include "tools/aclctl/commands.h"

#include <algorithm>
#include <set>
#include <sstream>

namespace aclctl {

const std::vector<const Command*>& AllCommands() {
  static const std::vector<const Command*> kAll = {
      &kSet,         &kDelete,       &kBind,          &kUnbind,    &kRename,     &kMove,
      &kRenumber,    &kEdit,         &kApply,         &kCheck,     &kDiff,       &kImport,
      &kHistory,     &kRollback,     &kConfirm,       &kCancel,    &kShowStatus, &kShowCommits,
      &kShowCommit,  &kShowConfig,   &kShowFindings,  &kShowLines, &kExport,     &kShowAcl,
      &kTrace,       &kShowGroups,   &kShowResources, &kWatch,     &kEvents,     &kRecoverAccept,
      &kRecoverWith, &kRecoverEmpty, &kFlush,         &kComplete,
  };
  return kAll;
}

std::vector<std::string> WordsOf(const Command& command) {
  std::istringstream name(command.name);
  std::vector<std::string> words;
  for (std::string word; name >> word;) words.push_back(word);
  return words;
}

const Command* FindCommand(const std::vector<std::string>& words, size_t* taken) {
  const Command* found = nullptr;
  *taken = 0;
  for (const Command* command : AllCommands()) {
    const std::vector<std::string> name = WordsOf(*command);
    if (name.size() <= *taken || name.size() > words.size()) continue;
    if (!std::equal(name.begin(), name.end(), words.begin())) continue;
    found = command;
    *taken = name.size();
  }
  return found;
}

std::string WhyNoCommand(const std::vector<std::string>& words) {
  if (words.empty()) return "a command is missing";
  std::set<std::string> following;
  for (const Command* command : AllCommands()) {
    const std::vector<std::string> name = WordsOf(*command);
    if (name.size() > 1 && name[0] == words[0]) following.insert(name[1]);
  }
  if (following.empty()) return "there is no command \"" + words[0] + "\"";
  std::string list;
  for (const std::string& word : following) list += (list.empty() ? "" : ", ") + word;
  return words[0] + " is followed by one of: " + list +
         (words.size() > 1 ? "; not by \"" + words[1] + "\"" : "");
}

}  // namespace aclctl
