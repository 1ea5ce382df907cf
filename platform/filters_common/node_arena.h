// Memory for the nodes of one large map, which goes all at once.
//
// To take a map of 65,536 entries apart node by node takes half as long as to build one. A group
// that goes need not: what its entries hold is known from its rows, and the memory of its nodes is
// its own. So nobody walks over its tree; see ~Store in filters_group.cpp.
//
// Nodes are handed out in the order of their addresses, so a map that was built in its order is
// walked over in that of memory. Memory comes in chunks that are aligned to their size and begin
// with their owner. The chunks of arenas that are gone are kept for the next ones, as many as two
// groups can need at most.
//
// An arena, and the maps that it is used for, belong to one thread.
#ifndef PLATFORM_FILTERS_COMMON_NODE_ARENA_H_
#define PLATFORM_FILTERS_COMMON_NODE_ARENA_H_

#include <cstddef>
#include <cstdint>

#include "platform/filters_common/slot_pool.h"

namespace FiltersCommon {

class NodeArena {
 public:
  NodeArena() = default;
  NodeArena(const NodeArena&) = delete;
  NodeArena& operator=(const NodeArena&) = delete;
  // All nodes go, whether they were given back or not.
  ~NodeArena();

  // While it lives, nodes that this thread's maps get come from the arena; with null, from pools.
  class Use {
   public:
    explicit Use(NodeArena* arena) { used_ = arena; }
    ~Use() { used_ = nullptr; }
    Use(const Use&) = delete;
    Use& operator=(const Use&) = delete;
  };

  // Memory for one object of `Size` bytes, of the arena in use or of a pool. An arena's objects are
  // all of one size. Throws std::bad_alloc.
  template <size_t Size>
  static void* Take() {
    return used_ == nullptr ? SlotPool<Size>::Take() : used_->TakeNode(Size);
  }
  // Takes back what Take() gave, whichever arena is in use.
  template <size_t Size>
  static void Give(void* object) {
    const uintptr_t block = reinterpret_cast<uintptr_t>(object) & ~(uintptr_t{kSlotBlock} - 1);
    NodeArena* const arena = reinterpret_cast<const BlockHead*>(block)->arena;
    if (arena == nullptr) return SlotPool<Size>::Give(object);
    *static_cast<void**>(object) = arena->free_;
    arena->free_ = object;
  }

 private:
  struct Chunk : BlockHead {
    Chunk* next;
  };

  void* TakeNode(size_t size) {
    if (void* const node = free_; node != nullptr) {
      free_ = *static_cast<void**>(node);
      return node;
    }
    if (static_cast<size_t>(end_ - next_) < size) AddChunk();
    void* const node = next_;
    next_ += size;
    FetchAhead</*ToWrite=*/1>(node);  // what is written next would be waited for
    return node;
  }
  void AddChunk();

  Chunk* chunks_ = nullptr;
  void* free_ = nullptr;  // a chain of nodes that were given back
  char* next_ = nullptr;  // of the newest chunk, what was not handed out yet
  char* end_ = nullptr;

  static thread_local inline NodeArena* used_ = nullptr;
};

// Allocates the nodes of maps.
template <class T>
struct NodeAllocator {
  using value_type = T;
  template <class U>
  struct rebind {
    using other = NodeAllocator<U>;
  };

  NodeAllocator() = default;
  // Implicit, as those of all allocators are.
  template <class U>
  NodeAllocator(const NodeAllocator<U>&) {}  // NOLINT(google-explicit-constructor)

  // Throws std::bad_alloc.
  T* allocate(size_t count) {
    return static_cast<T*>(count == 1 ? NodeArena::Take<sizeof(T)>()
                                      : ::operator new(count * sizeof(T)));
  }
  void deallocate(T* objects, size_t count) {
    count == 1 ? NodeArena::Give<sizeof(T)>(objects) : ::operator delete(objects);
  }

  friend bool operator==(const NodeAllocator&, const NodeAllocator&) { return true; }
  friend bool operator!=(const NodeAllocator&, const NodeAllocator&) { return false; }
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_NODE_ARENA_H_
