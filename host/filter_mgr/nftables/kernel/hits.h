// The hits of a group's entries, read from the kernel bit by bit: the kernel tells them only with
// the rules, which takes it about 4 us each.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_HITS_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_HITS_H_

#include <map>
#include <string>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/nftables/kernel/reader.h"
#include "host/filter_mgr/nftables/plan/compiler.h"

namespace host {

class KernelHits : public HitsReading {
 public:
  // What is programmed: `group`, held in `tables`. All of it must stay as it is, and exist, until
  // `*version` changes; that and `reader` must outlive this.
  KernelHits(const CompiledGroup& group, const HeldTables& tables, GroupSlot slot,
             const size_t* version, KernelReader* reader);

  Progress Next() override;

 private:
  // Reads the next chunk of the port; the number of its rules, or -1.
  int ReadChunk(const HeldGroup& held);
  void Add(const Hits& hits);

  const CompiledGroup& group_;
  const HeldTables& tables_;
  const GroupSlot slot_;
  const size_t* const version_;
  const size_t started_;
  KernelReader* const reader_;
  std::map<std::string, PortRules>::const_iterator port_;
  size_t chunk_ = 0;  // next, in the order of the port's chunks
  size_t entry_ = 0;  // of the port, that the next rule may belong to
  int rule_ = 0;      // rules of that entry so far
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_HITS_H_
