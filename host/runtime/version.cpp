#include "host/runtime/version.h"

namespace host {

const char* Version() { return ACL_APP_VERSION; }

}  // namespace host
