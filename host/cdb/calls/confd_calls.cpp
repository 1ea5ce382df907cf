// The confd_* calls: printing and releasing of what the cdb_* calls and the iterations hand out.
#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "host/cdb/calls/cdb_path.h"
#include "host/cdb/calls/cdb_service.h"
#include "platform/confd/confd_lib.h"

extern "C" {

int confd_pp_kpath(char* buf, int n, const confd_hkeypath_t* kp) {
  if (kp == nullptr || kp->len < 0 || kp->len > MAXDEPTH || n < 0) return CONFD_ERR;
  host::CdbService* service = host::CdbService::Instance();
  host::KeypathPrinter without_names(nullptr);
  const std::string& text =
      (service != nullptr ? service->keypath_printer() : without_names).Print(*kp);
  if (n > 0) {
    const size_t length = std::min(text.size(), static_cast<size_t>(n) - 1);
    memcpy(buf, text.data(), length);
    buf[length] = '\0';
  }
  return static_cast<int>(text.size());
}

void confd_free_value(confd_value_t* value) {
  if (value == nullptr) return;
  if (value->type == C_BUF || value->type == C_BINARY) {
    std::free(value->val.buf.ptr);
    value->val.buf.ptr = nullptr;
  } else if (value->type == C_LIST) {
    for (unsigned int i = 0; i < value->val.list.size; ++i)
      confd_free_value(&value->val.list.ptr[i]);
    std::free(value->val.list.ptr);
    value->val.list = {0, nullptr};
  }
}

void confd_free_hkeypath(confd_hkeypath_t* kp) {
  if (kp == nullptr) return;
  host::FreeKeypathValues(kp);
  std::free(kp);
}

const char* confd_lasterr() { return host::CdbError().c_str(); }

}  // extern "C"
