// The configuration in lines, one statement each, in the words of the tables:
//
//   set acl guests type l3 priority 20 description "Guests of the house"
//   set acl guests 10 match dst-ip 203.0.113.53 protocol udp dst-port dns action permit
//   bind guests access-1 access-2
//
// The same statements are commands of aclctl. A file of lines is one edit; "#" begins a comment.
// What stands behind "match" is all that the entry matches, and likewise behind "action": an entry
// never keeps a match that the line does not show.
#ifndef TOOLS_ACLCTL_LINES_H_
#define TOOLS_ACLCTL_LINES_H_

#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "tools/aclctl/config_tree.h"

namespace aclctl {

// The words of one statement.
using Statement = std::vector<std::string>;

// What of the configuration statements look at or change.
struct Scope {
  struct Entries {
    bool all = false;
    std::set<std::string> priorities;
  };
  bool everything = false;
  bool all_interfaces = false;
  std::map<std::string, Entries> profiles;
  std::set<std::string> interfaces;
};

// Splits a line into words; "..." holds blanks, with \ before a quote or itself. What is wrong with
// the line, empty when nothing is. A line without words is a comment, or blank.
std::string SplitLine(std::string_view line, Statement* words);

// Adds what the statement needs. Statements that are wrong need anything.
void AddScope(const Statement& statement, Scope* scope);

// Carries out a statement on the configuration. What is wrong with it, empty when nothing is: the
// configuration is half changed then. A word that is wrong is named, with what is expected.
std::string ApplyStatement(const Statement& statement, ConfigTree* config);

// The statements that make `profile`, and those that bind it, a line each.
std::string ProfileInLines(const lyd_node* profile);
std::string BindingsInLines(const ConfigTree& config, const std::string& profile);
// The whole configuration.
std::string InLines(const ConfigTree& config);

// The verbs, and how statements with them are written.
struct Verb {
  const char* verb;
  const char* form;  // what follows the verb
};
const std::vector<Verb>& Verbs();

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_LINES_H_
