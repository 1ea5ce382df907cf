// The middleware's log service: a component's lines, marked with its class, into the process's log.
#include <string>

#include "host/runtime/error_watch.h"
#include "host/runtime/log.h"
#include "host/runtime/log_message.h"
#include "platform/qzmw/qzmw.h"

struct qzmw_log {
  const uint32_t* component;
  const qzmw_log_class_t* log_class;
};

namespace {

using host::LogLevel;

LogLevel LevelOfSeverity(uint32_t severity) {
  struct Row {
    uint32_t lowest;
    LogLevel level;
  };
  static constexpr Row kRows[] = {{32, LogLevel::kFatal},
                                  {16, LogLevel::kError},
                                  {8, LogLevel::kWarning},
                                  {2, LogLevel::kInfo}};
  for (const Row& row : kRows) {
    if (severity >= row.lowest) {
      return row.level;
    }
  }
  return LogLevel::kDebug;
}

std::string Prefix(const qzmw_log_t* log) { return std::string(log->log_class->name) + ": "; }

}  // namespace

qzmw_log_t* qzmw_log_init(qzmw_t* mw, const uint32_t* component,
                          const qzmw_log_class_t* log_class) {
  if (mw == nullptr || component == nullptr || log_class == nullptr || log_class->name == nullptr) {
    return nullptr;
  }
  return new qzmw_log{component, log_class};
}

void qzmw_log_finish(qzmw_log_t** log) {
  delete *log;
  *log = nullptr;
}

void qzmw_vlog(qzmw_log_t* log, const qzmw_log_msg_t* msg, va_list args) {
  const LogLevel level = LevelOfSeverity(msg->severity);
  if (host::LogEnabled(level)) {
    host::LogLine(level, Prefix(log) + "[" + std::to_string(*log->component) + "." +
                             std::to_string(msg->id) + "] " + host::VFormatted(msg->format, args));
  }
}

void qzmw_vlog_debug(qzmw_log_t* log, const char* format, va_list args) {
  host::ErrorWatch* watch = host::ErrorWatch::Current();
  const bool wanted = watch != nullptr && host::ErrorWatch::IsError(format);
  if (!wanted && !host::LogEnabled(LogLevel::kDebug)) return;
  const std::string line = host::VFormatted(format, args);
  if (wanted) watch->Add(line);
  host::LogLine(LogLevel::kDebug, Prefix(log) + line);
}
