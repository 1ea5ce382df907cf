#include "host/filter_mgr/group_summary.h"

#include <utility>

#include "host/runtime/log.h"
#include "host/runtime/tree_writer.h"

namespace host {
namespace {

const char* Text(bool value) { return value ? "true" : "false"; }

void AddGroup(const GroupTable::Key& key, const SentGroup& group, const GroupTable& table,
              lyd_node* top, TreeWriter* writer) {
  const FiltersCommon::filtersGroupType_t type = group->getType();
  const GroupSlot slot = SlotOf(type);
  lyd_node* node = writer->List(top, "group", std::string(slot == kL2 ? "l2" : "l3"));
  writer->Leaf(node, "capacity", table.capacity());
  writer->Leaf(node, "entries", group->getEntriesRef().size());
  const auto waiting = table.pending().find(key);
  if (waiting != table.pending().end()) {
    writer->Leaf(node, "waiting", waiting->second->getEntriesRef().size());
  }
  const FillLevel& level = table.LevelOf(type);
  writer->Leaf(node, "threshold-high", level.threshold().high);
  writer->Leaf(node, "threshold-low", level.threshold().low);
  writer->Leaf(node, "nearly-full", Text(level.raised()));
  writer->Leaf(node, "raised", level.times_raised());
  if (const auto cost = table.backend().CostOf(slot)) AddSearchCost(*cost, node, writer);
}

// The top-level node with what is below it, but for the groups themselves unless they are wanted.
lyd_node* Build(const ly_ctx* context, const GroupTable& table, uint64_t retries, bool groups) {
  TreeWriter writer(ly_ctx_get_module_implemented(context, "acl-app-filters"));
  lyd_node* top = writer.Inner(nullptr, "groups");
  writer.Leaf(top, "backend", table.backend().name());
  writer.Leaf(top, "retries", retries);
  if (groups) {
    for (const auto& [key, group] : table.groups()) AddGroup(key, group, table, top, &writer);
  }
  if (writer.ok()) return top;
  Log(LogLevel::kError, "the groups cannot be shown in short: %s", ly_errmsg(context));
  lyd_free_all(top);
  return nullptr;
}

// As long as the cost is not known, a piece is without groups.
class GroupSummaryPieces : public StateProviders::Pieces {
 public:
  GroupSummaryPieces(const GroupTable& table, std::function<uint64_t()> retries,
                     std::weak_ptr<const void> alive)
      : table_(table),
        sampling_(table.backend()),
        retries_(std::move(retries)),
        alive_(std::move(alive)) {}

  lyd_node* Next(const ly_ctx* context) override {
    if (done_ || alive_.expired()) return nullptr;
    done_ = !sampling_.Step();
    return Build(context, table_, retries_(), /*groups=*/done_);
  }

 private:
  const GroupTable& table_;
  CostSampling sampling_;
  const std::function<uint64_t()> retries_;
  const std::weak_ptr<const void> alive_;
  bool done_ = false;
};

}  // namespace

void AddSearchCost(const SearchCost& cost, lyd_node* group, TreeWriter* writer) {
  lyd_node* node = writer->Inner(group, "search");
  writer->Leaf(node, "port", cost.port);
  if (cost.tables) {
    writer->Leaf(node, "tables-mean", cost.MeanText());
    writer->Leaf(node, "tables-worst", cost.tables->worst);
  }
  writer->Leaf(node, "entries-worst", cost.entries_worst);
}

lyd_node* BuildGroupSummary(const ly_ctx* context, const GroupTable& table, uint64_t retries) {
  CostSampling(table.backend()).Step();
  return Build(context, table, retries, /*groups=*/true);
}

std::unique_ptr<StateProviders::Pieces> OpenGroupSummary(const GroupTable& table,
                                                         std::function<uint64_t()> retries,
                                                         const std::weak_ptr<const void>& alive) {
  return std::make_unique<GroupSummaryPieces>(table, std::move(retries), alive);
}

}  // namespace host
