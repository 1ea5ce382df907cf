// Reading of differences in libyang's form: nodes carry yang:operation, and those without inherit
// their parent's.
#ifndef HOST_CDB_DIFF_H_
#define HOST_CDB_DIFF_H_

#include "host/cdb/yang_tree.h"

namespace host {

enum class DiffOperation {
  kNone,  // the node is there before and after; something below it changed
  kCreate,
  kDelete,
  kReplace,  // a leaf with another value
};

// The node's operation, `inherited` when it has none of its own.
DiffOperation DiffOperationOf(const lyd_node* node, DiffOperation inherited);

}  // namespace host

#endif  // HOST_CDB_DIFF_H_
