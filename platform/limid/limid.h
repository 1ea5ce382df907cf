// Logical interface ids.
#ifndef PLATFORM_LIMID_LIMID_H_
#define PLATFORM_LIMID_LIMID_H_

#include <cstdint>

extern "C" {

typedef uint32_t limid_t;

// Writes the id of the named interface into `*id`; 0 on success. A name keeps its id for the life
// of the process, whether or not the interface exists at the moment.
int limid_from_intfname(limid_t* id, const char* name);

}  // extern "C"

#endif  // PLATFORM_LIMID_LIMID_H_
