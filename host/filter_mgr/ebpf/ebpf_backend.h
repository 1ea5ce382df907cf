// The back end that enforces the groups by tables: a BPF program at the ingress of every port finds
// the deciding entries at a cost that hardly depends on their number.
//
// Preparing a group compares it, entry by entry, with what is in force (root_update.h) and writes
// what differs into the classifier's arrays, where the program does not see it yet; publishing is
// one store. What can fail comes first: the arrays grow, and the program is attached to ports that
// are new, before that store. Where the kernel is short of memory for that, the group is kept as it
// was sent, and prepared again until there is some.
//
// Filters outlive the process: program, maps and links are pinned (store.h). A process that opens
// the back end takes them over, and writes nothing if the groups it is given are the ones in force.
// Where both groups were empty in the end, nothing is left.
//
// Interfaces come and go; Poll() follows them, and guards (port_guards.h) keep frames out that come
// before it does.
#ifndef HOST_FILTER_MGR_EBPF_EBPF_BACKEND_H_
#define HOST_FILTER_MGR_EBPF_EBPF_BACKEND_H_

#include <array>
#include <deque>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/classifier/classifier.h"
#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/backend_names.h"
#include "host/filter_mgr/ebpf/counters.h"
#include "host/filter_mgr/ebpf/failure.h"
#include "host/filter_mgr/ebpf/flush.h"
#include "host/filter_mgr/ebpf/grace.h"
#include "host/filter_mgr/ebpf/port_guards.h"
#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/ports.h"
#include "host/filter_mgr/ebpf/root_update.h"
#include "host/filter_mgr/ebpf/store.h"
#include "host/filter_mgr/entry_order.h"
#include "host/filter_mgr/linux/link_table.h"
#include "host/filter_mgr/linux/netlink.h"
#include "host/filter_mgr/port_names.h"

namespace host {

struct EbpfOptions {
  PortNames names;
  std::string directory = kEbpfDirectory;  // in it, one directory for each network namespace
  NetlinkOpener open = OpenNetlink;
  bool links = true;  // false: attach as older kernels do; for tests
};

// Where the pins of this network namespace are, below the options' directory.
std::string EbpfDirectory(const std::string& directory);

class EbpfBackend : public Backend {
 public:
  // Loads the program and takes over what an earlier run left. Null, with a reason for people in
  // `reason`, when the kernel or the privileges do not allow this back end.
  static std::unique_ptr<EbpfBackend> Open(const EbpfOptions& options, std::string* reason);
  ~EbpfBackend() override;

  const char* name() const override { return kBpfBackend; }
  size_t Left() const override { return left_; }
  FilterMgrError Prepare(const SentGroup& group) override;
  Standing Publish() override;
  void Discard() override;
  const Standing& standing() const override { return standing_; }
  std::vector<int> fds() const override;
  bool Poll() override;
  bool Pending() const override {
    return !links_.complete() || ToBeTried() || !ports_->failed().empty() ||
           !(foreign_ || hooks_->AllKnown());
  }
  std::unique_ptr<HitsReading> ReadHits(GroupSlot slot) override;
  std::optional<SearchCost> CostOf(GroupSlot slot) override;
  bool SampleCost(GroupSlot slot, uint32_t* next) override;
  void Idle() override;
  std::map<std::string, PortState> Ports() const override;

  // Publications that changed a map; for tests.
  size_t writes() const { return writes_; }
  const FilterStore& store() const { return *store_; }
  const classifier::Classifier& classifier() const { return *classifier_; }
  const PortGuards* guards() const { return guards_.get(); }
  // Hits of the group's entries, by entry id.
  std::vector<Hits> HitsOf(GroupSlot slot) const;

 private:
  // What sample frames have told of a root.
  struct Sampled {
    classifier::Cost cost;
    bool changed = true;  // the root has, since then
  };
  // A group in force, or one prepared to be.
  struct Group {
    explicit Group(const SentGroup& group) : source(group) {
      if (source->getRows() == nullptr) in_order = RowsInOrder(source.content());
    }
    const FiltersCommon::EntryRows& rows() const {
      return source->getRows() == nullptr ? in_order : *source->getRows();
    }

    SentGroup source;
    FiltersCommon::EntryRows in_order;  // where the group itself has none
    std::set<std::string> ports;
  };
  struct PreparedGroup {
    explicit PreparedGroup(const SentGroup& group) : group(group) {}
    Group group;
    std::map<uint32_t, RootUpdate> updates;  // by root
  };

  // A group that would be prepared, had the kernel not been short of something.
  struct Short {
    SentGroup group;
    std::string why;
  };

  explicit EbpfBackend(const EbpfOptions& options) : options_(options) {}
  bool Start(std::string* reason);
  bool TakeOver(std::string* reason);
  bool HoldsNothing() const;
  void OpenGuards();
  // Prepares the group, or tells why that cannot be: what is prepared then is as before.
  Failure Arrange(const SentGroup& group);
  // Prepares what is pending and not replaced by newer content.
  Failure ArrangePending();
  static void LogFailure(const Failure& failure);
  Failure Compare(PreparedGroup* prepared);
  std::pair<size_t, size_t> ChangedPart(GroupSlot slot, const FiltersCommon::EntryRows& rows) const;
  Failure Write(PreparedGroup* prepared);
  void Drop(GroupSlot slot);
  Failure PutInForce();
  Standing Wait(const std::string& reason);
  bool ToBeTried() const;
  bool TryPending();
  bool Follow();
  void Commit();
  std::set<std::string> WantedPorts() const;
  bool Refresh();
  bool RepairGuards();
  std::vector<std::string> LostPorts();
  void TellOfLost(const std::vector<std::string>& ports);

  EbpfOptions options_;
  std::unique_ptr<FilterStore> store_;
  std::unique_ptr<classifier::Classifier> classifier_;
  std::optional<CounterPool> counters_;
  LinkTable links_;
  std::optional<PortHooks> hooks_;
  std::unique_ptr<PortGuards> guards_;
  std::optional<FilterPorts> ports_;
  std::deque<std::vector<HeldEntry>> held_;  // by root; they keep their places
  std::map<uint32_t, Sampled> sampled_;      // by root
  std::set<uint32_t> unreclaimed_;           // roots that hold what an update has removed
  std::array<std::optional<Group>, kGroupSlots> groups_;
  std::array<std::optional<PreparedGroup>, kGroupSlots> prepared_;
  std::array<std::optional<Short>, kGroupSlots> short_;
  std::array<std::optional<SentGroup>, kGroupSlots> pending_;
  std::vector<Group> retired_;  // to be given back when there is time
  GracePeriod grace_;
  Standing standing_;
  bool foreign_ = false;  // what is in force is another version's, and must be replaced whole
  bool guards_reported_ = false;  // that the guards cannot be put right
  size_t left_ = 0;
  size_t writes_ = 0;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_EBPF_BACKEND_H_
