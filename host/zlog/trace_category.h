// Trace categories, whichever zlog the process is linked with.
#ifndef HOST_ZLOG_TRACE_CATEGORY_H_
#define HOST_ZLOG_TRACE_CATEGORY_H_

struct zlog_category_s;

namespace host {

// The category of that name, owned by the library for the life of the process; the same for the
// same name. Null when the library has none to give.
zlog_category_s* TraceCategory(const char* name);

}  // namespace host

#endif  // HOST_ZLOG_TRACE_CATEGORY_H_
