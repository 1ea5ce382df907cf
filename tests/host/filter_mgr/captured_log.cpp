#include "tests/host/filter_mgr/captured_log.h"

#include <cstdarg>
#include <cstdio>

#include "host/runtime/middleware.h"

namespace host {

std::vector<std::string>& CapturedLog() {
  static std::vector<std::string> lines;
  return lines;
}

void Log(LogLevel /*level*/, const char* format, ...) {
  char line[1024];
  va_list args;
  va_start(args, format);
  vsnprintf(line, sizeof(line), format, args);
  va_end(args);
  CapturedLog().emplace_back(line);
}

LogFields::LogFields(std::initializer_list<std::pair<const char*, std::string>> /*fields*/) {}
LogFields::~LogFields() = default;

}  // namespace host
