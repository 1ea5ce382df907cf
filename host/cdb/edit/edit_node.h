// One node of an edit, whether libyang made it a data node or an opaque one.
#ifndef HOST_CDB_EDIT_EDIT_NODE_H_
#define HOST_CDB_EDIT_EDIT_NODE_H_

#include <optional>
#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

enum class Operation { kNone, kMerge, kReplace, kCreate, kDelete, kRemove };

inline Operation FromDefault(DefaultOperation operation) {
  switch (operation) {
    case DefaultOperation::kReplace:
      return Operation::kReplace;
    case DefaultOperation::kNone:
      return Operation::kNone;
    default:
      return Operation::kMerge;
  }
}

inline bool Removes(Operation operation) {
  return operation == Operation::kDelete || operation == Operation::kRemove;
}

// The node's own operation, none when it inherits. An unknown operation counts as none given;
// libyang's parser refuses it before.
std::optional<Operation> OwnOperation(const lyd_node* node);

inline Operation OperationOf(const lyd_node* node, Operation inherited) {
  return OwnOperation(node).value_or(inherited);
}

// The schema node that an edit's node stands for, null when there is none. `parent` is the schema
// of the parent, null at the top.
const lysc_node* EditSchema(const ly_ctx* context, const lyd_node* node, const lysc_node* parent);

// Path of an edit's node, an opaque one's included.
std::string EditPath(const lyd_node* node);

}  // namespace host

#endif  // HOST_CDB_EDIT_EDIT_NODE_H_
