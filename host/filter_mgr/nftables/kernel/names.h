// Names and numbers of what the Filter Manager keeps in the kernel's packet filter (nf_tables).
//
// Each port has a table of its own in the netdev family, named after it, so that an update of one
// port is no concern of the others. In it are two base chains on the port's ingress hook, one per
// group, with policy accept: L2 before L3. "accept" ends only its own chain, "drop" is final. The
// base chains jump to chunks named after their group and a number. Two fixed sets hold what no
// mask can express.
#ifndef HOST_FILTER_MGR_NFTABLES_KERNEL_NAMES_H_
#define HOST_FILTER_MGR_NFTABLES_KERNEL_NAMES_H_

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/filter_mgr/group_slot.h"
#include "host/filter_mgr/nftables/plan/rule.h"

namespace host {

// "l2" or "l3".
const char* BaseChainName(GroupSlot slot);
// Priority of the group's base chain on the hook; lower runs earlier.
int32_t HookPriority(GroupSlot slot);

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
