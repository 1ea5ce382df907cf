// Reads what the kernel's packet filter holds of the Filter Manager's tables.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_READER_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_READER_H_

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/filter_mgr/linux/netlink.h"
#include "host/filter_mgr/nftables/kernel/names.h"
#include "host/filter_mgr/nftables/plan/difference.h"

struct nftnl_rule;

namespace host {

// What the kernel holds for one port.
struct HeldTable {
  uint32_t flags = 0;
  bool of_another = false;  // owned by another socket, which alone may change it
  // Whether the table is built as this program builds them: flags, chains, sets and jumps. One that
  // is not has to be built anew; its groups hold the rules that could be read.
  bool sound = false;
  std::array<HeldGroup, kGroupSlots> groups;  // by GroupSlot
  // Of an earlier version, which had the groups' chains on hooks of their own.
  bool on_hooks = false;

  // The group by whose verdicts the rules of a group's chunks are read: with a hook of its own, an
  // L2 entry permits as those of the L3 group do.
  GroupSlot VerdictsOf(GroupSlot slot) const { return on_hooks ? kL3 : slot; }
};
using HeldTables = std::map<std::string, HeldTable>;  // by port

class KernelReader {
 public:
  // Not owned.
  explicit KernelReader(NetlinkSocket* socket) : socket_(socket) {}

  // All of these give 0 or a negative errno; the output is then not changed.

  // The number of the packet filter's last transaction.
  int ReadGeneration(uint32_t* generation);
  // The ports that have a table of the Filter Manager; of these, in `*unowned` unless it is null,
  // those whose table no process owns.
  int ReadPorts(std::vector<std::string>* ports, std::vector<std::string>* unowned = nullptr);
  // All tables of the Filter Manager.
  int ReadTables(HeldTables* tables);
  // One port's table; no value when there is none.
  int ReadTable(const std::string& port, std::optional<HeldTable>* table);
  // The rules of one chain behind the guard of `*rules`, with their handles. A chain that does not
  // exist reads as empty.
  int ReadChain(const std::string& port, GroupSlot slot, const std::string& chain,
                HeldChain* rules);
  // The hits of each rule of a chunk, in order; the link is one of them.
  int ReadHits(const std::string& port, GroupSlot slot, uint32_t chunk, std::vector<Hits>* hits);

 private:
  class Assembly;

  int ReadFiltered(const std::string* only_port, HeldTables* tables);
  int DumpChains(std::map<std::string, Assembly>* assemblies);
  int DumpSets(std::map<std::string, Assembly>* assemblies);
  // The chains that the base chain jumps to, in order; one without a name for a rule that does
  // anything else.
  int DumpIngress(const std::string& port, std::vector<std::string>* chains);
  int DumpElements(const std::string& table, const FixedSet& set, bool* equal);
  // The rules of one chain; `sink` gets null where the dump begins anew. (A dump of a whole table
  // walks it again from the start for every few rules.)
  int DumpRules(const std::string& table, const std::string& chain,
                const std::function<void(const nftnl_rule*)>& sink);
  // A dump of objects of a kind, started anew when a transaction comes in between: `restart` is
  // called before each attempt.
  int Dump(uint16_t type, const std::function<void(nlmsghdr*)>& fill,
           const std::function<void()>& restart, const MessageSink& sink);

  NetlinkSocket* socket_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_READER_H_
