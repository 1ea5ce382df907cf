// The daemon's data: asking for it and reading it (tools/client/data.h), and printing it as it is.
#ifndef TOOLS_ACLCTL_DAEMON_DATA_H_
#define TOOLS_ACLCTL_DAEMON_DATA_H_

#include <string>

#include "tools/aclctl/command.h"
#include "tools/client/data.h"

namespace aclctl {

using client::Children;
using client::ChildText;
using client::FetchState;
using client::FindChild;

// Prints `data`, of `module`, to standard output as JSON or, where `form` says so, as XML.
Failure PrintData(Form form, Client* client, const std::string& module, const std::string& data);

// What `reply_text`, an <rpc-reply> to the operation `name` of `module`, holds, as JSON: given in
// `*json`, or printed.
Failure OutputAsJson(Client* client, const std::string& module, const std::string& name,
                     const std::string& reply_text, std::string* json);
Failure PrintOutput(Client* client, const std::string& module, const std::string& name,
                    const std::string& reply_text);

// "L2" or "L3", for people, from the leaf `type` in what the daemon tells of a filter group.
std::string GroupName(const lyd_node* group);

// "2026-11-21T06:47:21.123456Z" without what a person does not need.
std::string ShortTime(const std::string& time);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_DAEMON_DATA_H_
