// From libyang's tree to plain data: see findings_reader.h.
#include "host/netconf/operations/findings_reader.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <utility>

#include "host/cdb/calls/values.h"

namespace host {
namespace {

using findings::Entry;
using findings::Field;

// What the leaves are to the findings.
enum class LeafRole : uint8_t { kValue, kMask, kAction };

constexpr struct {
  EntryLeaf leaf;
  LeafRole role;
  Field field;
} kLeaves[] = {
    {EntryLeaf::kDestinationMac, LeafRole::kValue, Field::kDestinationMac},
    {EntryLeaf::kDestinationMacMask, LeafRole::kMask, Field::kDestinationMac},
    {EntryLeaf::kSourceMac, LeafRole::kValue, Field::kSourceMac},
    {EntryLeaf::kSourceMacMask, LeafRole::kMask, Field::kSourceMac},
    {EntryLeaf::kVlan, LeafRole::kValue, Field::kVlan},
    {EntryLeaf::kEthertype, LeafRole::kValue, Field::kEthertype},
    {EntryLeaf::kPcp, LeafRole::kValue, Field::kPcp},
    {EntryLeaf::kDscp, LeafRole::kValue, Field::kDscp},
    {EntryLeaf::kTos, LeafRole::kValue, Field::kTos},
    {EntryLeaf::kSourcePrefix, LeafRole::kValue, Field::kSourceIpv4},
    {EntryLeaf::kSourceAddress, LeafRole::kValue, Field::kSourceIpv4},
    {EntryLeaf::kDestinationPrefix, LeafRole::kValue, Field::kDestinationIpv4},
    {EntryLeaf::kDestinationAddress, LeafRole::kValue, Field::kDestinationIpv4},
    {EntryLeaf::kIpProtocol, LeafRole::kValue, Field::kIpProtocol},
    {EntryLeaf::kDestinationPort, LeafRole::kValue, Field::kDestinationPort},
    {EntryLeaf::kPermit, LeafRole::kAction, Field::kFieldCount},
    {EntryLeaf::kDeny, LeafRole::kAction, Field::kFieldCount},
    {EntryLeaf::kSetPcp, LeafRole::kAction, Field::kFieldCount},
};
static_assert(HasEveryLeaf(kLeaves));

bool Is(const lyd_node* node, const char* name) { return std::strcmp(LYD_NAME(node), name) == 0; }

uint16_t AcePriorityOf(const lyd_node* entry) {
  return static_cast<uint16_t>(std::atoi(ChildText(entry, "ace-priority").c_str()));
}

}  // namespace

EntryReader::EntryReader(const ly_ctx* context) : schema_(context), known_(schema_) {}

void EntryReader::Collect(const lyd_node* siblings, Leaves* leaves) const {
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    if (const auto leaf = known_.Find(node->schema)) leaves->Of(*leaf) = node;
    Collect(lyd_child(node), leaves);
  }
}

void EntryReader::Change(const lyd_node* siblings, DiffOperation inherited, Leaves* leaves) const {
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    const DiffOperation operation = DiffOperationOf(node, inherited);
    const auto leaf = known_.Find(node->schema);
    if (leaf && operation != DiffOperation::kNone) {
      leaves->Of(*leaf) = operation == DiffOperation::kDelete ? nullptr : node;
    }
    Change(lyd_child(node), operation, leaves);
  }
}

Entry EntryReader::Read(const lyd_node* node, const lyd_node* change) const {
  Leaves leaves;
  Collect(lyd_child(node), &leaves);
  if (change != nullptr) Change(lyd_child(change), DiffOperation::kNone, &leaves);
  Entry entry;
  entry.ace_priority = AcePriorityOf(node);
  for (const auto* row = std::begin(kLeaves); row != std::end(kLeaves); ++row) {
    if (row->role != LeafRole::kValue || leaves.Of(row->leaf) == nullptr) continue;
    NumericValue number = NumericOf(schema_, leaves.Of(row->leaf));
    const lyd_node* mask = row[1].role == LeafRole::kMask ? leaves.Of(row[1].leaf) : nullptr;
    if (mask != nullptr) number.mask = NumericOf(schema_, mask).value;
    entry.matches.Compare(row->field, number.value, number.mask);
  }
  if (leaves.Of(EntryLeaf::kDeny) != nullptr) {
    entry.action = Entry::Action::kDeny;
  } else if (const lyd_node* pcp = leaves.Of(EntryLeaf::kSetPcp)) {
    entry.action = Entry::Action::kSetPcp;
    entry.pcp = static_cast<uint8_t>(NumericOf(schema_, pcp).value);
  } else if (leaves.Of(EntryLeaf::kPermit) != nullptr) {
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
