// What a difference does to that which joins the configuration's units: the profiles, their
// priorities and entries, and the bindings.
#ifndef HOST_CDB_CONFIG_CHANGES_H_
#define HOST_CDB_CONFIG_CHANGES_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/cdb/diff.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

struct ProfileChange {
  const lyd_node* node;     // the profile's entry
  DiffOperation operation;  // kNone: it stays, with other entries
  std::string type;         // "l2" or "l3"
  std::string name;
  int priority;  // of a profile that comes or goes
  // Priorities of the entries that come, and of those that go, each ascending.
  std::vector<uint16_t> added;
  std::vector<uint16_t> removed;
};

struct BindingChange {
  const lyd_node* node;     // the leaf-list's element
  DiffOperation operation;  // kCreate or kDelete
  std::string interface;
  std::string profile;
};

struct ConfigChanges {
  std::vector<ProfileChange> profiles;
  std::vector<BindingChange> bindings;
  std::vector<const lyd_node*> priorities;  // leaves of profiles that stay
};

// Collects the changes of a difference in libyang's form. The nodes in the result are the
// difference's.
ConfigChanges ChangesOfDifference(const lyd_node* diff);
// The same of a whole configuration, as the difference to an empty one.
ConfigChanges ChangesOfWhole(const lyd_node* tree);

}  // namespace host

#endif  // HOST_CDB_CONFIG_CHANGES_H_
