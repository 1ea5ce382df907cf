// The process's log dictionary: the tables that the element's log library reads. To add a class or
// a component, add a row to its table.
#ifndef APP_LOG_DICTIONARY_H_
#define APP_LOG_DICTIONARY_H_

#include "platform/elem_log/elem_log.h"

namespace acl_app {

extern const ElemLogHeader kLogHeader;
// The class table is the one that is written to: identifiers are replaced by those in use.
extern const ElemLogTables kLogTables;

constexpr int kWebCategoryCount = 3;  // without the row of zeros behind them
extern const ElemWebCategory kWebCategories[];

}  // namespace acl_app

#endif  // APP_LOG_DICTIONARY_H_
