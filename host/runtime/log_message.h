// The layout of a structured log message (qzmw_vlog).
#ifndef HOST_RUNTIME_LOG_MESSAGE_H_
#define HOST_RUNTIME_LOG_MESSAGE_H_

#include <cstdint>

// Static data of the component that logs it. The severity is a value of the log dictionary's
// severity table: 1 debug, 2 informational, 4 notice, 8 warning, 16 error, 32 critical, 64 alert,
// 128 emergency. The format is printf's, for the arguments that go with the message.
struct qzmw_log_msg {
  uint32_t severity;
  uint32_t id;
  const char* format;
};

#endif  // HOST_RUNTIME_LOG_MESSAGE_H_
