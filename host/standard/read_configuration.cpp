// From libyang's tree to profiles: see configuration.h.
#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "host/cdb/calls/values.h"
#include "host/standard/configuration.h"

namespace host::standard {
namespace {

// What a leaf below an entry says.
enum class LeafKind : uint8_t { kValue, kMask, kDscp, kPermit, kDeny, kSetPcp };

constexpr struct {
  EntryLeaf leaf;
  LeafKind kind;
  Field field;
} kLeaves[] = {
    {EntryLeaf::kDestinationMac, LeafKind::kValue, kDestinationMac},
    {EntryLeaf::kDestinationMacMask, LeafKind::kMask, kDestinationMac},
    {EntryLeaf::kSourceMac, LeafKind::kValue, kSourceMac},
    {EntryLeaf::kSourceMacMask, LeafKind::kMask, kSourceMac},
    {EntryLeaf::kVlan, LeafKind::kValue, kVlan},
    {EntryLeaf::kEthertype, LeafKind::kValue, kEthertype},
    {EntryLeaf::kPcp, LeafKind::kValue, kPcp},
    {EntryLeaf::kDscp, LeafKind::kDscp, kTos},
    {EntryLeaf::kTos, LeafKind::kValue, kTos},
    {EntryLeaf::kSourcePrefix, LeafKind::kValue, kSourceIpv4},
    {EntryLeaf::kSourceAddress, LeafKind::kValue, kSourceIpv4},
    {EntryLeaf::kDestinationPrefix, LeafKind::kValue, kDestinationIpv4},
    {EntryLeaf::kDestinationAddress, LeafKind::kValue, kDestinationIpv4},
    {EntryLeaf::kIpProtocol, LeafKind::kValue, kIpProtocol},
    {EntryLeaf::kDestinationPort, LeafKind::kValue, kDestinationPort},
    {EntryLeaf::kPermit, LeafKind::kPermit, kFieldCount},
    {EntryLeaf::kDeny, LeafKind::kDeny, kFieldCount},
    {EntryLeaf::kSetPcp, LeafKind::kSetPcp, kFieldCount},
};
static_assert(HasEveryLeaf(kLeaves));

void Take(LeafKind kind, Field field, const Value& value, ProfileEntry* entry) {
  switch (kind) {
    case LeafKind::kValue:  // the mask of a MAC address comes behind it
      entry->matches[field] = {value.value, value.mask & FullMask(field)};
      break;
    case LeafKind::kMask:
      if (entry->matches[field]) entry->matches[field]->mask = value.value;
      break;
    case LeafKind::kDscp:
      entry->matches[field] = {value.value << 2, kDscpMask};
      break;
    case LeafKind::kPermit:
      entry->handling = Handling::kPermit;
      break;
    case LeafKind::kDeny:
      entry->handling = Handling::kDeny;
      break;
    case LeafKind::kSetPcp:
      entry->set_pcp = static_cast<uint8_t>(value.value);
      break;
  }
}

class ConfigurationReader {
 public:
  explicit ConfigurationReader(const ly_ctx* context) : entries_(context) {}

  void Read(const lyd_node* siblings) {
    const lyd_node* node;
    LY_LIST_FOR(siblings, node) {
      if (node->schema == nullptr) continue;
      const std::string_view name = LYD_NAME(node);
      if (node->schema->nodetype == LYS_LIST && name == "access-list") {
        ReadProfile(node);
      } else if (node->schema->nodetype == LYS_LIST && name == "interface") {
        ReadInterface(node);
      } else if (node->schema->nodetype == LYS_CONTAINER && name != "status") {
        Read(lyd_child(node));
      }
    }
  }

  Profiles Take() { return std::move(profiles_); }

 private:
  void ReadProfile(const lyd_node* node) {
    Profile& profile = profiles_.profiles.emplace_back();
    profile.name = ChildText(node, "acl-name");
    profile.l3 = ChildText(node, "acl-type") == "l3";
    profile.description = ChildText(node, "description");
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) {
      if (child->schema->nodetype == LYS_LIST) {
        profile.entries.push_back(entries_.Read(child));
      } else if (child->schema->nodetype == LYS_CONTAINER) {
        profile.priority = static_cast<uint16_t>(std::atoi(ChildText(child, "priority").c_str()));
      }
    }
    std::sort(profile.entries.begin(), profile.entries.end(),
              [](const auto& a, const auto& b) { return a.ace_priority < b.ace_priority; });
  }

  void ReadInterface(const lyd_node* node) {
    std::vector<std::string>& bound = profiles_.bindings[ChildText(node, "interface-name")];
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) {
      if (child->schema->nodetype == LYS_LEAFLIST) bound.emplace_back(TextOf(child));
    }
  }

  const EntryReader entries_;
  Profiles profiles_;
};

}  // namespace

EntryReader::EntryReader(const ly_ctx* context) : schema_(context), known_(schema_) {}

ProfileEntry EntryReader::Read(const lyd_node* node) const {
  ProfileEntry entry;
  entry.ace_priority = static_cast<uint16_t>(std::atoi(ChildText(node, "ace-priority").c_str()));
  entry.description = ChildText(node, "description");
  ReadLeaves(lyd_child(node), &entry);
  return entry;
}

void EntryReader::ReadLeaves(const lyd_node* siblings, ProfileEntry* entry) const {
  const lyd_node* node;
  LY_LIST_FOR(siblings, node) {
    if (const auto leaf = known_.Find(node->schema)) {
      const NumericValue number = NumericOf(schema_, node);
      const auto& row = kLeaves[static_cast<size_t>(*leaf)];
      Take(row.kind, row.field, {number.value, number.mask}, entry);
    } else if (node->schema->nodetype == LYS_CONTAINER) {
      ReadLeaves(lyd_child(node), entry);
    }
  }
}

Profiles ReadConfiguration(const ly_ctx* context, const lyd_node* first) {
  ConfigurationReader reader(context);
  reader.Read(first);
  return reader.Take();
}

}  // namespace host::standard
