#include "model/value_check.h"

// The declaration of the C library's reporting function is wanted in every build type.
#undef NDEBUG
#include <cassert>

namespace acl_app {

void AssertionFailed(const char* expression, const char* source, int line, const char* function) {
  __assert_fail(expression, source, static_cast<unsigned int>(line), function);
}

}  // namespace acl_app
