// The back end that enforces the groups by the kernel's packet filter, on the ingress hook of each
// port.
//
// A group is compiled when it is prepared. To publish, what the groups should be is compared with
// what the kernel holds (watched_tables.h), and what differs is written in one transaction over
// both groups and all ports: the kernel takes all of it or nothing.
//
// A port whose table belongs to another process is left out of the transaction: it holds up nothing
// but itself, and is tried again.
//
// Filters outlive the process. Only an update, the loss of an entry's last port, or flushing them
// on purpose (flush.h) removes them.
#ifndef HOST_FILTER_MGR_NFTABLES_NFTABLES_BACKEND_H_
#define HOST_FILTER_MGR_NFTABLES_NFTABLES_BACKEND_H_

#include <array>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/backend_names.h"
#include "host/filter_mgr/nftables/kernel/features.h"
#include "host/filter_mgr/nftables/kernel/watched_tables.h"
#include "host/filter_mgr/nftables/plan/compiler.h"

namespace host {

struct NftablesOptions {
  PortNames names;
  KernelFeatures features;
  NetlinkOpener open = OpenNetlink;  // tests put themselves in between
};

class NftablesBackend : public Backend {
 public:
  // Connects to the kernel and reads what it holds. Null, with a reason for people in `reason`,
  // when that is not possible.
  static std::unique_ptr<NftablesBackend> Open(const NftablesOptions& options, std::string* reason);

  const char* name() const override { return kNftablesBackend; }
  size_t Left() const override { return left_; }
  FilterMgrError Prepare(const SentGroup& group) override;
  Standing Publish() override;
  void Discard() override;
  const Standing& standing() const override { return standing_; }
  std::vector<int> fds() const override { return kernel_.fds(); }
  bool Poll() override;
  bool Pending() const override;
  std::unique_ptr<HitsReading> ReadHits(GroupSlot slot) override;
  std::optional<SearchCost> CostOf(GroupSlot slot) override;
  void Idle() override { retired_.clear(); }
  std::map<std::string, PortState> Ports() const override;

  // Messages that changed the packet filter since the start; for tests.
  size_t writes() const { return writes_; }

 private:
  // A group by its slot, or null.
  using Targets = std::array<const CompiledGroup*, kGroupSlots>;
  using Groups = std::array<std::optional<CompiledGroup>, kGroupSlots>;

  explicit NftablesBackend(const NftablesOptions& options) : options_(options) {}

  // Makes the kernel hold the targets, and all else that is suspect what is in force. The groups
  // are not noted as in force. Reports nothing.
  BatchResult Program(const Targets& targets);
  // One attempt. `again` tells that the state has changed in between and another one may succeed.
  BatchResult TryProgram(const Targets& targets, bool* again);
  // Notes a transaction that the kernel took.
  void Note(const std::vector<TableUpdate>& updates, const BatchResult& result, size_t messages,
            const std::vector<std::string>& damaged);
  // Takes in what the kernel has announced.
  void Listen();
  // Ports whose table somebody else has changed away from the groups in force.
  std::vector<std::string> Damaged() const;
  // Whether the port's table is another process's, which is noted.
  bool IsForeign(const std::string& port, const Targets& targets);
  bool IsForeign(const std::string& port) const;
  bool Names(const Targets& targets, const std::string& port) const;
  DesiredTable DesiredOf(const std::string& port, const Targets& targets) const;
  std::set<std::string> PortsOf(const Targets& targets) const;
  bool CanProgram(const std::string& port) const;
  Targets InForce() const;
  // Notes the groups, which are now in force; those in `groups` are empty afterwards.
  void Enforce(Groups* groups);
  // How the groups stand that are in force.
  Standing StandingInForce() const;
  // What went wrong, for people.
  std::string Describe(const BatchResult& result, const Targets& targets) const;

  NftablesOptions options_;
  WatchedTables kernel_;
  // Groups in force, those that wait for a passing reason, and those that Publish() is to take. A
  // slot is without a value where there is none.
  Groups groups_, pending_, prepared_;
  std::vector<CompiledGroup> retired_;  // were in force; to be given back when there is time
  Standing standing_;
  std::string trouble_;  // that Poll() has logged last, and still has
  size_t left_ = 0;
  size_t writes_ = 0;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_NFTABLES_BACKEND_H_
