// The command line, read by CLI11: see command_line.h.
#include "tools/aclctl/command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>

#include "host/runtime/settings.h"
#include "host/runtime/version.h"
#include "tools/aclctl/commands.h"

namespace aclctl {
namespace {

// CLI11 takes a word in brackets for a list, and takes it apart. A NUL at its end, which no word of
// a command line has, keeps it whole until it has been read.
std::string HideBrackets(const std::string& word) {
  const bool list = word.size() > 1 && word.front() == '[' && word.back() == ']';
  return list ? word + '\0' : word;
}

std::string ShowBrackets(std::string word) {
  if (!word.empty() && word.back() == '\0') word.pop_back();
  return word;
}

// Declares an operand or an option, and where its values go.
template <typename Value>
CLI::Option* AddValue(CLI::App* app, const char* names, Value* value, const char* help) {
  return app->add_option(names, *value, help)->transform(ShowBrackets);
}

}  // namespace

void Syntax::Operand(const char* name, std::string* value, const char* help, Names names) {
  AddValue(app_, name, value, help)->required()->type_name(" ");
  operands_.push_back(names);
}

void Syntax::OptionalOperand(const char* name, std::string* value, const char* help, Names names) {
  AddValue(app_, name, value, help)->type_name(" ");
  operands_.push_back(names);
}

void Syntax::Operands(const char* name, std::vector<std::string>* values, size_t least,
                      const char* help, Names names) {
  AddValue(app_, name, values, help)->type_name(" ")->required(least > 0);
  operands_.push_back(names);
}

void Syntax::Flag(const char* names, bool* value, const char* help) {
  app_->add_flag(names, *value, help);
}

void Syntax::Option(const char* names, const char* value_name, std::string* value, const char* help,
                    Names of_value) {
  const CLI::Option* option = AddValue(app_, names, value, help)->type_name(value_name);
  for (const std::string& name : option->get_lnames()) values_["--" + name] = of_value;
}

namespace {

constexpr struct {
  Group group;
  const char* heading;
} kHeadings[] = {{Group::kConfigure, "Configure"},
                 {Group::kCommits, "Commits, and the way back"},
                 {Group::kLook, "Look"},
                 {Group::kRecover, "Recover and remove"},
                 {Group::kOther, "Other"}};

constexpr char kExitStatus[] =
    "Exit status:\n"
    "  0  success\n"
    "  2  the command line is wrong\n"
    "  3  a file cannot be read, or is not what it should be\n"
    "  4  the daemon cannot be reached\n"
    "  5  the daemon refused the request, or would; the reasons are printed, nothing was changed\n"
    "  6  the daemon's answer cannot be understood, or does not come\n"
    "  7  the kernel refused\n"
    "  8  the commit was made and stands, but its filters are not in force; the reasons are "
    "printed\n"
    "  9  converted, but for what was left out as the options allow; it is listed\n";

// Options that stand on every command line.
struct Globals {
  std::string socket;
  bool json = false;
  bool xml = false;
};

void AddGlobals(CLI::App* app, unsigned traits, Globals* globals) {
  app->add_flag("--json", globals->json, "print JSON");
  if ((traits & kXml) != 0) app->add_flag("--xml", globals->xml, "print XML");
  AddValue(app, "--socket", &globals->socket, "the daemon's NETCONF socket")->type_name("PATH");
}

std::string Example(const Command& command) {
  std::string text = "Example:\n  ";
  for (const char* c = command.example; *c != 0; ++c) {
    text += *c;
    if (*c == '\n') text += "  ";
  }
  return text;
}

std::string ListOfCommands() {
  std::string text = "Usage: aclctl COMMAND [OPTION]...\n";
  size_t width = 0;
  for (const Command* command : AllCommands()) {
    if ((command->traits & kHidden) == 0) {
      width = std::max(width, std::string_view(command->name).size());
    }
  }
  for (const auto& heading : kHeadings) {
    std::string below;
    for (const Command* command : AllCommands()) {
      if (command->group != heading.group || (command->traits & kHidden) != 0) continue;
      std::string name = command->name;
      name.resize(width, ' ');
      below += "  " + name + "  " + command->help + "\n";
    }
    if (!below.empty()) text += "\n" + std::string(heading.heading) + ":\n" + below;
  }
  return text +
         "\n\"aclctl COMMAND --help\" tells more of a command, with an example.\n"
         "\n"
         "Options of every command:\n"
         "  --json          print JSON instead of a table or a text\n"
         "  --socket PATH   the daemon's NETCONF socket (default: $ACL_APP_SOCKET, else what\n"
         "                  " +
         host::SettingsFile() +
         " says, or the file that\n"
         "                  $ACL_APP_SETTINGS names)\n"
         "  --help          print this, or what there is to know of a command\n"
         "  --version       print the version\n"
         "\n" +
         kExitStatus;
}

bool IsOption(const std::string& word) { return word.size() > 1 && word[0] == '-'; }

// Splits `words` into those that name the command and all others. Options may stand before it.
void SplitName(const std::vector<std::string>& words, std::vector<std::string>* candidates,
               std::vector<size_t>* places) {
  for (size_t i = 0; i < words.size() && words[i] != "--"; ++i) {
    if (words[i] == "--socket") {
      ++i;
    } else if (!IsOption(words[i])) {
      candidates->push_back(words[i]);
      places->push_back(i);
    }
  }
}

bool Has(const std::vector<std::string>& words, const char* word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

// What CLI11 found wrong, in this program's words.
std::string WhyWrong(const Command& command, const CLI::App& app, const CLI::ParseError& error) {
  const std::string name = command.name;
  for (const std::string& extra : app.remaining()) {
    if (IsOption(extra)) return name + " does not take " + extra;
  }
  if (!app.remaining().empty()) {
    return "wrong number of arguments for " + name + ": \"" + app.remaining()[0] + "\" is too many";
  }
  if (error.get_name() == "RequiredError") {
    return "wrong number of arguments for " + name + ": " + error.what();
  }
  return name + ": " + error.what();
}

Failure ReadCommand(const Command& command, std::vector<std::string> words, CommandLine* line) {
  CLI::App app(command.help, std::string("aclctl ") + command.name);
  app.footer(Example(command));
  app.set_help_flag("-h,--help", "print this and exit");
  Syntax syntax(&app);
  line->command = &command;
  line->run = command.set_up(&syntax);
  Globals globals;
  AddGlobals(&app, command.traits, &globals);
  std::transform(words.begin(), words.end(), words.begin(), HideBrackets);
  std::reverse(words.begin(), words.end());  // as the parser takes them
  try {
    app.parse(words);
  } catch (const CLI::CallForHelp&) {
    line->print = app.help();
    return {};
  } catch (const CLI::ParseError& error) {
    return {kUsage, WhyWrong(command, app, error), {}};
  }
  if (globals.json && globals.xml) return {kUsage, "--json and --xml exclude each other", {}};
  line->common.form = globals.json ? Form::kJson : globals.xml ? Form::kXml : Form::kText;
  line->common.socket = globals.socket;
  return {};
}

}  // namespace

Failure ReadCommandLine(const std::vector<std::string>& words, CommandLine* line) {
  std::vector<std::string> candidates;
  std::vector<size_t> places;
  SplitName(words, &candidates, &places);
  size_t taken = 0;
  const Command* command = FindCommand(candidates, &taken);
  if (command == nullptr) {
    if (Has(words, "--version")) {
      line->print = std::string("aclctl ") + host::Version() + "\n";
    } else if (Has(words, "--help") || Has(words, "-h") || Has(candidates, "help")) {
      line->print = ListOfCommands();
    } else {
      return {kUsage, WhyNoCommand(candidates), {}};
    }
    return {};
  }
  std::vector<std::string> rest = words;
  for (size_t i = taken; i > 0; --i) rest.erase(rest.begin() + static_cast<long>(places[i - 1]));
  return ReadCommand(*command, std::move(rest), line);
}

Completable DescribeCommand(const Command& command) {
  CLI::App app;
  app.set_help_flag("--help");
  Syntax syntax(&app);
  command.set_up(&syntax);
  Globals globals;
  AddGlobals(&app, command.traits, &globals);
  Completable completable;
  completable.operands = syntax.operands();
  completable.values = syntax.values();
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      completable.options.push_back("--" + name);
    }
  }
  return completable;
}

}  // namespace aclctl
