// The daemon's data: asking for it, and reading it.
#ifndef TOOLS_CLIENT_DATA_H_
#define TOOLS_CLIENT_DATA_H_

#include <string>
#include <string_view>
#include <vector>

#include "tools/client/client.h"

namespace client {

// Fetches what the subtree filter `filter` selects of the operational data. `*data` is the content
// of <data> as XML; `*reply` holds the same, read, with `*top` as its first element (null: none).
Failure FetchState(Client* client, const std::string& filter, std::string* data, host::Tree* reply,
                   const lyd_node** top);

// Text of the child `name`, empty when there is none.
std::string ChildText(const lyd_node* parent, std::string_view name);
// First child `name`, or null.
const lyd_node* FindChild(const lyd_node* parent, std::string_view name);
// All children `name`.
std::vector<const lyd_node*> Children(const lyd_node* parent, std::string_view name);

}  // namespace client

#endif  // TOOLS_CLIENT_DATA_H_
