#include "host/filter_mgr/ebpf/counters.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

namespace host {

CounterPool::CounterPool(FilterStore* store, const std::vector<uint32_t>& used) : store_(store) {
  if (used.empty()) return;
  next_ = *std::max_element(used.begin(), used.end()) + 1;
  std::vector<bool> taken(next_);
  for (uint32_t slot : used) taken[slot] = true;
  for (uint32_t slot = 0; slot < next_; ++slot) {
    if (!taken[slot]) free_.push_back(slot);
  }
}

bool CounterPool::Take(uint32_t* slot, classifier::Refusal* refusal) {
  if (!free_.empty()) {
    *slot = free_.back();
    free_.pop_back();
  } else {
    const int error = store_->GrowCounters(next_ + 1);
    if (error != 0) {
      *refusal = {classifier::Refusal::kNoRoom, CLS_ENTRIES, next_ + 1,
                  error == -E2BIG ? "there is room for " + std::to_string(store_->most_counters()) +
                                        " counters on so many processors, more are needed"
                                  : "there is no memory for more than " + std::to_string(next_) +
                                        " counters: " + strerror(-error),
                  error};
      return false;
    }
    *slot = next_++;
  }
  store_->ResetCount(*slot);
  return true;
}

void CounterPool::Reserve(size_t count) {
  if (count <= free_.size()) return;
  store_->GrowCounters(next_ + static_cast<uint32_t>(count - free_.size()));
}

void CounterPool::Retire(std::vector<uint32_t> slots) {
  retired_.insert(retired_.end(), slots.begin(), slots.end());
}

void CounterPool::EndGrace() {
  const auto end = retired_.begin() + static_cast<ptrdiff_t>(waiting_);
  free_.insert(free_.end(), retired_.begin(), end);
  retired_.erase(retired_.begin(), end);
  waiting_ = 0;
}

}  // namespace host
