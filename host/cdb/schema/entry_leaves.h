// The leaves of an entry's match and action, each named once, for all who read entries from the
// data tree.
//
// A reader says in a table, a row per leaf, what the leaves are to it, and has HasEveryLeaf()
// assert that none is missing: to a reader that overlooks a condition, the entry matches more than
// it does.
#ifndef HOST_CDB_SCHEMA_ENTRY_LEAVES_H_
#define HOST_CDB_SCHEMA_ENTRY_LEAVES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <unordered_map>

#include "host/cdb/schema/cdb_schema.h"

namespace host {

// The mask of a MAC address comes right behind the address.
enum class EntryLeaf : uint8_t {
  kDestinationMac,
  kDestinationMacMask,
  kSourceMac,
  kSourceMacMask,
  kVlan,
  kEthertype,
  kPcp,
  kDscp,
  kTos,
  kSourcePrefix,
  kSourceAddress,
  kDestinationPrefix,
  kDestinationAddress,
  kIpProtocol,
  kDestinationPort,
  kPermit,
  kDeny,
  kSetPcp,
};
constexpr size_t kEntryLeafCount = 18;

// The leaves' paths below the entry, by EntryLeaf.
const std::array<const char*, kEntryLeafCount>& EntryLeafPaths();

// Whether the rows, each with its `leaf`, are those of all leaves, in order.
template <class Row, size_t N>
constexpr bool HasEveryLeaf(const Row (&rows)[N]) {
  for (size_t i = 0; i < N; ++i) {
    if (rows[i].leaf != static_cast<EntryLeaf>(i)) return false;
  }
  return N == kEntryLeafCount;
}

// Finds out which leaf a node of the data tree is.
class EntryLeaves {
 public:
  explicit EntryLeaves(const CdbSchema& schema);

  // None for nodes that are no leaves of a match or an action.
  std::optional<EntryLeaf> Find(const lysc_node* schema) const;

 private:
  std::unordered_map<const lysc_node*, EntryLeaf> leaves_;
};

}  // namespace host

#endif  // HOST_CDB_SCHEMA_ENTRY_LEAVES_H_
