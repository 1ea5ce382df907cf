// The edits of a commit, as <netconf-config-change> tells them (RFC 6470 section 2.2).
#ifndef HOST_NETCONF_NOTIFICATIONS_CONFIG_EDITS_H_
#define HOST_NETCONF_NOTIFICATIONS_CONFIG_EDITS_H_

#include <string>
#include <vector>

#include "host/cdb/schema/yang_tree.h"

namespace host {

struct ConfigEdit {
  std::string target;          // instance path in libyang's form, of the topmost node that changed
  const char* operation = "";  // of RFC 6241 section 7.2
};

struct ConfigEdits {
  std::vector<ConfigEdit> edits;
  bool combined = false;  // there are more: these are merges into what they are in
};

// The edits that make up a difference in libyang's form, at most `most`. Where there are more,
// those within an entry of an outermost list are combined into a merge into that entry; if that is
// not enough, all into one into the top-level node. Takes time for no more than `most` edits.
ConfigEdits EditsOf(const lyd_node* diff, size_t most);

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_CONFIG_EDITS_H_
