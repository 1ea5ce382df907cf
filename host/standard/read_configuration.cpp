// From libyang's tree to profiles: see configuration.h.
#include <algorithm>
#include <cstdlib>
#include <string_view>

#include "host/cdb/calls/values.h"
#include "host/standard/configuration.h"

namespace host::standard {
namespace {

// What a leaf below an entry says.
enum class Leaf : uint8_t { kValue, kMask, kDscp, kPermit, kDeny, kSetPcp };

constexpr struct {
  std::string_view path;
  Leaf leaf;
  Field field;
} kLeaves[] = {
    {"match/destination-mac-address", Leaf::kValue, kDestinationMac},
    {"match/destination-mac-address-mask", Leaf::kMask, kDestinationMac},
    {"match/source-mac-address", Leaf::kValue, kSourceMac},
    {"match/source-mac-address-mask", Leaf::kMask, kSourceMac},
    {"match/vlan", Leaf::kValue, kVlan},
    {"match/ethertype", Leaf::kValue, kEthertype},
    {"match/pcp", Leaf::kValue, kPcp},
    {"match/dscp", Leaf::kDscp, kTos},
    {"match/tos", Leaf::kValue, kTos},
    {"match/source-ipv4-address/mask/ip", Leaf::kValue, kSourceIpv4},
    {"match/source-ipv4-address/no-mask/ip", Leaf::kValue, kSourceIpv4},
    {"match/destination-ipv4-address/mask/ip", Leaf::kValue, kDestinationIpv4},
    {"match/destination-ipv4-address/no-mask/ip", Leaf::kValue, kDestinationIpv4},
    {"match/ip-protocol", Leaf::kValue, kIpProtocol},
    {"match/destination-port", Leaf::kValue, kDestinationPort},
    {"action/packet-handling/permit", Leaf::kPermit, kFieldCount},
    {"action/packet-handling/deny", Leaf::kDeny, kFieldCount},
    {"action/set/pcp", Leaf::kSetPcp, kFieldCount},
};

const CdbNode* Below(const CdbNode* node, std::string_view path) {
  while (node != nullptr && !path.empty()) {
    const size_t end = std::min(path.find('/'), path.size());
    node = node->Child(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return node;
}

void Take(Leaf leaf, Field field, const Value& value, ProfileEntry* entry) {
  switch (leaf) {
    case Leaf::kValue:  // the mask of a MAC address comes behind it
      entry->matches[field] = {value.value, value.mask & FullMask(field)};
      break;
    case Leaf::kMask:
      if (entry->matches[field]) entry->matches[field]->mask = value.value;
      break;
    case Leaf::kDscp:
      entry->matches[field] = {value.value << 2, kDscpMask};
      break;
    case Leaf::kPermit:
      entry->handling = Handling::kPermit;
      break;
    case Leaf::kDeny:
      entry->handling = Handling::kDeny;
      break;
    case Leaf::kSetPcp:
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

EntryReader::EntryReader(const ly_ctx* context) : schema_(context) {
  const CdbNode* entry =
      Below(schema_.root(), "config/access-list/acl-profile/ingress/access-list/access-list-entry");
  for (size_t i = 0; i < std::size(kLeaves); ++i) {
    if (const CdbNode* leaf = Below(entry, kLeaves[i].path)) place_of_[leaf->schema] = i;
  }
}

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
    const auto place = place_of_.find(node->schema);
    if (place != place_of_.end()) {
      const NumericValue number = NumericOf(schema_, node);
      const auto& known = kLeaves[place->second];
      Take(known.leaf, known.field, {number.value, number.mask}, entry);
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
