// Giving memory back to the system.
#ifndef HOST_RUNTIME_MEMORY_H_
#define HOST_RUNTIME_MEMORY_H_

namespace host {

// Returns what the allocator holds unused to the system. For after large work; takes milliseconds.
//
// The daemon is linked with jemalloc, which keeps allocations of one size together. So what a large
// edit leaves behind is whole pages. With the C library's allocator the pages that held the edit
// stay, for among its nodes are the texts that the configuration shares with it.
void GiveBackMemory();

}  // namespace host

#endif  // HOST_RUNTIME_MEMORY_H_
