// The process's middleware: start-up, the event loop, faults, the log service, trace categories.
#ifndef PLATFORM_QZMW_QZMW_H_
#define PLATFORM_QZMW_QZMW_H_

#include <cstdarg>
#include <cstdint>

struct zlog_category_s;

extern "C" {

typedef struct qzmw qzmw_t;
typedef struct qzmw_log qzmw_log_t;
typedef struct qzmw_log_msg qzmw_log_msg_t;  // a structured message; its layout is the middleware's

// The class under which a process logs.
typedef struct qzmw_log_class {
  uint32_t id;
  const char* name;
} qzmw_log_class_t;

// Starts the middleware for the process `name`. Null on failure.
qzmw_t* qzmw_init(const char* name);
// Runs the event loop while `*flag` is true and nothing asks the process to end; 0 on normal end.
int qzmw_loop_while(qzmw_t* mw, bool* flag);
// Ends the middleware and sets the handle to null.
void qzmw_finish(qzmw_t** mw);

// A trace category, owned by the middleware for the life of the process.
struct zlog_category_s* qzmw_trace_init(qzmw_t* mw, const char* name);

// Prints the stack of the caller to the fault channel.
void qzmw_print_backtrace();
// Reports a fault. Level 1 is fatal (the caller ends the process), level 0 is not.
void qzmw_gen_fault(int level, const char* function, const char* file, int line,
                    const char* message);

// Opens the log service for a component; null on failure. Both pointers are read during the call
// and may be kept: they must point to static data.
qzmw_log_t* qzmw_log_init(qzmw_t* mw, const uint32_t* component, const qzmw_log_class_t* log_class);
// Closes the log service and sets the handle to null.
void qzmw_log_finish(qzmw_log_t** log);
void qzmw_vlog(qzmw_log_t* log, const qzmw_log_msg_t* msg, va_list args);
void qzmw_vlog_debug(qzmw_log_t* log, const char* format, va_list args);

}  // extern "C"

#endif  // PLATFORM_QZMW_QZMW_H_
