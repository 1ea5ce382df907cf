// The slots in which entries count, and which of them are free.
#ifndef HOST_FILTER_MGR_EBPF_COUNTERS_H_
#define HOST_FILTER_MGR_EBPF_COUNTERS_H_

#include <cstdint>
#include <utility>
#include <vector>

#include "host/filter_mgr/ebpf/root_update.h"
#include "host/filter_mgr/ebpf/store.h"

namespace host {

class CounterPool final : public CounterSlots {
 public:
  // Those of `used` are taken. `store` is not owned.
  CounterPool(FilterStore* store, const std::vector<uint32_t>& used);

  bool Take(uint32_t* slot, classifier::Refusal* refusal) override;
  void Release(uint32_t slot) override { free_.push_back(slot); }

  // Makes room for `count` more at once, if that can be had: Take() tells where it cannot.
  void Reserve(size_t count);
  // Gives back slots of entries that have gone out of force: they may still be counted in until a
  // grace period is over.
  void Retire(std::vector<uint32_t> slots);
  // A grace period is about to begin; and is over.
  void BeginGrace() { waiting_ = retired_.size(); }
  void EndGrace();
  bool retired() const { return !retired_.empty(); }

 private:
  FilterStore* store_;
  uint32_t next_ = 0;  // slots from here on were never taken
  std::vector<uint32_t> free_;
  std::vector<uint32_t> retired_;
  size_t waiting_ = 0;  // of retired_, the first ones
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_COUNTERS_H_
