// Owners of what the configuration database hands out, released on every way out.
#ifndef CONFD_SCOPED_VALUES_H_
#define CONFD_SCOPED_VALUES_H_

#include <string>

#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_lib.h"

namespace acl_app {

// A value read with cdb_get().
class ScopedValue {
 public:
  ScopedValue() = default;
  ScopedValue(const ScopedValue&) = delete;
  ScopedValue& operator=(const ScopedValue&) = delete;
  ~ScopedValue() {
    if (held_) confd_free_value(&value_);
  }

  // Reads the leaf at `path`, once. Returns the result of cdb_get().
  int Read(int sock, const std::string& path) {
    const int rc = cdb_get(sock, &value_, "%s", path.c_str());
    held_ = rc == CONFD_OK;
    return rc;
  }
  // The value, null when none was read.
  const confd_value_t* get() const { return held_ ? &value_ : nullptr; }

 private:
  confd_value_t value_;
  bool held_ = false;
};

// The keypath of a session's position.
class ScopedKeypath {
 public:
  ScopedKeypath() = default;
  ScopedKeypath(const ScopedKeypath&) = delete;
  ScopedKeypath& operator=(const ScopedKeypath&) = delete;
  ~ScopedKeypath() {
    if (kp_ != nullptr) confd_free_hkeypath(kp_);
  }

  // Reads the position, once. Returns the result of cdb_getcwd_kpath().
  int Read(int sock) { return cdb_getcwd_kpath(sock, &kp_); }
  const confd_hkeypath_t* get() const { return kp_; }

 private:
  confd_hkeypath_t* kp_ = nullptr;
};

}  // namespace acl_app

#endif  // CONFD_SCOPED_VALUES_H_
