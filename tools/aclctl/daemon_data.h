// The daemon's data: asking for it, reading it, printing it as it is.
#ifndef TOOLS_ACLCTL_DAEMON_DATA_H_
#define TOOLS_ACLCTL_DAEMON_DATA_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/aclctl/command.h"

namespace aclctl {

// Fetches what the subtree filter `filter` selects of the operational data. `*data` is the content
// of <data> as XML; `*reply` holds the same, read, with `*top` as its first element (null: none).
Failure FetchState(Client* client, const std::string& filter, std::string* data, host::Tree* reply,
                   const lyd_node** top);
// Prints `data`, of `module`, to standard output as JSON or, where `form` says so, as XML.
Failure PrintData(Form form, Client* client, const std::string& module, const std::string& data);

// What `reply_text`, an <rpc-reply> to the operation `name` of `module`, holds, as JSON: given in
// `*json`, or printed.
Failure OutputAsJson(Client* client, const std::string& module, const std::string& name,
                     const std::string& reply_text, std::string* json);
Failure PrintOutput(Client* client, const std::string& module, const std::string& name,
                    const std::string& reply_text);

// "2026-11-21T06:47:21.123456Z" without what a person does not need.
std::string ShortTime(const std::string& time);

// Text of the child `name`, empty when there is none.
std::string ChildText(const lyd_node* parent, std::string_view name);
// First child `name`, or null.
const lyd_node* FindChild(const lyd_node* parent, std::string_view name);
// All children `name`.
std::vector<const lyd_node*> Children(const lyd_node* parent, std::string_view name);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_DAEMON_DATA_H_
