// The YANG modules that the program was built with. Schema and code belong together: a leaf that
// the code does not know would be accepted and have no effect, so that an entry would match more
// than it says.
#ifndef HOST_CDB_SCHEMA_YANG_TEXTS_H_
#define HOST_CDB_SCHEMA_YANG_TEXTS_H_

#include <cstddef>
#include <string>

#include "host/cdb/schema/yang_tree.h"

namespace host {

struct YangText {
  const char* module;
  const char* text;
};
extern const YangText kYangTexts[];
extern const size_t kYangTextCount;

// Why the modules of `context` that were read from files are not those that the program was built
// with, for people; empty when they are.
std::string WhyOtherModules(const ly_ctx* context);

}  // namespace host

#endif  // HOST_CDB_SCHEMA_YANG_TEXTS_H_
