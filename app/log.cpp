#include "app/log.h"

#include <cstdarg>

#include "app/fault.h"

namespace acl_app {
namespace {

const uint32_t kComponent = 55;                      // ACL_APP in the component table
const qzmw_log_class_t kClass = {/*id=*/32, "ACL"};  // ACL in the class table

}  // namespace

qzmw_log_t* AclLog::qzmw_log_ = nullptr;

AclLog::AclLog(qzmw_t* mw) {
  Close();
  if (mw == nullptr) return;
  qzmw_log_ = qzmw_log_init(mw, &kComponent, &kClass);
  if (qzmw_log_ == nullptr) {
    RaiseFault("AclLog", "log", __LINE__, "AclLog could not init log system");
  }
}

AclLog::~AclLog() { Close(); }

void AclLog::Close() {
  if (qzmw_log_ != nullptr) qzmw_log_finish(&qzmw_log_);
  qzmw_log_ = nullptr;
}

void AclLog::SendLog(const qzmw_log_msg_t* msg, ...) {
  if (qzmw_log_ == nullptr) return;
  va_list args;
  va_start(args, msg);
  qzmw_vlog(qzmw_log_, msg, args);
  va_end(args);
}

void AclLog::SendDebug(const char* format, ...) {
  if (qzmw_log_ == nullptr) return;
  va_list args;
  va_start(args, format);
  qzmw_vlog_debug(qzmw_log_, format, args);
  va_end(args);
}

}  // namespace acl_app
