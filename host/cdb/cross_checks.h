// The constraints that join units, checked on a commit's difference alone:
//  - a profile that is bound to an interface exists;
//  - profile names are unique across both types;
//  - a profile keeps its priority from its creation to its deletion;
//  - the profiles of one interface have different priorities, for of two with the same the merge
//    would use one only;
//  - what the bindings need fits into the filter groups.
// They look at the index of what joins units (config_index.h), so that their cost is that of the
// difference and, where bindings change, of the bindings of the same interfaces.
#ifndef HOST_CDB_CROSS_CHECKS_H_
#define HOST_CDB_CROSS_CHECKS_H_

#include <cstdint>
#include <optional>

#include "host/cdb/config_index.h"
#include "host/cdb/datastore.h"

namespace host {

class CrossChecks {
 public:
  // `capacity` is the number of entries that each group holds; none: any number.
  explicit CrossChecks(std::optional<uint32_t> capacity) : capacity_(capacity) {}

  // `diff` is a difference in libyang's form. Returns all that is wrong with it, the capacity aside
  // unless `with_capacity`, and in `then` (may be null) what the groups would need. The index stays
  // as it is.
  DatastoreErrors Check(const lyd_node* diff, bool with_capacity, GroupNeeds* then = nullptr);
  // Takes a difference that passed Check() into the index.
  void Apply(const lyd_node* diff) { index_.Apply(ChangesOfDifference(diff)); }

  // Takes in a whole configuration that was stored; for a new index only. All is checked but the
  // capacity, which may have been another then.
  DatastoreErrors Load(const lyd_node* tree);

  // What the groups need now.
  const GroupNeeds& needs() const { return index_.needs(); }
  // Where the entries of the group `type` come from.
  std::shared_ptr<const GroupOrigins> OriginsOf(const std::string& type) const {
    return index_.OriginsOf(type);
  }

 private:
  DatastoreErrors CheckCapacity(const GroupNeeds& before) const;

  std::optional<uint32_t> capacity_;
  ConfigIndex index_;
};

}  // namespace host

#endif  // HOST_CDB_CROSS_CHECKS_H_
