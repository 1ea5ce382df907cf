// aclctl: the operator's command for the acl-app daemon.
#include <getopt.h>
#include <libyang/libyang.h>

#include <cstdio>
#include <string>
#include <vector>

#include "host/runtime/settings.h"
#include "host/runtime/version.h"
#include "tools/aclctl/commands.h"

namespace aclctl {
namespace {

// Options that only some commands take, a bit each.
enum : unsigned { kJson = 1, kXml = 2, kReplace = 4, kHits = 8, kMost = 16 };

struct Command {
  std::vector<const char*> words;
  int operands;
  unsigned options;
  Failure (*run)(const Arguments& arguments);
};

const Command kCommands[] = {
    {{"apply"}, 1, kReplace, Apply},
    {{"check"}, 1, kReplace | kJson, Check},
    {{"diff"}, 1, kReplace | kJson, Diff},
    {{"history"}, 0, kMost | kJson, History},
    {{"show", "commit"}, 1, kJson, ShowCommit},
    {{"rollback"}, 1, kJson, Rollback},
    {{"recover", "accept"}, 1, 0, RecoverAccept},
    {{"recover", "empty"}, 0, 0, RecoverEmpty},
    {{"recover", "with"}, 1, 0, RecoverWith},
    {{"show", "commits"}, 0, kJson | kXml, ShowCommits},
    {{"show", "config"}, 0, kJson | kXml, ShowConfig},
    {{"show", "resources"}, 0, kJson | kXml, ShowResources},
    {{"show", "groups"}, 0, kJson | kXml | kHits, ShowGroups},
    {{"show", "status"}, 0, kJson | kXml, ShowStatus},
    {{"flush"}, 0, 0, Flush},
};

constexpr char kHelp[] =
    "Usage: aclctl [OPTION]... COMMAND\n"
    "\n"
    "Commands:\n"
    "  apply FILE      merge a configuration (.json or .xml) into the running one\n"
    "  diff FILE       what applying it would change\n"
    "  check FILE      whether it would be refused, and the filter entries before and after\n"
    "    --replace       replace the running configuration with it (all three)\n"
    "  history         the last commits (-n N: how many, default 20)\n"
    "  show commit N   what commit N changed\n"
    "  rollback N      make the configuration what it was after commit N\n"
    "  show status     how the daemon is: what to look at first\n"
    "  recover ...     go on when the stored configuration is in doubt (show status tells):\n"
    "    accept N        with what was found, the configuration of commit N\n"
    "    with FILE       with the configuration in a file (.json or .xml)\n"
    "    empty           with no configuration, and no filters\n"
    "  show commits    what is in force, and what became of the last commits\n"
    "  show config     the running configuration (--json, the default, or --xml)\n"
    "  show resources  filter entries: capacity and use\n"
    "  show groups     the filter groups: what is programmed, in the order of evaluation\n"
    "    --hits          with the frames that each entry decided\n"
    "  flush           remove all filters from the kernel; the daemon must not be running\n"
    "\n"
    "Options:\n"
    "  --json          print JSON instead of a table or a text (not apply, flush)\n"
    "  --xml           print XML instead of a table (show commands but commit)\n"
    "  --socket PATH   the daemon's NETCONF socket (default: $ACL_APP_SOCKET, else\n"
    "                  what %s says,\n"
    "                  or the file that $ACL_APP_SETTINGS names)\n"
    "  --help          print this and exit\n"
    "  --version       print the version and exit\n"
    "\n"
    "Exit status:\n"
    "  0  success\n"
    "  2  the command line is wrong\n"
    "  3  a file cannot be read, or is not what it should be\n"
    "  4  the daemon cannot be reached\n"
    "  5  the daemon refused the request, or would; the reasons are printed, nothing was changed\n"
    "  6  the daemon's answer cannot be understood, or does not come\n"
    "  7  the kernel refused\n"
    "  8  the commit was made and stands, but its filters are not in force; the reasons are "
    "printed\n";

int FailUsage(const std::string& message) {
  std::fprintf(stderr, "aclctl: %s\nTry 'aclctl --help'.\n", message.c_str());
  return kUsage;
}

const Command* FindCommand(const std::vector<std::string>& words) {
  for (const Command& command : kCommands) {
    bool same = words.size() >= command.words.size();
    for (size_t i = 0; same && i < command.words.size(); ++i) same = words[i] == command.words[i];
    if (same) return &command;
  }
  return nullptr;
}

// Why the words begin no command.
std::string WhyUnknown(const std::vector<std::string>& words) {
  std::string following;
  for (const Command& command : kCommands) {
    if (command.words.size() < 2 || words[0] != command.words[0]) continue;
    following += (following.empty() ? "" : ", ") + std::string(command.words[1]);
  }
  if (following.empty()) return "there is no command \"" + words[0] + "\"";
  return words[0] + " is followed by one of: " + following +
         (words.size() > 1 ? "; not by \"" + words[1] + "\"" : "");
}

// The first of the options `given` that the command does not take, as it is written, or null.
const char* FindUntaken(const Command& command, unsigned given) {
  static const struct {
    unsigned bit;
    const char* name;
  } kNames[] = {{kJson, "--json"},
                {kXml, "--xml"},
                {kReplace, "--replace"},
                {kHits, "--hits"},
                {kMost, "-n"}};
  for (const auto& option : kNames) {
    if ((given & ~command.options & option.bit) != 0) return option.name;
  }
  return nullptr;
}

std::string Name(const Command& command) {
  std::string name;
  for (const char* word : command.words) name += (name.empty() ? "" : " ") + std::string(word);
  return name;
}

int Run(const Command& command, const Arguments& arguments) {
  const Failure failure = command.run(arguments);
  if (std::fflush(stdout) != 0) {
    std::perror("aclctl: cannot write");
    return kFile;
  }
  if (!failure) return kSuccess;
  std::fprintf(stderr, "aclctl: %s\n", failure.message.c_str());
  for (const std::string& detail : failure.details) {
    std::fprintf(stderr, "  %s\n", detail.c_str());
  }
  return failure.code;
}

int Main(int argc, char** argv) {
  enum { kSocket = 256, kShowHelp, kShowVersion };
  unsigned given = 0;
  static const option kOptions[] = {
      {"json", no_argument, nullptr, kJson},           {"xml", no_argument, nullptr, kXml},
      {"replace", no_argument, nullptr, kReplace},     {"hits", no_argument, nullptr, kHits},
      {"socket", required_argument, nullptr, kSocket}, {"help", no_argument, nullptr, kShowHelp},
      {"version", no_argument, nullptr, kShowVersion}, {nullptr, 0, nullptr, 0},
  };
  Arguments arguments;
  for (int choice; (choice = getopt_long(argc, argv, "hn:", kOptions, nullptr)) != -1;) {
    switch (choice) {
      case kJson:
      case kXml:
      case kReplace:
      case kHits:
        given |= choice;
        break;
      case 'n':
        given |= kMost;
        arguments.most = optarg;
        break;
      case kSocket:
        arguments.socket = optarg;
        break;
      case kShowHelp:
      case 'h':
        std::printf(kHelp, host::SettingsFile().c_str());
        return kSuccess;
      case kShowVersion:
        std::printf("aclctl %s\n", host::Version());
        return kSuccess;
      default:
        return FailUsage("the command line is wrong");
    }
  }
  arguments.json = (given & kJson) != 0;
  arguments.xml = (given & kXml) != 0;
  arguments.replace = (given & kReplace) != 0;
  arguments.hits = (given & kHits) != 0;
  if (arguments.json && arguments.xml) return FailUsage("--json and --xml exclude each other");
  std::vector<std::string> words(argv + optind, argv + argc);
  if (words.empty()) return FailUsage("a command is missing");
  const Command* command = FindCommand(words);
  if (command == nullptr) return FailUsage(WhyUnknown(words));
  if (const char* option = FindUntaken(*command, given)) {
    return FailUsage(Name(*command) + " does not take " + option);
  }
  words.erase(words.begin(), words.begin() + command->words.size());
  if (words.size() != static_cast<size_t>(command->operands)) {
    return FailUsage("wrong number of arguments for " + Name(*command));
  }
  arguments.operands = std::move(words);
  std::string error;
  if (arguments.socket.empty() && !host::FindSocket(&arguments.socket, &error)) {
    std::fprintf(stderr, "aclctl: %s\n", error.c_str());
    return kFile;
  }
  ly_log_options(LY_LOSTORE_LAST);
  return Run(*command, arguments);
}

}  // namespace
}  // namespace aclctl

int main(int argc, char** argv) { return aclctl::Main(argc, argv); }
