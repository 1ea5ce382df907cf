// Memory for very many small values: blocks of slots of one size.
//
// Groups hold entries by the ten thousand, each commit builds them anew from copies, and what that
// takes is the time to move memory. Hence, other than a general allocator's,
//  - slots lie side by side, and are handed out in the order of their addresses as far as they are
//    free: whoever walks over a group reads memory from its beginning to its end;
//  - the number of owners that goes with a slot lies with those of the slots beside it, apart from
//    the values: to count a copy of each of 65,536 values touches some 400 kB, not the 4 MB of a
//    line of each value;
//  - to take or give a slot is a few instructions.
//
// A block is aligned to its size and begins with its head and the numbers of its slots, so that an
// address tells them:
//
//   | head | number 0, 1, ... | slot 0 | slot 1 | ...
//
// Invariants. A block with a free slot is in the list, others are not. `fresh` slots and those
// behind were never used since the block was last empty; the free ones before them are chained,
// those given last first. A block that gets empty begins anew, and so gets its order back.
//
// All of it is a thread's own, without any lock: a slot is given back by the thread that took it.
// What a thread has taken when it ends is never freed.
#ifndef PLATFORM_FILTERS_COMMON_SLOT_POOL_H_
#define PLATFORM_FILTERS_COMMON_SLOT_POOL_H_

#include <cstddef>
#include <cstdint>
#include <new>

#if __has_include(<sanitizer/asan_interface.h>)
#include <sanitizer/asan_interface.h>
#endif
#ifndef ASAN_POISON_MEMORY_REGION
#define ASAN_POISON_MEMORY_REGION(address, size) static_cast<void>(0)
#define ASAN_UNPOISON_MEMORY_REGION(address, size) static_cast<void>(0)
#endif

namespace FiltersCommon {

// Asks for the line of memory eight lines behind the object, which need not be the program's:
// nothing is read.
template <int ToWrite = 0>
void FetchAhead(const void* object) {
  constexpr uintptr_t kAhead = 512;  // bytes
  const auto address = reinterpret_cast<uintptr_t>(object) + kAhead;
  __builtin_prefetch(reinterpret_cast<const void*>(address), ToWrite);
}

class NodeArena;

constexpr size_t kSlotBlock = 65536;

// What blocks begin with, and an arena's chunks.
struct BlockHead {
  NodeArena* arena;  // null: a pool's
};

// Slots of `Size` bytes, a multiple of the alignment of what they hold.
template <size_t Size>
class SlotPool {
 public:
  // A free slot. Throws std::bad_alloc.
  static void* Take() {
    Block* const block = first_ != nullptr ? first_ : AddBlock();
    void* slot = block->free;
    if (slot != nullptr) {
      ASAN_UNPOISON_MEMORY_REGION(slot, Size);
      block->free = *static_cast<void**>(slot);
    } else {
      slot = SlotOf(block, block->fresh++);
      ASAN_UNPOISON_MEMORY_REGION(slot, Size);
    }
    if (block->used++ == 0) --empty_;
    if (block->used == kSlots) Unlink(block);
    return slot;
  }

  // Takes a slot back.
  static void Give(void* slot) {
    Block* const block = BlockOf(slot);
    *static_cast<void**>(slot) = block->free;
    block->free = slot;
    ASAN_POISON_MEMORY_REGION(slot, Size);
    if (block->used-- == kSlots) Link(block);
    if (block->used != 0) return;
    Emptied(block);
    if (empty_ > kEmptyKept) Remove(block);
  }

  // The number that goes with the slot, whatever it was set to last.
  static uint32_t& NumberOf(const void* slot) {
    Block* const block = BlockOf(slot);
    const size_t offset = reinterpret_cast<uintptr_t>(slot) - reinterpret_cast<uintptr_t>(block);
    return block->numbers[offset >> kShift];
  }

 private:
  // Numbers go by a slot's address without its last bits, of which no slot has less.
  static constexpr int kShift = Size < 32 ? 4 : Size < 64 ? 5 : 6;
  static_assert(Size >= 16);
  static constexpr size_t kLine = 64;

  struct Block : BlockHead {
    Block* before;  // in the list
    Block* next;
    void* free;  // the chain of free slots
    uint32_t fresh;
    uint32_t used;
    uint32_t numbers[kSlotBlock >> kShift];
  };

  static constexpr size_t kFirst = (sizeof(Block) + kLine - 1) / kLine * kLine;  // slot
  static constexpr size_t kSlots = (kSlotBlock - kFirst) / Size;
  static constexpr size_t kEmptyKept = 160;  // 10 MB: two groups as large as they can be
  static_assert(Size % sizeof(void*) == 0 && kSlots >= 64);

  static Block* BlockOf(const void* slot) {
    return reinterpret_cast<Block*>(reinterpret_cast<uintptr_t>(slot) & ~(kSlotBlock - 1));
  }
  static void* SlotOf(Block* block, size_t i) {
    return reinterpret_cast<char*>(block) + kFirst + i * Size;
  }

  static Block* AddBlock() {
    void* const memory = ::operator new (kSlotBlock, std::align_val_t{kSlotBlock});
    ASAN_POISON_MEMORY_REGION(static_cast<char*>(memory) + kFirst, kSlotBlock - kFirst);
    auto* const block = new (memory) Block;  // its numbers are set by those who take slots
    block->arena = nullptr;
    block->used = 0;
    Emptied(block);
    Link(block);
    return block;
  }

  // Begins anew.
  static void Emptied(Block* block) {
    block->free = nullptr;
    block->fresh = 0;
    ++empty_;
  }

  static void Remove(Block* block) {
    --empty_;
    Unlink(block);
    ASAN_UNPOISON_MEMORY_REGION(block, kSlotBlock);
    ::operator delete (block, std::align_val_t{kSlotBlock});
  }

  static void Link(Block* block) {
    block->before = nullptr;
    block->next = first_;
    if (first_ != nullptr) first_->before = block;
    first_ = block;
  }
  static void Unlink(Block* block) {
    if (block->next != nullptr) block->next->before = block->before;
    (block->before != nullptr ? block->before->next : first_) = block->next;
  }

  static inline thread_local Block* first_ = nullptr;  // of those with a free slot
  static inline thread_local size_t empty_ = 0;        // blocks without any used one
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_SLOT_POOL_H_
