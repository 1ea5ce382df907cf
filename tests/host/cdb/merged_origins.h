// Where each entry of the merged groups comes from, told by the merge itself.
#ifndef TESTS_HOST_CDB_MERGED_ORIGINS_H_
#define TESTS_HOST_CDB_MERGED_ORIGINS_H_

#include <string>

#include "host/cdb/datastore.h"

namespace host {

// A line "GROUP INTERFACE PROFILE PRIORITY" per entry, in the groups' order: as the merge of the
// running configuration gives them, and as the datastore says.
std::string MergedOrigins(const lyd_node* running);
std::string ToldOrigins(const Datastore& datastore);

}  // namespace host

#endif  // TESTS_HOST_CDB_MERGED_ORIGINS_H_
