// Edits of a configuration as RFC 6241, section 7.2 defines them, on libyang trees.
//
// An edit is a tree of the nodes to change. A node may carry an operation (metadata
// ietf-netconf:operation, an attribute on an opaque node); the others inherit their parent's, the
// topmost the default operation. Nodes that the schema does not know, or whose value it refuses,
// arrive as opaque nodes; so does a leaf that is to be deleted and names no value, which is legal.
#ifndef HOST_CDB_EDIT_EDIT_H_
#define HOST_CDB_EDIT_EDIT_H_

#include "host/cdb/datastore.h"
#include "host/cdb/schema/yang_tree.h"

namespace host {

// The namespace of opaque nodes that have none: libyang cannot do without.
inline constexpr char kNoNamespace[] = "urn:acl-app:no-namespace";

// Looks at the edit alone: unknown nodes, bad values, missing keys, state, nodes given twice, two
// cases of one choice. Returns all that is wrong.
DatastoreErrors CheckEdit(const ly_ctx* context, const lyd_node* edit);

// Copies the part of `running` that `edit` can change or that a constraint on it can see: every
// list entry on the edit's paths with its own content (the entries of lists within only where the
// edit names them), and all that is below a node that is replaced or deleted. Costs the same
// however large running is. The edit has passed CheckEdit().
Tree CopyTouched(const lyd_node* running, const lyd_node* edit, DefaultOperation default_operation);

// Applies the edit to `target`, which it may leave half changed when it returns errors.
DatastoreErrors ApplyEdit(const ly_ctx* context, const lyd_node* edit,
                          DefaultOperation default_operation, Tree* target);
// The same, with the edit's new entries going over into `target` instead of being copied.
DatastoreErrors ApplyEditFrom(const ly_ctx* context, Tree edit, DefaultOperation default_operation,
                              Tree* target);

}  // namespace host

#endif  // HOST_CDB_EDIT_EDIT_H_
