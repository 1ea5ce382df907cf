// aclctl's commands, a function each.
#ifndef TOOLS_ACLCTL_COMMANDS_H_
#define TOOLS_ACLCTL_COMMANDS_H_

#include <string>
#include <vector>

#include "tools/aclctl/client.h"

namespace aclctl {

// The command line, read.
struct Arguments {
  std::string socket;
  bool json = false;
  bool xml = false;
  bool replace = false;
  bool hits = false;
  std::string most = "20";            // -n
  std::vector<std::string> operands;  // what follows the command's name
};

// Merges a file into the configuration, or replaces the configuration with it.
Failure Apply(const Arguments& arguments);
Failure ShowConfig(const Arguments& arguments);
Failure ShowResources(const Arguments& arguments);
Failure ShowGroups(const Arguments& arguments);
// How the daemon is: what to look at first.
Failure ShowStatus(const Arguments& arguments);
// What a stored configuration that is in doubt is to be: what was found, nothing, or a file's.
Failure RecoverAccept(const Arguments& arguments);
Failure RecoverEmpty(const Arguments& arguments);
Failure RecoverWith(const Arguments& arguments);
// What became of the commits, and what is in force.
Failure ShowCommits(const Arguments& arguments);
// The history of the configuration, and the way back.
Failure History(const Arguments& arguments);
Failure ShowCommit(const Arguments& arguments);
Failure Rollback(const Arguments& arguments);
// What the edit in a file would change, and whether it would be accepted.
Failure Diff(const Arguments& arguments);
Failure Check(const Arguments& arguments);
// Removes what the daemon has left in the kernel's packet filter.
Failure Flush(const Arguments& arguments);

// Fetches what the subtree filter `filter` selects of the operational data. `*data` is the content
// of <data> as XML; `*reply` holds the same, read, with `*top` as its first element (null: none).
Failure FetchState(Client* client, const std::string& filter, std::string* data, host::Tree* reply,
                   const lyd_node** top);
// Prints `data`, of `module`, to standard output, in the form that the arguments ask for.
Failure PrintData(const Arguments& arguments, Client* client, const std::string& module,
                  const std::string& data);

// Prints what `reply_text`, an <rpc-reply> to the operation `name` of acl-app-history, holds as
// JSON.
Failure PrintOutput(Client* client, const std::string& name, const std::string& reply_text);

// "2026-11-21T06:47:21.123456Z" without what a person does not need.
std::string ShortTime(const std::string& time);

// Text of the child `name`, empty when there is none.
std::string ChildText(const lyd_node* parent, std::string_view name);
// First child `name`, or null.
const lyd_node* FindChild(const lyd_node* parent, std::string_view name);
// All children `name`.
std::vector<const lyd_node*> Children(const lyd_node* parent, std::string_view name);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_COMMANDS_H_
