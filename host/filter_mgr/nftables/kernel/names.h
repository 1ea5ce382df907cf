// Names and numbers of what the Filter Manager keeps in the kernel's packet filter (nf_tables).
//
// Each port has a table of its own in the netdev family, named after it, so that an update of one
// port is no concern of the others. In it is one base chain on the port's ingress hook, which jumps
// to the chain of the L2 group and then to that of the L3 group. Two fixed sets hold what no mask
// can express.
//
//   ingress ─┬► l2 ──goto──► l2-0 ──goto──► l2-1 ...     permit: return, which leads to ingress
//            └► l3 ─┬► l3-0                              permit: accept
//                   └► l3-1 ...
//
// It is one base chain so that a frame is filtered by one transaction's rules: the kernel looks at
// the beginning of a base chain which generation of all its rules counts. With a base chain for
// each group a frame would be put to the L2 group before a transaction, and to the L3 group after
// it. A permit of the L2 group has to end that group wherever it is; a return does so, for what
// goto leads to returns to where the last jump was made. So the chunks of the L2 group are a list,
// in which each ends with a goto to the next; those of the L3 group are jumped to one by one, after
// a look at what all of their rules ask for.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_NAMES_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_NAMES_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/filter_mgr/group_slot.h"
#include "host/filter_mgr/nftables/plan/difference.h"

namespace host {

// The base chain, and its priority on the hook.
constexpr char kIngressChain[] = "ingress";
constexpr int32_t kHookPriority = -20;
// "l2" or "l3": the chain that leads to the group's chunks.
const char* GroupChainName(GroupSlot slot);
// How the group's chunks follow each other.
constexpr ChunkOrder ChunkOrderOf(GroupSlot slot) {
  return slot == kL2 ? ChunkOrder::kLinks : ChunkOrder::kJumps;
}

std::string TableName(const std::string& port);
// The port of a table, no value for a table that is not the Filter Manager's.
std::optional<std::string> PortOfTable(const std::string& table);

std::string ChunkName(GroupSlot slot, uint32_t number);
// The slot and number of a chunk's name.
std::optional<std::pair<GroupSlot, uint32_t>> ParseChunkName(const std::string& name);

// One of the fixed sets: its name, the length of a key in bytes, its keys as they are on the wire.
struct FixedSet {
  ValueSet id;
  const char* name;
  uint32_t key_length;
  uint32_t key_type;  // how the nft tool shows the keys
  std::vector<std::vector<uint8_t>> keys;
};
const std::array<FixedSet, 2>& FixedSets();
const FixedSet& FixedSetOf(ValueSet id);

// Whether an interface can have this name; others cannot exist and are not programmed.
bool IsInterfaceName(const std::string& name);

// Flags of a table (linux/netfilter/nf_tables.h; the second is newer than Debian 12's headers):
// only the socket that owns the table may change it, and it outlives that socket.
constexpr uint32_t kTableOwner = 1U << 1;
constexpr uint32_t kTablePersist = 1U << 2;

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_KERNEL_NAMES_H_
