// See entry_leaves.h.
#include "host/cdb/schema/entry_leaves.h"

#include <algorithm>
#include <iterator>
#include <string_view>

namespace host {
namespace {

constexpr char kEntryPath[] =
    "config/access-list/acl-profile/ingress/access-list/access-list-entry";

struct EntryLeafPath {
  EntryLeaf leaf;
  const char* path;
};
constexpr EntryLeafPath kEntryLeafPaths[] = {
    {EntryLeaf::kDestinationMac, "match/destination-mac-address"},
    {EntryLeaf::kDestinationMacMask, "match/destination-mac-address-mask"},
    {EntryLeaf::kSourceMac, "match/source-mac-address"},
    {EntryLeaf::kSourceMacMask, "match/source-mac-address-mask"},
    {EntryLeaf::kVlan, "match/vlan"},
    {EntryLeaf::kEthertype, "match/ethertype"},
    {EntryLeaf::kPcp, "match/pcp"},
    {EntryLeaf::kDscp, "match/dscp"},
    {EntryLeaf::kTos, "match/tos"},
    {EntryLeaf::kSourcePrefix, "match/source-ipv4-address/mask/ip"},
    {EntryLeaf::kSourceAddress, "match/source-ipv4-address/no-mask/ip"},
    {EntryLeaf::kDestinationPrefix, "match/destination-ipv4-address/mask/ip"},
    {EntryLeaf::kDestinationAddress, "match/destination-ipv4-address/no-mask/ip"},
    {EntryLeaf::kIpProtocol, "match/ip-protocol"},
    {EntryLeaf::kDestinationPort, "match/destination-port"},
    {EntryLeaf::kPermit, "action/packet-handling/permit"},
    {EntryLeaf::kDeny, "action/packet-handling/deny"},
    {EntryLeaf::kSetPcp, "action/set/pcp"},
};
static_assert(HasEveryLeaf(kEntryLeafPaths));

// The node at `path` below `node`; null when there is none.
const CdbNode* FindBelow(const CdbNode* node, std::string_view path) {
  while (node != nullptr && !path.empty()) {
    const size_t end = std::min(path.find('/'), path.size());
    node = node->Child(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return node;
}

}  // namespace

const std::array<const char*, kEntryLeafCount>& EntryLeafPaths() {
  static const auto paths = [] {
    std::array<const char*, kEntryLeafCount> all{};
    std::transform(std::begin(kEntryLeafPaths), std::end(kEntryLeafPaths), all.begin(),
                   [](const EntryLeafPath& leaf) { return leaf.path; });
    return all;
  }();
  return paths;
}

EntryLeaves::EntryLeaves(const CdbSchema& schema) {
  const CdbNode* entry = FindBelow(schema.root(), kEntryPath);
  for (const EntryLeafPath& leaf : kEntryLeafPaths) {
    if (const CdbNode* node = FindBelow(entry, leaf.path)) leaves_[node->schema] = leaf.leaf;
  }
}

std::optional<EntryLeaf> EntryLeaves::Find(const lysc_node* schema) const {
  const auto leaf = leaves_.find(schema);
  return leaf == leaves_.end() ? std::nullopt : std::optional(leaf->second);
}

}  // namespace host
