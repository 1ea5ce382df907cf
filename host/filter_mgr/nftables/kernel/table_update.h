// The change of one port's table: what it needs to know, what it writes, and what the kernel holds
// once it is written.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_TABLE_UPDATE_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_TABLE_UPDATE_H_

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/filter_mgr/nftables/kernel/batch.h"
#include "host/filter_mgr/nftables/kernel/reader.h"
#include "host/filter_mgr/nftables/plan/difference.h"

namespace host {

// What a port's table should be. A group without a value is left as it is.
struct DesiredTable {
  std::array<const std::vector<RulePtr>*, kGroupSlots> rules{};
  uint32_t flags = 0;  // ownership, where the kernel has it
};

// Names a chain of a table: a chunk, or the group's own chain.
struct ChainRef {
  GroupSlot slot = kL2;
  std::optional<uint32_t> chunk;

  std::string Name() const;
};

class TableUpdate {
 public:
  // Plans the way from `held` (null: there is no table) to `desired`. Both, and the port's name,
  // must outlive the update; `held` may get its handles read in between, nothing else.
  TableUpdate(const std::string& port, const HeldTable* held, const DesiredTable& desired);

  // Whether there is nothing to write.
  bool empty() const { return action_ == Action::kNone; }
  const std::string& port() const { return *port_; }

  // The chains whose handles and hits must be read before Encode(): those that are edited, and
  // those that rules are moved from.
  std::vector<ChainRef> ChainsToRead() const;
  // Adds the messages to `batch`.
  void Encode(NftBatch* batch) const;
  // Notes in `tables` what the kernel holds after the batch, which had `result`.
  void Commit(const BatchResult& result, HeldTables* tables) const;

 private:
  enum class Action {
    kNone,
    kRemove,  // the whole table
    kBuild,   // anew, in place of what is there
    kEdit,
  };

  struct GroupUpdate {
    const std::vector<RulePtr>* rules = nullptr;  // null: left as it is
    // What `rules` points to where a table is built anew around a group that is left as it is. On
    // the heap, as the update may be moved.
    std::unique_ptr<const std::vector<RulePtr>> salvaged;
    Layout layout;
  };

  void PlanBuild();
  void PlanEdit(const DesiredTable& desired);
  const HeldGroup& HeldOf(GroupSlot slot) const;
  const HeldChain& HeldChunk(GroupSlot slot, const ChunkPlan& chunk) const;
  std::vector<RulePtr> RulesOf(GroupSlot slot, const ChunkPlan& chunk) const;
  void EncodeFrame(NftBatch* batch) const;
  void EncodeGroup(GroupSlot slot, NftBatch* batch) const;
  void EncodeChunk(GroupSlot slot, const ChunkPlan& chunk, NftBatch* batch) const;
  void EncodeLinks(GroupSlot slot, NftBatch* batch) const;
  void EncodeJumps(GroupSlot slot, NftBatch* batch) const;
  // The rule, as held, that the group's rule `index` is moved from; null if it is not moved.
  const HeldRule* MovedRule(GroupSlot slot, size_t index) const;
  // What the kernel holds for the group's rule `index`, which was added.
  HeldRule NewRule(GroupSlot slot, size_t index, const BatchResult& result) const;
  void CommitGroup(GroupSlot slot, const BatchResult& result, HeldGroup* held) const;

  const std::string* port_;
  std::string table_;
  const HeldTable* held_;
  uint32_t flags_;
  Action action_ = Action::kNone;
  bool claim_ = false;  // take over a table that has lost its owner
  std::array<GroupUpdate, kGroupSlots> groups_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_TABLE_UPDATE_H_
