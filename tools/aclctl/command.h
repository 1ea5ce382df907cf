// What a command of aclctl is. Every command is one constant of type Command, in the file that
// carries it out; commands.cpp lists them all. The command line, the help, the list of commands and
// the shell's completion are made from these constants, so that a command is described once.
//
//   struct Wanted { std::string profile; bool hits = false; };
//
//   Run SetUpAcl(Syntax* syntax) {
//     const auto wanted = std::make_shared<Wanted>();
//     syntax->OptionalOperand("PROFILE", &wanted->profile, "this profile alone", Names::kProfiles);
//     syntax->Flag("--hits", &wanted->hits, "with the frames that each entry decided");
//     return [wanted](const Common& common) { return ShowAcl(common, *wanted); };
//   }
//
//   const Command kShowAcl = {"show acl", Group::kLook, "profiles as they are configured",
//                             "aclctl show acl guests", SetUpAcl, kXml | kPaged};
#ifndef TOOLS_ACLCTL_COMMAND_H_
#define TOOLS_ACLCTL_COMMAND_H_

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "tools/aclctl/client.h"

namespace CLI {
class App;
}

namespace aclctl {

// What a command prints.
enum class Form { kText, kJson, kXml };

// What holds for all commands.
struct Common {
  std::string socket;  // path of the daemon's socket
  Form form = Form::kText;
};

// Carries out a command whose line has been read.
using Run = std::function<Failure(const Common& common)>;

// What an operand can name; the shell completes it accordingly.
enum class Names { kNothing, kFiles, kProfiles, kInterfaces, kCommits, kEditWords };

// The operands and options of one command, declared by the command. What is declared must live
// until the command has run. Exists for the command line to be read by a library that commands need
// not know, and for the completion to know what operands name.
class Syntax {
 public:
  explicit Syntax(CLI::App* app) : app_(app) {}

  // A word that has to be there.
  void Operand(const char* name, std::string* value, const char* help,
               Names names = Names::kNothing);
  // A word that may be left out; the value then stays as it is. Follows all that may not.
  void OptionalOperand(const char* name, std::string* value, const char* help,
                       Names names = Names::kNothing);
  // All words that follow, at least `least`.
  void Operands(const char* name, std::vector<std::string>* values, size_t least, const char* help,
                Names names = Names::kNothing);
  // An option without a value. `names` are separated by commas, as in "-n,--number".
  void Flag(const char* names, bool* value, const char* help);
  // An option with a value, which is called `value_name` in the help.
  void Option(const char* names, const char* value_name, std::string* value, const char* help,
              Names of_value = Names::kNothing);

  // What the values of options name.
  const std::map<std::string, Names>& values() const { return values_; }
  // What the operands name, in their order; the last one holds for all that follow.
  const std::vector<Names>& operands() const { return operands_; }

 private:
  CLI::App* app_;
  std::vector<Names> operands_;
  std::map<std::string, Names> values_;  // by the option's long name, with its dashes
};

// The heading that a command stands below in `aclctl --help`.
enum class Group { kConfigure, kCommits, kLook, kRecover, kOther };

// Properties of commands, a bit each.
enum : unsigned {
  kXml = 1,     // takes --xml
  kPaged = 2,   // at a terminal, long output goes through a pager
  kHidden = 4,  // is not in the list of commands
};

struct Command {
  const char* name;     // its words, such as "show groups"
  Group group;          // where the list of commands has it
  const char* help;     // a line: what it does
  const char* example;  // one or more lines, as they are typed
  // Declares operands and options. What it returns is called when the command line is right.
  Run (*set_up)(Syntax* syntax);
  unsigned traits = 0;
};

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMAND_H_
