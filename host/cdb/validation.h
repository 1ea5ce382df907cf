// Validation of what an edit makes.
//
// libyang validates a tree node by node, which takes as long as parsing it. Most of a bulk edit is
// entries of lists about which the schema says nothing that could be broken: no constraint on what
// is in them, none outside that looks at them. These are set aside meanwhile. What the schema says
// is looked up in the schema, so a constraint that is added to it is seen here.
#ifndef HOST_CDB_VALIDATION_H_
#define HOST_CDB_VALIDATION_H_

#include <map>
#include <string>

#include "host/cdb/schema/yang_tree.h"

namespace host {

class EditValidator {
 public:
  // `context` must outlive the validator.
  explicit EditValidator(const ly_ctx* context) : context_(context) {}

  // Validates `tree` as lyd_validate_all() does. Every value in it is one of its type, no node is
  // there twice, and no choice has two cases: an edit sees to that as it is applied. False when the
  // tree is not valid; libyang has noted why.
  bool Validate(Tree* tree);

 private:
  bool NeedsNothing(const lyd_node* entry);
  bool IsUnconstrained(const lysc_node* list);

  const ly_ctx* context_;
  std::map<const lysc_node*, bool> unconstrained_;  // what was found out about lists
};

}  // namespace host

#endif  // HOST_CDB_VALIDATION_H_
