// Differences of configurations, for people to read.
#ifndef TOOLS_ACLCTL_DIFFERENCE_TEXT_H_
#define TOOLS_ACLCTL_DIFFERENCE_TEXT_H_

#include <string>

#include "host/cdb/schema/yang_tree.h"

namespace aclctl {

// The <change> elements below `parent`: a line per list entry, with "+" when it comes and "-" when
// it goes, and indented below it a line per leaf that does.
std::string PrintDifference(const lyd_node* parent);

}  // namespace aclctl

#endif  // TOOLS_ACLCTL_DIFFERENCE_TEXT_H_
