// The log facility: the process's lines in the middleware's log service.
#ifndef APP_LOG_H_
#define APP_LOG_H_

#include "platform/qzmw/qzmw.h"

namespace acl_app {

// There is at most one log handle in the process, however many objects are made: each construction
// replaces it, each destruction closes it. Without a handle lines are dropped.
class AclLog {
 public:
  // Opens the log service; with a null middleware logging stays off. A failure is a fault, no end.
  explicit AclLog(qzmw_t* mw);
  AclLog(const AclLog&) = delete;
  AclLog& operator=(const AclLog&) = delete;
  ~AclLog();

  // Sends a structured message with its arguments.
  static void SendLog(const qzmw_log_msg_t* msg, ...);
  // Sends one line, formatted as by printf().
  static void SendDebug(const char* format, ...) __attribute__((format(printf, 1, 2)));

 private:
  static void Close();

  static qzmw_log_t* qzmw_log_;
};

}  // namespace acl_app

#endif  // APP_LOG_H_
