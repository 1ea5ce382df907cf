#include "platform/filters_common/node_arena.h"

#include <new>

namespace FiltersCommon {
namespace {

constexpr size_t kFirst = 64;  // node of a chunk: behind the head, at the beginning of a line
constexpr size_t kKept = 160;  // 10 MB: two groups as large as they can be

// Chunks that are nobody's. There is nothing to free when the thread ends but memory.
thread_local void* kept = nullptr;
thread_local size_t kept_count = 0;

}  // namespace

void NodeArena::AddChunk() {
  void* memory = kept;
  if (memory != nullptr) {
    kept = static_cast<Chunk*>(memory)->next;
    --kept_count;
  } else {
    memory = ::operator new (kSlotBlock, std::align_val_t{kSlotBlock});
  }
  chunks_ = new (memory) Chunk{{this}, chunks_};
  static_assert(sizeof(Chunk) <= kFirst);
  next_ = static_cast<char*>(memory) + kFirst;
  ASAN_UNPOISON_MEMORY_REGION(next_, kSlotBlock - kFirst);
  end_ = static_cast<char*>(memory) + kSlotBlock;
}

NodeArena::~NodeArena() {
  while (chunks_ != nullptr) {
    Chunk* const chunk = chunks_;
    chunks_ = chunk->next;
    if (kept_count == kKept) {
      ::operator delete (chunk, std::align_val_t{kSlotBlock});
      continue;
    }
    chunk->next = static_cast<Chunk*>(kept);
    kept = chunk;
    ASAN_POISON_MEMORY_REGION(reinterpret_cast<char*>(chunk) + kFirst, kSlotBlock - kFirst);
    ++kept_count;
  }
}

}  // namespace FiltersCommon
