#include "app/fault.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "platform/qzmw/qzmw.h"

namespace acl_app {

void RaiseFault(const char* function, const char* file, int line, const char* format, ...) {
  char message[300] = {};
  va_list args;
  va_start(args, format);
  std::vsnprintf(message, sizeof(message), format, args);
  va_end(args);
  qzmw_gen_fault(0, function, file, line, message);
}

void RaiseFatalFault(const char* function, const char* file, int line, const char* message) {
  char buffer[300] = {};
  std::snprintf(buffer, sizeof(buffer), "%s", message);
  qzmw_print_backtrace();
  qzmw_gen_fault(1, function, file, line, buffer);
  std::exit(1);
}

}  // namespace acl_app
