#include "host/filter_mgr/group_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <unordered_map>
#include <vector>

#include "host/filter_mgr/entry_text.h"
#include "host/runtime/middleware.h"

namespace host {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::FiltersGroup;
using FiltersCommon::MatchIngressPorts;

constexpr char kModule[] = "acl-app-filters";

// Adds nodes below given parents. Direct calls, as a path string for each of some 600,000 nodes
// would take seconds. The first refusal stands; later calls do nothing.
class StateWriter {
 public:
  explicit StateWriter(const lys_module* module) : module_(module) {}

  bool ok() const { return ok_; }

  lyd_node* Inner(lyd_node* parent, const char* name) {
    lyd_node* node = nullptr;
    if (ok_) ok_ = lyd_new_inner(parent, module_, name, /*output=*/0, &node) == LY_SUCCESS;
    return node;
  }
  template <class... Keys>
  lyd_node* List(lyd_node* parent, const char* name, const Keys&... keys) {
    lyd_node* node = nullptr;
    if (ok_) {
      ok_ = lyd_new_list(parent, module_, name, /*output=*/0, &node, keys.c_str()...) == LY_SUCCESS;
    }
    return node;
  }
  void Leaf(lyd_node* parent, const char* name, const char* value) {
    if (ok_) {
      ok_ = lyd_new_term(parent, module_, name, value, /*output=*/0, nullptr) == LY_SUCCESS;
    }
  }
  void Leaf(lyd_node* parent, const char* name, uint64_t value) {
    Leaf(parent, name, std::to_string(value).c_str());
  }

 private:
  const lys_module* module_;
  bool ok_ = true;
};

class GroupStateBuilder {
 public:
  GroupStateBuilder(const lys_module* module, const GroupTable& table, const PortNames& names)
      : writer_(module), table_(table), names_(names) {}

  lyd_node* Build() {
    lyd_node* top = writer_.Inner(nullptr, "filters");
    writer_.Leaf(top, "backend", table_.backend().name());
    writer_.Leaf(top, "capacity", table_.capacity());
    for (const auto& [key, group] : table_.groups()) AddGroup(top, group);
    AddPorts(top);
    if (writer_.ok()) return top;
    lyd_free_all(top);
    return nullptr;
  }

 private:
  void AddGroup(lyd_node* top, const FiltersGroup& group) {
    lyd_node* node =
        writer_.List(top, "group", std::to_string(group.getId()), std::to_string(group.getStage()));
    const bool l2 = group.getType() == FiltersCommon::FILTERS_GROUP_TYPE_L2;
    writer_.Leaf(node, "type", l2 ? "l2" : "l3");
    writer_.Leaf(node, "priority", group.getPriority());
    writer_.Leaf(node, "entries", group.getEntriesRef().size());
    std::vector<const FiltersEntry*> entries;
    entries.reserve(group.getEntriesRef().size());
    for (const auto& [id, entry] : group.getEntriesRef()) entries.push_back(&entry);
    std::stable_sort(entries.begin(), entries.end(), [](const auto* a, const auto* b) {
      return a->getPriority() < b->getPriority();
    });
    Backend::HitsById hits;
    const bool counted = table_.backend().ReadHits(group, &hits);
    for (const FiltersEntry* entry : entries) {
      AddEntry(node, *entry, counted ? &hits[entry->getId()] : nullptr);
    }
  }

  void AddEntry(lyd_node* group, const FiltersEntry& entry, const Hits* hits) {
    lyd_node* node = writer_.List(group, "entry", std::to_string(entry.getId()));
    writer_.Leaf(node, "priority", entry.getPriority());
    if (const auto* ports = entry.getMatch<MatchIngressPorts>()) {
      for (limid_t port : ports->ports()) writer_.Leaf(node, "port", NameOf(port).c_str());
    }
    AddLeaves(node, "match", entry, ForEachMatchLeaf);
    AddLeaves(node, "action", entry, ForEachActionLeaf);
    if (hits == nullptr) return;
    lyd_node* counters = writer_.Inner(node, "hits");
    writer_.Leaf(counters, "packets", hits->packets);
    writer_.Leaf(counters, "bytes", hits->bytes);
  }

  template <class ForEachLeaf>
  void AddLeaves(lyd_node* entry_node, const char* container, const FiltersEntry& entry,
                 const ForEachLeaf& for_each) {
    lyd_node* node = writer_.Inner(entry_node, container);
    for_each(entry, [this, node](const char* leaf, const char* value) {
      writer_.Leaf(node, leaf, value);
    });
  }

  void AddPorts(lyd_node* top) {
    static constexpr const char* kStates[] = {"enforced", "absent", "failed"};
    for (const auto& [name, state] : table_.backend().Ports()) {
      writer_.Leaf(writer_.List(top, "port", name), "state", kStates[static_cast<int>(state)]);
    }
  }

  const std::string& NameOf(limid_t port) {
    const auto [it, is_new] = port_names_.try_emplace(port);
    if (is_new) it->second = names_(port);
    return it->second;
  }

  StateWriter writer_;
  const GroupTable& table_;
  const PortNames& names_;
  std::unordered_map<limid_t, std::string> port_names_;
};

}  // namespace

lyd_node* BuildGroupState(const ly_ctx* context, const GroupTable& table, const PortNames& names) {
  const lys_module* const module = ly_ctx_get_module_implemented(context, kModule);
  lyd_node* const top =
      module == nullptr ? nullptr : GroupStateBuilder(module, table, names).Build();
  if (top == nullptr) {
    Log(LogLevel::kError, "the filter groups cannot be shown: %s",
        module == nullptr ? "the YANG module acl-app-filters is not loaded" : ly_errmsg(context));
  }
  return top;
}

}  // namespace host
