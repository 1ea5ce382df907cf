// The back end that enforces the groups by the kernel's packet filter, on the ingress hook of each
// port.
//
// An update is compiled, compared with what the kernel holds, and what differs is written in one
// transaction over all ports: the kernel takes all of it or nothing. What the kernel holds is read
// once at the start, so that a restart finds what the run before left, and is kept up from there;
// chains are read again before they are edited. Each transaction carries the generation that it
// is based on: when anyone else has changed the packet filter in between, the kernel refuses it,
// and it is planned anew.
//
// Filters outlive the process. Only an update, the loss of an entry's last port, or flushing them
// on purpose (flush.h) removes them.
//
// Changes of others to the Filter Manager's tables, and interfaces that come and go, are announced
// by the kernel; Poll() takes them in and puts right what they concern.
#ifndef HOST_FILTER_MGR_NFTABLES_NFTABLES_BACKEND_H_
#define HOST_FILTER_MGR_NFTABLES_NFTABLES_BACKEND_H_

#include <array>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/linux/link_table.h"
#include "host/filter_mgr/nftables/kernel/features.h"
#include "host/filter_mgr/nftables/kernel/reader.h"
#include "host/filter_mgr/nftables/kernel/table_update.h"
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

  const char* name() const override { return "kernel"; }
  size_t Left() const override;
  FilterMgrError Create(const FiltersCommon::FiltersGroup&) override { return FILTER_MGR_OK; }
  FilterMgrError Apply(const FiltersCommon::FiltersGroup& group) override;
  std::unique_ptr<HitsReading> ReadHits(const FiltersCommon::FiltersGroup& group) override;
  void Idle() override { retired_.clear(); }
  std::map<std::string, PortState> Ports() const override;

  // Descriptors to wait on for Poll().
  std::vector<int> fds() const { return {links_.fd(), events_->fd()}; }
  // Takes in what the kernel has announced and puts right what it concerns. False when something
  // could not be put right: Poll() should then be called again after a while.
  bool Poll();
  // Whether something waits for Poll() that no descriptor tells of: an update that fails may have
  // heard of changes, or have no answer from the kernel.
  bool Pending() const;

  // Messages that changed the packet filter since the start; for tests.
  size_t writes() const { return writes_; }
  // What the kernel holds, as far as is known; for tests.
  const HeldTables& held() const { return held_; }

 private:
  using Targets = std::array<const CompiledGroup*, kGroupSlots>;

  explicit NftablesBackend(const NftablesOptions& options) : options_(options) {}
  int Connect();

  FilterMgrError Program(const Targets& targets);
  // One attempt. `again` tells that the state has changed in between and another one may succeed.
  BatchResult TryProgram(const Targets& targets, bool* again);
  // Commits the batch, whose base is `generation`.
  BatchResult Send(NftBatch* batch, uint32_t generation);
  // Takes in what became of the interfaces; whether anything did.
  bool ReadLinks();
  void ReadEvents();
  int Refresh();
  // Ports whose table somebody else has changed away from the groups in force.
  std::vector<std::string> Damaged() const;
  // Whether the port's table is another process's, and no group names the port.
  bool IsStray(const std::string& port, const Targets& targets) const;
  DesiredTable DesiredOf(const std::string& port, const Targets& targets) const;
  std::set<std::string> PortsOf(const Targets& targets) const;
  bool CanProgram(const std::string& port) const;
  const CompiledGroup* SettledGroup(GroupSlot slot) const;
  // Reads the chains that the update edits. -ESTALE when they are not what they should be.
  int ReadHandles(const TableUpdate& update);
  FilterMgrError Report(const BatchResult& result, const Targets& targets) const;

  NftablesOptions options_;
  std::unique_ptr<NetlinkSocket> commands_, events_;
  std::optional<KernelReader> reader_;
  LinkTable links_;
  HeldTables held_;
  std::array<std::optional<CompiledGroup>, kGroupSlots> groups_;  // in force; none before an update
  std::vector<CompiledGroup> retired_;  // were in force; to be given back when there is time
  std::set<std::string> stale_;         // ports whose table has to be read again
  std::set<std::string> verified_;      // ports whose table was, and has to be compared whole
  bool all_stale_ = false;
  std::set<std::string>
      expected_;                  // of these, ports whose table differs for a reason that is known
  std::set<std::string> failed_;  // ports that could not be put right
  std::set<std::string> strays_;  // ports of stray tables, reported
  size_t writes_ = 0;
  size_t version_ = 0;  // goes up whenever groups_ or held_ change
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_NFTABLES_BACKEND_H_
