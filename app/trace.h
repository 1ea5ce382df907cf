// Trace lines: written to a zlog category, with the place in the source that they come from.
#ifndef APP_TRACE_H_
#define APP_TRACE_H_

#include "platform/zlog/zlog.h"

namespace acl_app {

constexpr int kTraceLevel = 10;  // below zlog's debug level

}  // namespace acl_app

// Writes one line, formatted as by printf(), to the zlog category.
#define ACL_TRACE(category, ...)                                                             \
  zlog((category), __FILE__, sizeof(__FILE__) - 1, __func__, sizeof(__func__) - 1, __LINE__, \
       ::acl_app::kTraceLevel, __VA_ARGS__)

#endif  // APP_TRACE_H_
