// Reporting faults to the middleware.
#ifndef APP_FAULT_H_
#define APP_FAULT_H_

namespace acl_app {

// Reports a fault (level 0) from `function` in the source `file`, with the message formatted as by
// printf() and cut to 299 bytes. The process goes on.
void RaiseFault(const char* function, const char* file, int line, const char* format, ...)
    __attribute__((format(printf, 4, 5)));

// Prints a backtrace, reports a fatal fault (level 1) and ends the process with status 1.
[[noreturn]] void RaiseFatalFault(const char* function, const char* file, int line,
                                  const char* message);

}  // namespace acl_app

#endif  // APP_FAULT_H_
