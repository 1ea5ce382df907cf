// The names behind logical interface ids.
#ifndef HOST_LIMID_LIMID_H_
#define HOST_LIMID_LIMID_H_

#include <string>

#include "platform/limid/limid.h"

namespace host {

// The name that limid_from_intfname() gave `id` to; empty for an id that it never gave.
std::string InterfaceNameOf(limid_t id);

}  // namespace host

#endif  // HOST_LIMID_LIMID_H_
