// The zlog library itself. Its configuration is the file that ZLOG_CONF_PATH names. Without one the
// library would write every trace line to standard output, and wait for its reader.
#include "host/runtime/log.h"
#include "host/zlog/trace_category.h"

extern "C" {
int zlog_init(const char* configuration);
zlog_category_s* zlog_get_category(const char* name);
}

namespace host {

zlog_category_s* TraceCategory(const char* name) {
  static const bool ready = zlog_init(nullptr) == 0;
  if (!ready) {
    Log(LogLevel::kWarning, "zlog cannot be initialised (see ZLOG_CONF_PATH); nothing is traced");
    return nullptr;
  }
  return zlog_get_category(name);
}

}  // namespace host
