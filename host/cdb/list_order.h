// The order in which entries of lists are shown.
//
// The order of most lists is the system's business (RFC 7950 section 7.7.7), and libyang keeps
// their entries as they came, which differs after a restart. So that two readings of one
// configuration are the same text, they are shown by key: numbers by value, all else by the octets
// of its canonical text.
#ifndef HOST_CDB_LIST_ORDER_H_
#define HOST_CDB_LIST_ORDER_H_

#include "host/cdb/schema/yang_tree.h"

namespace host {

// True for lists and leaf-lists that are shown by key: those of configuration but for those that
// the user orders. State has the order that whoever makes it gave it.
inline bool IsShownByKey(const lysc_node* schema) {
  return (schema->nodetype & (LYS_LIST | LYS_LEAFLIST)) != 0 &&
         (schema->flags & LYS_CONFIG_W) != 0 && (schema->flags & LYS_ORDBY_USER) == 0;
}

// Less than, equal to or greater than 0 as `a` comes before, is or comes after `b`, another entry
// of the same list.
int CompareKeys(const lyd_node* a, const lyd_node* b);

// A copy of `node` with all lists below it in order; null when they are. For small trees.
Tree InKeyOrder(const lyd_node* node);

}  // namespace host

#endif  // HOST_CDB_LIST_ORDER_H_
