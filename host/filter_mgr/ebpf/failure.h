// Why a change of the tables cannot be made, and whether it is worth another attempt.
#ifndef HOST_FILTER_MGR_EBPF_FAILURE_H_
#define HOST_FILTER_MGR_EBPF_FAILURE_H_

#include <string>

#include "host/filter_mgr/errors.h"

namespace host {

struct Failure {
  FilterMgrError code = FILTER_MGR_OK;
  bool passing = false;  // may succeed later, without anyone changing the groups
  std::string text;      // for people
  std::string port{};    // that it is about; empty: none
};

// Whether the kernel may do later what it refuses with this negative errno: it is short of
// something that comes back, such as memory or descriptors.
bool IsPassing(int error);

// What it means that the kernel refuses with this negative errno. `text` says what it refuses.
Failure FailureOf(int error, const std::string& text);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_FAILURE_H_
