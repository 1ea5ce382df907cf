#include "host/filter_mgr/ebpf/failure.h"

#include <cerrno>

namespace host {

bool IsPassing(int error) {
  switch (-error) {
    case ENOMEM:
    case ENOSPC:  // of numbers for maps and programs
    case ENOBUFS:
    case EMFILE:
    case ENFILE:
    case EAGAIN:
    case EINTR:
    case EBUSY:
      return true;
    default:
      return false;
  }
}

Failure FailureOf(int error, const std::string& text) {
  const bool privilege = error == -EPERM || error == -EACCES;
  return {privilege         ? FILTER_MGR_ERR_PRIVILEGE
          : error == -E2BIG ? FILTER_MGR_ERR_CAPACITY
                            : FILTER_MGR_ERR_KERNEL,
          IsPassing(error), text};
}

}  // namespace host
