// The constraints that join units, checked on a commit's difference alone:
//  - a profile that is bound to an interface exists;
//  - profile names are unique across both types;
//  - a profile keeps its priority from its creation to its deletion.
// The checks keep an index of the profiles and of who binds them, so that their cost is that of the
// difference.
#ifndef HOST_CDB_CROSS_CHECKS_H_
#define HOST_CDB_CROSS_CHECKS_H_

#include <map>
#include <set>
#include <string>

#include "host/cdb/datastore.h"

namespace host {

class CrossChecks {
 public:
  // `diff` is a difference in libyang's form. Returns all that is wrong with it; the index stays.
  DatastoreErrors Check(const lyd_node* diff) const;
  // Takes a difference that passed Check() into the index.
  void Apply(const lyd_node* diff);

  // Both for a whole configuration, as the difference to an empty one. For a new index only.
  DatastoreErrors CheckWhole(const lyd_node* tree) const;
  void ApplyWhole(const lyd_node* tree);

 private:
  std::map<std::string, std::set<std::string>> types_of_;       // profile name to types
  std::map<std::string, std::set<std::string>> interfaces_of_;  // profile name to who binds it
};

}  // namespace host

#endif  // HOST_CDB_CROSS_CHECKS_H_
