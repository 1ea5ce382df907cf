// The arrays that the tables stand in, and where they come from: BPF maps that are mapped into this
// process, or the heap (tests, benchmarks, trying out a configuration).
#ifndef HOST_CLASSIFIER_MEMORY_H_
#define HOST_CLASSIFIER_MEMORY_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "host/classifier/layout.h"

namespace host::classifier {

// Bytes of one element.
size_t ElementSize(cls_array array);
// What limits or errors call it, such as "entries".
const char* ArrayName(cls_array array);

// Who provides the arrays derives from this. All elements are zero before their first use.
class Memory {
 public:
  virtual ~Memory() = default;

  // Makes `array` hold at least `capacity` elements. What it holds stays, and areas() shows the new
  // place; readers of the old place go on undisturbed. 0, or a negative errno when that cannot be
  // (-E2BIG: the array will never hold so many); nothing has changed then, and the builder refuses
  // what it needed the room for.
  virtual int Grow(cls_array array, uint32_t capacity) = 0;

  // Returns when all searches that run now have ended. Called rarely: when a root gets new tables
  // for a second time and nothing was reclaimed in between, or when what waits to be reclaimed is
  // needed.
  virtual void WaitForReaders() = 0;

  uint32_t capacity(cls_array array) const { return areas_[array].capacity; }
  void* base(cls_array array) const { return areas_[array].base; }

  // The element, or null when the array does not reach so far. `T` is the array's element.
  template <class T>
  T* At(cls_array array, uint32_t index) const {
    const Area& area = areas_[array];
    return index < area.capacity ? static_cast<T*>(area.base) + index : nullptr;
  }
  cls_control* control() const { return At<cls_control>(CLS_CONTROL, 0); }

 protected:
  struct Area {
    void* base = nullptr;
    uint32_t capacity = 0;  // elements
  };
  Memory() = default;
  Memory(const Memory&) = default;
  Memory& operator=(const Memory&) = default;

  std::array<Area, CLS_ARRAYS> areas_;
};

// Zeroed memory of this process. `limit` bounds the elements of each array, for tests.
class HeapMemory final : public Memory {
 public:
  explicit HeapMemory(uint32_t limit = UINT32_MAX) : limit_(limit) {}
  int Grow(cls_array array, uint32_t capacity) override;
  void WaitForReaders() override {}
  size_t bytes() const;

 private:
  struct Line {
    alignas(64) unsigned char bytes[64];
  };
  uint32_t limit_;
  std::array<std::vector<Line>, CLS_ARRAYS> lines_;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_MEMORY_H_
