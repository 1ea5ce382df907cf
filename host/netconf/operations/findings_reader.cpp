// From libyang's tree to plain data: see findings_reader.h.
#include "host/netconf/operations/findings_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <utility>

#include "host/cdb/calls/values.h"

namespace host {
namespace {

using findings::Entry;
using findings::Field;

constexpr char kEntryPath[] =
    "config/access-list/acl-profile/ingress/access-list/access-list-entry";

// The leaves of an entry. Those of the first part come in pairs with their masks.
enum Leaf : uint8_t {
  kDestinationMac,
  kDestinationMask,
  kSourceMac,
  kSourceMask,
  kFirstNumber,
  kPermit = 15,
  kDeny,
  kSetPcp,
  kLeafCount
};

constexpr struct {
  const char* path;
  Field field;  // of those from kFirstNumber to kPermit
} kLeaves[] = {
    {"match/destination-mac-address", Field::kDestinationMac},
    {"match/destination-mac-address-mask", Field::kDestinationMac},
    {"match/source-mac-address", Field::kSourceMac},
    {"match/source-mac-address-mask", Field::kSourceMac},
    {"match/vlan", Field::kVlan},
    {"match/ethertype", Field::kEthertype},
    {"match/pcp", Field::kPcp},
    {"match/dscp", Field::kDscp},
    {"match/tos", Field::kTos},
    {"match/source-ipv4-address/mask/ip", Field::kSourceIpv4},
    {"match/source-ipv4-address/no-mask/ip", Field::kSourceIpv4},
    {"match/destination-ipv4-address/mask/ip", Field::kDestinationIpv4},
    {"match/destination-ipv4-address/no-mask/ip", Field::kDestinationIpv4},
    {"match/ip-protocol", Field::kIpProtocol},
    {"match/destination-port", Field::kDestinationPort},
    {"action/packet-handling/permit", Field::kFieldCount},
    {"action/packet-handling/deny", Field::kFieldCount},
    {"action/set/pcp", Field::kFieldCount},
};
static_assert(sizeof(kLeaves) / sizeof(*kLeaves) == kLeafCount);

// The node at `path` below `node`; null when there is none.
const CdbNode* FindBelow(const CdbNode* node, std::string_view path) {
  while (node != nullptr && !path.empty()) {
    const size_t end = std::min(path.find('/'), path.size());
    node = node->Child(path.substr(0, end));
    path.remove_prefix(std::min(end + 1, path.size()));
  }
  return node;
}

bool Is(const lyd_node* node, const char* name) { return std::strcmp(LYD_NAME(node), name) == 0; }

uint16_t AcePriorityOf(const lyd_node* entry) {
  return static_cast<uint16_t>(std::atoi(ChildText(entry, "ace-priority").c_str()));
}

}  // namespace

EntryReader::EntryReader(const ly_ctx* context) : schema_(context) {
  const CdbNode* entry = FindBelow(schema_.root(), kEntryPath);
  for (size_t i = 0; i < kLeafCount; ++i) {
    if (const CdbNode* leaf = FindBelow(entry, kLeaves[i].path)) place_of_[leaf->schema] = i;
  }
}

std::vector<std::string> EntryReader::KnownLeaves() {
  std::vector<std::string> paths;
  for (const auto& leaf : kLeaves) paths.emplace_back(leaf.path);
  return paths;
}

void EntryReader::Collect(const lyd_node* siblings, Leaves* leaves) const {
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    const auto place = place_of_.find(node->schema);
    if (place != place_of_.end()) (*leaves)[place->second] = node;
    Collect(lyd_child(node), leaves);
  }
}

void EntryReader::Change(const lyd_node* siblings, DiffOperation inherited, Leaves* leaves) const {
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    const DiffOperation operation = DiffOperationOf(node, inherited);
    const auto place = place_of_.find(node->schema);
    if (place != place_of_.end() && operation != DiffOperation::kNone) {
      (*leaves)[place->second] = operation == DiffOperation::kDelete ? nullptr : node;
    }
    Change(lyd_child(node), operation, leaves);
  }
}

Entry EntryReader::Read(const lyd_node* node, const lyd_node* change) const {
  Leaves leaves(kLeafCount);
  Collect(lyd_child(node), &leaves);
  if (change != nullptr) Change(lyd_child(change), DiffOperation::kNone, &leaves);
  Entry entry;
  entry.ace_priority = AcePriorityOf(node);
  for (size_t i = 0; i < kPermit; ++i) {
    if (leaves[i] == nullptr || i == kDestinationMask || i == kSourceMask) continue;
    NumericValue number = NumericOf(schema_, leaves[i]);
    const bool masked = i < kFirstNumber && leaves[i + 1] != nullptr;
    if (masked) number.mask = NumericOf(schema_, leaves[i + 1]).value;
    entry.matches.Compare(kLeaves[i].field, number.value, number.mask);
  }
  if (leaves[kDeny] != nullptr) {
    entry.action = Entry::Action::kDeny;
  } else if (leaves[kSetPcp] != nullptr) {
    entry.action = Entry::Action::kSetPcp;
    entry.pcp = static_cast<uint8_t>(NumericOf(schema_, leaves[kSetPcp]).value);
  } else if (leaves[kPermit] != nullptr) {
    entry.action = Entry::Action::kPermit;
  }
  return entry;
}

FindingsReader::FindingsReader(const ly_ctx* context, const lyd_node* first,
                               std::shared_ptr<const void> holder, const lyd_node* difference,
                               std::shared_ptr<PageMemory> memory)
    : entries_(context), view_(first, std::move(holder), nullptr, std::move(memory)) {
  TakeDifference(difference, first, DiffOperation::kNone);
}

findings::Profile* FindingsReader::ProfileNamed(const std::string& type, const std::string& name) {
  if (gone_profiles_.count(type + " " + name) != 0) return nullptr;
  findings::Profile* profile = &configuration_->profiles[name];
  profile->l3 = type == "l3";
  return profile;
}

void FindingsReader::TakeDifference(const lyd_node* node, const lyd_node* siblings,
                                    DiffOperation inherited) {
  for (; node != nullptr; node = node->next) {
    const DiffOperation operation = DiffOperationOf(node, inherited);
    const lyd_node* base = FindSame(siblings, node);
    if (node->schema->nodetype == LYS_CONTAINER) {
      TakeDifference(lyd_child(node), lyd_child(base), operation);
    } else if (Is(node, "access-list")) {
      TakeProfileDifference(node, base, operation);
    } else if (Is(node, "interface")) {
      const std::string name = ChildText(node, "interface-name");
      changed_interfaces_.insert(name);
      if (operation == DiffOperation::kDelete) continue;
      std::set<std::string> profiles;
      const lyd_node* child;
      LY_LIST_FOR(lyd_child(base), child) {
        if (child->schema->nodetype == LYS_LEAFLIST) profiles.insert(TextOf(child));
      }
      LY_LIST_FOR(lyd_child(node), child) {
        if (child->schema->nodetype != LYS_LEAFLIST) continue;
        const DiffOperation what = DiffOperationOf(child, operation);
        if (what == DiffOperation::kCreate) profiles.insert(TextOf(child));
        if (what == DiffOperation::kDelete) profiles.erase(TextOf(child));
      }
      configuration_->interfaces[name].profiles.assign(profiles.begin(), profiles.end());
    }
  }
}

void FindingsReader::TakeProfileDifference(const lyd_node* node, const lyd_node* base,
                                           DiffOperation operation) {
  const std::string name = ChildText(node, "acl-name"), type = ChildText(node, "acl-type");
  if (operation == DiffOperation::kDelete) {
    gone_profiles_.insert(type + " " + name);
    return;
  }
  if (operation == DiffOperation::kCreate) return VisitProfile(node);
  findings::Profile* profile = ProfileNamed(type, name);
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (child->schema->nodetype != LYS_LIST) continue;
    const DiffOperation what = DiffOperationOf(child, operation);
    changed_entries_[name].insert(AcePriorityOf(child));
    if (what == DiffOperation::kDelete) continue;
    const lyd_node* before =
        what == DiffOperation::kNone ? FindSame(lyd_child(base), child) : child;
    profile->entries.push_back(
        entries_.Read(before, what == DiffOperation::kNone ? child : nullptr));
  }
}

FindingsReader::Progress FindingsReader::Step() {
  ViewPart part;
  if (!view_.Next(&part)) return Progress::kEnd;
  if (part.kind == ViewPart::Kind::kNodes) {
    if (part.page->lost()) return Progress::kFailed;
    for (size_t i = part.first; i < part.first + part.count; ++i) Visit(part.page->InOrder(i));
  } else if (part.schema->nodetype == LYS_LIST &&
             std::strcmp(part.schema->name, "access-list") == 0) {
    profile_ = nullptr;
    if (part.kind == ViewPart::Kind::kEnd) return Progress::kMore;
    const std::string name = KeyIn(part, "acl-name");
    profile_ = ProfileNamed(KeyIn(part, "acl-type"), name);
    changed_ = changed_entries_.count(name) != 0 ? &changed_entries_[name] : nullptr;
  }
  return Progress::kMore;
}

void FindingsReader::Visit(const lyd_node* node) {
  if (Is(node, "access-list")) {
    const std::string name = ChildText(node, "acl-name");
    if (gone_profiles_.count(ChildText(node, "acl-type") + " " + name) != 0) return;
    changed_ = changed_entries_.count(name) != 0 ? &changed_entries_[name] : nullptr;
    VisitProfile(node);
  } else if (Is(node, "access-list-entry")) {
    if (profile_ == nullptr) return;
    const bool changed = changed_ != nullptr && changed_->count(AcePriorityOf(node)) != 0;
    if (!changed) profile_->entries.push_back(entries_.Read(node));
  } else if (Is(node, "acl-priority-l2") || Is(node, "acl-priority-l3")) {
    if (profile_ != nullptr) profile_->priority = std::atoi(ChildText(node, "priority").c_str());
  } else if (Is(node, "interface")) {
    const std::string name = ChildText(node, "interface-name");
    if (changed_interfaces_.count(name) != 0) return;
    std::vector<std::string>* profiles = &configuration_->interfaces[name].profiles;
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) {
      if (child->schema->nodetype == LYS_LEAFLIST) profiles->push_back(TextOf(child));
    }
  } else {
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) Visit(child);
  }
}

void FindingsReader::VisitProfile(const lyd_node* node) {
  profile_ = &configuration_->profiles[ChildText(node, "acl-name")];
  profile_->l3 = ChildText(node, "acl-type") == "l3";
  const lyd_node* child;
  LY_LIST_FOR(lyd_child(node), child) {
    if (!IsKey(child)) Visit(child);
  }
  profile_ = nullptr;
}

std::shared_ptr<findings::Configuration> FindingsReader::Take() {
  for (auto& [name, profile] : configuration_->profiles) {
    std::sort(profile.entries.begin(), profile.entries.end(),
              [](const Entry& a, const Entry& b) { return a.ace_priority < b.ace_priority; });
  }
  for (auto& [name, interface] : configuration_->interfaces) {
    std::sort(interface.profiles.begin(), interface.profiles.end());
  }
  return std::move(configuration_);
}

}  // namespace host
