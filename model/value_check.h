// Assertions on the type of configuration values.
//
// A value of a type that the code does not know means that the code and the configuration's schema
// have parted: reading it would yield garbage that ends up in the filters. So the check ends the
// process in every build type; it prints what a standard assertion prints.
#ifndef MODEL_VALUE_CHECK_H_
#define MODEL_VALUE_CHECK_H_

#include "platform/confd/confd_lib.h"

namespace acl_app {

// Prints "SOURCE:LINE: FUNCTION: Assertion `EXPRESSION' failed." and aborts.
[[noreturn]] void AssertionFailed(const char* expression, const char* source, int line,
                                  const char* function);

}  // namespace acl_app

// Ends the process unless the value that `pointer` points to has the type `vtype`. `source` is the
// name under which the failure is reported.
#define ACL_ASSERT_VALUE_TYPE(pointer, vtype, source)                                      \
  ((pointer)->type == (vtype)                                                              \
       ? static_cast<void>(0)                                                              \
       : ::acl_app::AssertionFailed("(" #pointer ")->type == " #vtype, (source), __LINE__, \
                                    __PRETTY_FUNCTION__))

#endif  // MODEL_VALUE_CHECK_H_
