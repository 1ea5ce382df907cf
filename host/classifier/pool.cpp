#include "host/classifier/pool.h"

#include <algorithm>

namespace host::classifier {

uint32_t Pool::Allocate(uint32_t log2, Refusal* refusal) {
  uint32_t have = log2;
  while (have < free_.size() && free_[have].empty()) ++have;
  uint32_t index = end_;
  if (have < free_.size()) {
    index = free_[have].back();
    free_[have].pop_back();
    while (have > log2) {
      --have;
      free_[have].push_back(index + (1U << have));
    }
    return index;
  }
  const uint64_t wanted = uint64_t{end_} + (1ULL << log2);
  if (!GrowTo(wanted, refusal)) return kNone;
  end_ = static_cast<uint32_t>(wanted);
  return index;
}

bool Pool::GrowTo(uint64_t wanted, Refusal* refusal) {
  const uint32_t capacity = std::min(memory_->capacity(array_), memory_->capacity(twin_));
  if (wanted <= capacity) return true;
  int error = 0;
  if (wanted <= limit_) {
    // Twice as much, so that growing is rare; what is wanted alone, where that is not to be had.
    const auto least = static_cast<uint32_t>(wanted);
    const auto doubled = static_cast<uint32_t>(
        std::min<uint64_t>(limit_, std::max<uint64_t>(wanted, uint64_t{capacity} * 2)));
    for (const uint32_t size : {doubled, least}) {
      error = memory_->Grow(array_, size);
      if (error == 0 && twin_ != array_) error = memory_->Grow(twin_, size);
      if (error == 0) return true;
    }
  }
  *refusal = NoRoom(array_, error == 0 ? limit_ : capacity, wanted, error);
  return false;
}

bool Pool::Claim(uint32_t index, uint32_t log2) {
  const uint64_t last = uint64_t{index} + (1ULL << log2);
  const uint32_t capacity = std::min(memory_->capacity(array_), memory_->capacity(twin_));
  if (index < first_ || last > std::min(capacity, limit_)) return false;
  claims_.emplace_back(index, 1U << log2);
  return true;
}

bool Pool::EndClaims() {
  std::sort(claims_.begin(), claims_.end());
  for (const auto& [index, length] : claims_) {
    if (index < end_) return false;
    while (end_ < index) {
      uint32_t log2 = 0;
      while ((2U << log2) <= index - end_) ++log2;
      Free(end_, log2);
      end_ += 1U << log2;
    }
    end_ += length;
  }
  claims_ = {};
  return true;
}

}  // namespace host::classifier
