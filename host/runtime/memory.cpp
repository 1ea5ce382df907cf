// Giving memory back to the system: see memory.h.
#include "host/runtime/memory.h"

#include <malloc.h>

#include <cstddef>

// jemalloc's way in (its manual page, "mallctl"). Null in a program that is not linked with it.
extern "C" int mallctl(const char* name, void* old_value, size_t* old_size, void* new_value,
                       size_t new_size) __attribute__((weak));

namespace host {

void GiveBackMemory() {
  if (mallctl == nullptr) {
    malloc_trim(0);
    return;
  }
  mallctl("thread.tcache.flush", nullptr, nullptr, nullptr, 0);
  mallctl("arena.4096.purge", nullptr, nullptr, nullptr, 0);  // MALLCTL_ARENAS_ALL
}

}  // namespace host
