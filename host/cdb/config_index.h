// What joins the configuration's units, beside the running tree: the profiles by name with the
// priorities of their entries, who binds them, how many filter entries that takes, and where each
// of these comes from. Changed by each commit's difference, at the cost of the difference.
//
// Every binding puts a copy of its profile's entries into the group of the profile's type, so what
// a group needs is the sum of that over the bindings.
#ifndef HOST_CDB_CONFIG_INDEX_H_
#define HOST_CDB_CONFIG_INDEX_H_

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/cdb/config_changes.h"
#include "host/cdb/datastore.h"
#include "host/runtime/entry_origins.h"

namespace host {

class ConfigIndex {
 public:
  struct Profile {
    int priority = 0;
    // Copied before it is changed where a GroupOrigins shares it.
    std::shared_ptr<AcePriorities> entries = std::make_shared<AcePriorities>();
  };
  // A valid configuration has each name with one type only.
  using ByType = std::map<std::string, Profile>;
  using Names = std::set<std::string>;

  struct Binding {
    std::string interface;
    std::string profile;
    int64_t entries = 0;
  };

  // Takes changes in, or takes back what was just taken in.
  void Apply(const ConfigChanges& changes);
  void Revert(const ConfigChanges& changes);

  // The profiles of a name; empty when there is none.
  const ByType& ProfilesNamed(const std::string& name) const;
  const Names& InterfacesOf(const std::string& profile) const;
  const Names& ProfilesOf(const std::string& interface) const;

  // Entries by group. Has both groups.
  const GroupNeeds& needs() const { return needs_; }
  // Where the entries of the group `type` come from. Looks at all bindings.
  std::shared_ptr<const GroupOrigins> OriginsOf(const std::string& type) const;
  // The `most` bindings that need most of the group `type`, the largest first. Looks at all.
  std::vector<Binding> CostliestBindings(const std::string& type, size_t most) const;

 private:
  using Relation = std::map<std::string, Names>;

  void Change(const ConfigChanges& changes, bool forward);
  void ChangeProfile(const ProfileChange& change, bool forward);
  void ChangeBinding(const BindingChange& change, bool forward);

  std::map<std::string, ByType> profiles_;
  Relation interfaces_of_;  // profile to who binds it
  Relation profiles_of_;    // interface to what is bound to it
  GroupNeeds needs_{{"l2", 0}, {"l3", 0}};
};

}  // namespace host

#endif  // HOST_CDB_CONFIG_INDEX_H_
