#include "host/filter_mgr/group_state.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/filter_mgr/entry_order.h"
#include "host/filter_mgr/entry_text.h"
#include "host/filter_mgr/group_summary.h"
#include "host/filter_mgr/group_walk.h"
#include "host/runtime/middleware.h"
#include "host/runtime/tree_writer.h"

namespace host {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::FiltersGroup;
using FiltersCommon::MatchIngressPorts;

constexpr char kModule[] = "acl-app-filters";

// Builds the tree in parts: each call of Add() goes on where the one before has ended.
class GroupStateBuilder {
 public:
  GroupStateBuilder(const GroupTable& table, const PortNames& names)
      : table_(table), names_(names), walk_(table), sampling_(table.backend()) {}

  bool done() const { return done_; }

  // The next part, from the top-level node on, with `most` entries at most. Null when libyang
  // refuses a node.
  lyd_node* Next(const lys_module* module, size_t most) {
    writer_.emplace(module);
    lyd_node* top = writer_->Inner(nullptr, "filters");
    writer_->Leaf(top, "backend", table_.backend().name());
    if (!table_.why().empty()) writer_->Leaf(top, "backend-reason", table_.why().c_str());
    writer_->Leaf(top, "capacity", table_.capacity());
    Add(top, most);
    if (writer_->ok()) return top;
    lyd_free_all(top);
    return nullptr;
  }

  // The whole in one.
  lyd_node* All(const lys_module* module) {
    lyd_node* top = Next(module, SIZE_MAX);
    while (top != nullptr && !done_) Add(top, SIZE_MAX);
    if (top == nullptr || writer_->ok()) return top;
    lyd_free_all(top);
    return nullptr;
  }

 private:
  void Add(lyd_node* top, size_t most) {
    if (walk_.done()) {
      AddPorts(top);
      done_ = true;
      return;
    }
    if (!walk_.group() && !Begin()) return;
    AddGroup(top, most);
  }

  bool Begin() {
    if (sampling_.Step() || !walk_.Begin()) return false;
    const SentGroup& group = *walk_.group();
    cost_ = table_.backend().CostOf(SlotOf(group->getType()));
    next_entry_ = 0;
    entries_ = EntriesInOrder(group.content());
    return true;
  }

  void AddGroup(lyd_node* top, size_t most) {
    const FiltersGroup& content = walk_.group()->content();
    lyd_node* node = writer_->List(top, "group", std::to_string(content.getId()),
                                   std::to_string(content.getStage()));
    const bool l2 = content.getType() == FiltersCommon::FILTERS_GROUP_TYPE_L2;
    writer_->Leaf(node, "type", l2 ? "l2" : "l3");
    writer_->Leaf(node, "priority", content.getPriority());
    writer_->Leaf(node, "entries", entries_.size());
    writer_->Leaf(node, "nearly-full", table_.NearlyFull(content.getType()) ? "true" : "false");
    if (cost_) AddSearchCost(*cost_, node, &*writer_);
    for (; most > 0 && next_entry_ < entries_.size(); --most) {
      const FiltersEntry& entry = *entries_[next_entry_++];
      AddEntry(node, entry);
    }
    if (next_entry_ < entries_.size()) return;
    walk_.End();
  }

  void AddEntry(lyd_node* group, const FiltersEntry& entry) {
    lyd_node* node = writer_->List(group, "entry", std::to_string(entry.getId()));
    writer_->Leaf(node, "priority", entry.getPriority());
    if (const auto* ports = entry.getMatch<MatchIngressPorts>()) {
      for (limid_t port : ports->ports()) writer_->Leaf(node, "port", NameOf(port).c_str());
    }
    const EntryOrigin origin = walk_.group()->OriginOf(entry.getId());
    if (origin.known()) {
      writer_->Leaf(node, "interface", origin.interface->c_str());
      writer_->Leaf(node, "profile", origin.profile->c_str());
      writer_->Leaf(node, "ace-priority", origin.ace_priority);
    }
    AddLeaves(node, "match", entry, ForEachMatchLeaf);
    AddLeaves(node, "action", entry, ForEachActionLeaf);
    const auto& counted = walk_.hits();
    if (!counted) return;
    const Hits hits = entry.getId() < counted->size() ? (*counted)[entry.getId()] : Hits{};
    lyd_node* counters = writer_->Inner(node, "hits");
    writer_->Leaf(counters, "packets", hits.packets);
    writer_->Leaf(counters, "bytes", hits.bytes);
  }

  template <class ForEachLeaf>
  void AddLeaves(lyd_node* entry_node, const char* container, const FiltersEntry& entry,
                 const ForEachLeaf& for_each) {
    lyd_node* node = writer_->Inner(entry_node, container);
    for_each(entry, [this, node](const char* leaf, const char* value) {
      writer_->Leaf(node, leaf, value);
    });
  }

  void AddPorts(lyd_node* top) {
    static constexpr const char* kStates[] = {"enforced", "absent", "failed"};
    for (const auto& [name, state] : table_.backend().Ports()) {
      writer_->Leaf(writer_->List(top, "port", name), "state", kStates[static_cast<int>(state)]);
    }
  }

  const std::string& NameOf(limid_t port) {
    const auto [it, is_new] = port_names_.try_emplace(port);
    if (is_new) it->second = names_(port);
    return it->second;
  }

  const GroupTable& table_;
  const PortNames names_;
  std::unordered_map<limid_t, std::string> port_names_;
  std::optional<TreeWriter> writer_;
  GroupWalk walk_;
  CostSampling sampling_;
  std::vector<const FiltersEntry*> entries_;  // of the group at work, by priority
  size_t next_entry_ = 0;
  std::optional<SearchCost> cost_;
  bool done_ = false;
};

// The module, or null with a log line.
const lys_module* FindModule(const ly_ctx* context) {
  const lys_module* const module = ly_ctx_get_module_implemented(context, kModule);
  if (module == nullptr) {
    Log(LogLevel::kError, "the filter groups cannot be shown: the YANG module %s is not loaded",
        kModule);
  }
  return module;
}

// Passes on what was built, with a log line when there is nothing.
lyd_node* Checked(lyd_node* top, const ly_ctx* context) {
  if (top == nullptr) {
    Log(LogLevel::kError, "the filter groups cannot be shown: %s", ly_errmsg(context));
  }
  return top;
}

class GroupStatePieces : public StateProviders::Pieces {
 public:
  GroupStatePieces(const GroupTable& table, const PortNames& names,
                   const std::weak_ptr<const void>& alive)
      : builder_(table, names), alive_(alive) {}

  lyd_node* Next(const ly_ctx* context) override {
    constexpr size_t kEntries = 128;  // about a millisecond
    if (alive_.expired() || builder_.done()) return nullptr;
    const lys_module* const module = FindModule(context);
    return module == nullptr ? nullptr : Checked(builder_.Next(module, kEntries), context);
  }

 private:
  GroupStateBuilder builder_;
  std::weak_ptr<const void> alive_;
};

}  // namespace

lyd_node* BuildGroupState(const ly_ctx* context, const GroupTable& table, const PortNames& names) {
  const lys_module* const module = FindModule(context);
  return module == nullptr ? nullptr
                           : Checked(GroupStateBuilder(table, names).All(module), context);
}

std::unique_ptr<StateProviders::Pieces> OpenGroupState(const GroupTable& table,
                                                       const PortNames& names,
                                                       const std::weak_ptr<const void>& alive) {
  return std::make_unique<GroupStatePieces>(table, names, alive);
}

}  // namespace host
