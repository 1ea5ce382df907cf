// Hands out elements of the arrays: single ones, and runs whose length is a power of two.
//
// What is free is kept in a stack per length; a longer run is halved when there is none of the
// wanted length, and beyond that the array's used part grows, and the array with it. Runs are not
// joined again: the same lengths come again and again, so what one table leaves, another takes.
//
// Nothing of this stands in the arrays. After a restart, what is in use is claimed, and the rest is
// free.
#ifndef HOST_CLASSIFIER_POOL_H_
#define HOST_CLASSIFIER_POOL_H_

#include <array>
#include <cstdint>
#include <utility>
#include <vector>

#include "host/classifier/memory.h"
#include "host/classifier/refusal.h"

namespace host::classifier {

class Pool {
 public:
  static constexpr uint32_t kNone = UINT32_MAX;

  // Elements from `first` to below `limit` of `array`, and of `twin`, which is as long.
  Pool(Memory* memory, cls_array array, cls_array twin, uint32_t first, uint32_t limit)
      : memory_(memory), array_(array), twin_(twin), first_(first), end_(first), limit_(limit) {}

  // A run of 1 << log2 elements, whose content is not defined. kNone when there is no room.
  uint32_t Allocate(uint32_t log2, Refusal* refusal);
  void Free(uint32_t index, uint32_t log2) { free_[log2].push_back(index); }

  // Restart: claims what is in use, in any order, then frees the rest. False for what overlaps, or
  // does not lie in the array.
  bool Claim(uint32_t index, uint32_t log2);
  bool EndClaims();

  // The highest index that has been in use, plus one.
  uint32_t end() const { return end_; }

 private:
  bool GrowTo(uint64_t wanted, Refusal* refusal);

  Memory* memory_;
  cls_array array_;
  cls_array twin_;
  uint32_t first_;
  uint32_t end_;
  uint32_t limit_;
  std::array<std::vector<uint32_t>, 32> free_;
  std::vector<std::pair<uint32_t, uint32_t>> claims_;  // index, length
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_POOL_H_
