// What the kernel's packet filter holds of the Filter Manager's tables, and which interfaces there
// are, kept up to date.
//
// Both are read once at the start. From there the kernel announces what others do, and what this
// process writes is noted as it is written. A table that an announcement is about is stale: it is
// read again before it is relied on, and then suspect until it was compared whole with what it
// should be.
//
// A transaction carries the generation that it is based on, and the kernel refuses it when anyone
// has changed the packet filter since. As a large transaction takes long to make, the generation is
// read just before it is sent, after all announcements: as long as they are about others' tables,
// the transaction is as right as it was.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_WATCHED_TABLES_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_WATCHED_TABLES_H_

#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "host/filter_mgr/linux/link_table.h"
#include "host/filter_mgr/nftables/kernel/batch.h"
#include "host/filter_mgr/nftables/kernel/reader.h"
#include "host/filter_mgr/nftables/kernel/table_update.h"

namespace host {

// What is known of a port beside its table's content.
struct PortStatus {
  bool stale = false;     // the table has to be read again
  bool suspect = false;   // it was read again, and has to be compared whole
  bool expected = false;  // if it is not as it should be, then for a reason that is known
  bool failed = false;    // it could not be made what it should be
  bool reported = false;  // it has been logged that it is another process's
};

class WatchedTables {
 public:
  // Connects to the kernel and reads what it holds. `owned` tells that tables that this process
  // makes can be changed by no other. 0 or a negative errno.
  int Open(const NetlinkOpener& open, bool owned);

  // Descriptors that are readable when the kernel has announced something.
  std::vector<int> fds() const { return {links_.fd(), events_->fd()}; }
  // Takes in what was announced about tables.
  void ReadEvents();
  // Takes in what became of the interfaces; the names that it concerns.
  std::set<std::string> ReadLinks() { return links_.Update(); }
  bool HasLink(const std::string& name) const { return links_.Has(name); }

  // Reads the tables that are stale. 0 or a negative errno.
  int Refresh();
  // Whether there is something to read again or to compare whole, or to find out about interfaces.
  bool Unsettled() const;
  // Whether the port's table has to be compared whole.
  bool IsSuspect(const std::string& port) const;
  // Whether it is not known that the port's table is what it was written to be.
  bool IsDoubtful(const std::string& port) const;
  // Takes all tables to be as they should be.
  void Settle();
  // Has the tables that an update touches read again, for it is not known what became of it.
  void Doubt(const TableUpdate& update);

  // Reads the handles and counters that the update needs. -ESTALE, with the table marked so, when
  // it does not hold what was known.
  int ReadHandles(const TableUpdate& update);
  // Sends the batch. -ESTALE, and nothing done, when an announcement came first of a table of the
  // Filter Manager's.
  BatchResult Send(NftBatch* batch);

  const HeldTables& held() const { return held_; }
  HeldTables* mutable_held() { return &held_; }
  // By port; of those that are not in there nothing is known.
  std::map<std::string, PortStatus>& ports() { return ports_; }
  const std::map<std::string, PortStatus>& ports() const { return ports_; }
  bool all_suspect() const { return all_suspect_; }
  KernelReader* reader() { return &*reader_; }

 private:
  bool AnyStale() const;
  BatchResult SendUnheard(NftBatch* batch, uint32_t generation);

  std::unique_ptr<NetlinkSocket> commands_, events_;
  std::optional<KernelReader> reader_;
  LinkTable links_;
  HeldTables held_;
  std::map<std::string, PortStatus> ports_;
  bool all_stale_ = false, all_suspect_ = false;  // as PortStatus, of every port
  bool owned_ = false;
  uint32_t generation_ = 0;  // as it was last read
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_WATCHED_TABLES_H_
