// The hits of a group's entries, read from the kernel bit by bit: the kernel tells them only with
// the rules, which takes it about 4 us each.
//
// What is read is noted with the rules that the kernel holds; a rule that stays through an update
// keeps it. So a reading goes on through updates, and ends with what was last read of each rule.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_HITS_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_HITS_H_

#include <optional>
#include <string>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/nftables/kernel/watched_tables.h"
#include "host/filter_mgr/nftables/plan/compiler.h"

namespace host {

class KernelHits : public HitsReading {
 public:
  // `group`, which is the one in force whenever Next() is called, and `kernel` must outlive this.
  KernelHits(const std::optional<CompiledGroup>* group, WatchedTables* kernel, GroupSlot slot)
      : group_(group), kernel_(kernel), slot_(slot) {}

  Progress Next() override;

 private:
  // Reads a chunk of the port; the number of its rules.
  size_t ReadChunk(HeldGroup* held, uint32_t number);
  // Sums up, by entry, what is noted.
  void Sum();
  void SumPort(const PortRules& port, const HeldGroup& held);

  const std::optional<CompiledGroup>* const group_;
  WatchedTables* const kernel_;
  const GroupSlot slot_;
  std::string port_;  // the next one that is read is this or the first behind it
  size_t chunk_ = 0;  // next of it, in the order of the port's chunks
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_HITS_H_
