// Differences as text.
#ifndef HOST_CDB_DIFF_TEXT_H_
#define HOST_CDB_DIFF_TEXT_H_

#include <string>

#include "host/cdb/schema/yang_tree.h"

namespace host {

// The difference `diff` (in libyang's form, may be null) as libyang prints it as XML without blanks
// (RFC 7950), which takes a bulk edit several times as long. Throws std::bad_alloc.
std::string DifferenceText(const lyd_node* diff);

}  // namespace host

#endif  // HOST_CDB_DIFF_TEXT_H_
