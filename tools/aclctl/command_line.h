// The command line: which command it names, with what operands and options.
#ifndef TOOLS_ACLCTL_COMMAND_LINE_H_
#define TOOLS_ACLCTL_COMMAND_LINE_H_

#include <map>
#include <string>
#include <vector>

#include "tools/aclctl/command.h"

namespace aclctl {

// A command line that was read: what to print, or what to run.
struct CommandLine {
  const Command* command = nullptr;
  Run run;
  Common common;
  std::string print;  // help or version; nothing is run then
};

// Reads the words after the program's name. A failure (kUsage) says what is wrong.
Failure ReadCommandLine(const std::vector<std::string>& words, CommandLine* line);

// The options that a command takes, as they are typed ("--json"), and what its operands name.
struct Completable {
  std::vector<std::string> options;
  std::vector<Names> operands;
  std::map<std::string, Names> values;  // of options, by "--name"
};
Completable DescribeCommand(const Command& command);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMAND_LINE_H_
