// zlog over the process's own log, for systems without the library.
#include <map>
#include <string>

#include "host/runtime/log.h"
#include "host/zlog/trace_category.h"
#include "platform/zlog/zlog.h"

struct zlog_category_s {
  std::string name;
};

namespace host {
namespace {

// zlog's default levels: debug is 20, info 40, notice 60, warn 80, error 100, fatal 120. What lies
// below debug is tracing.
LogLevel LevelOf(int zlog_level) {
  static const std::map<int, LogLevel> kLevels = {{20, LogLevel::kDebug},
                                                  {40, LogLevel::kInfo},
                                                  {80, LogLevel::kWarning},
                                                  {100, LogLevel::kError},
                                                  {120, LogLevel::kFatal}};
  const auto above = kLevels.upper_bound(zlog_level);
  return above == kLevels.begin() ? LogLevel::kTrace : std::prev(above)->second;
}

}  // namespace

zlog_category_s* TraceCategory(const char* name) {
  // Never destroyed: categories live as long as the process.
  static auto& categories = *new std::map<std::string, zlog_category_s>;
  return &categories.try_emplace(name, zlog_category_s{name}).first->second;
}

}  // namespace host

void zlog(zlog_category_s* category, const char* file, size_t filelen, const char* func,
          size_t funclen, long line, int level, const char* format, ...) {
  const host::LogLevel log_level = host::LevelOf(level);
  if (category == nullptr || !host::LogEnabled(log_level)) {
    return;
  }
  va_list args;
  va_start(args, format);
  const std::string message = host::VFormatted(format, args);
  va_end(args);
  host::Log(log_level, "%s %.*s:%ld %.*s: %s", category->name.c_str(), static_cast<int>(filelen),
            file, line, static_cast<int>(funclen), func, message.c_str());
}
