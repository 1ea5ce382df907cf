// The masks that entries have, each once, counted by the entries that use it.
#ifndef HOST_CLASSIFIER_MASK_TABLE_H_
#define HOST_CLASSIFIER_MASK_TABLE_H_

#include <unordered_map>
#include <vector>

#include "host/classifier/pool.h"
#include "host/classifier/rule.h"

namespace host::classifier {

class MaskTable {
 public:
  explicit MaskTable(Memory* memory)
      : memory_(memory), pool_(memory, CLS_MASKS, CLS_MASKS, 0, CLS_MAX_MASKS) {}

  // The index of `mask`, for one more user. Pool::kNone when there is no room.
  uint32_t Acquire(const cls_key& mask, Refusal* refusal) {
    const auto found = index_.find(mask);
    if (found != index_.end()) {
      ++users_[found->second];
      return found->second;
    }
    const uint32_t index = pool_.Allocate(0, refusal);
    if (index == Pool::kNone) return index;
    *memory_->At<cls_key>(CLS_MASKS, index) = mask;
    Add(mask, index);
    return index;
  }

  // One user less. The index is given to another mask as soon as there is none: let go only what no
  // search can see.
  void Release(uint32_t index) {
    if (--users_[index] != 0) return;
    index_.erase(*memory_->At<cls_key>(CLS_MASKS, index));
    pool_.Free(index, 0);
  }

  // Restart: one more user of a mask that the array holds.
  bool Claim(uint32_t index) {
    const cls_key* mask = memory_->At<cls_key>(CLS_MASKS, index);
    if (mask == nullptr) return false;
    if (index < users_.size() && users_[index] != 0) {
      ++users_[index];
      return true;
    }
    if (index_.count(*mask) != 0 || !pool_.Claim(index, 0)) return false;
    Add(*mask, index);
    return true;
  }
  bool EndClaims() { return pool_.EndClaims(); }

 private:
  struct KeyHash {
    size_t operator()(const cls_key& key) const { return static_cast<size_t>(Hash(key)); }
  };

  void Add(const cls_key& mask, uint32_t index) {
    if (users_.size() <= index) users_.resize(index + 1);
    users_[index] = 1;
    index_.emplace(mask, index);
  }

  Memory* memory_;
  Pool pool_;
  std::unordered_map<cls_key, uint32_t, KeyHash> index_;
  std::vector<uint32_t> users_;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_MASK_TABLE_H_
