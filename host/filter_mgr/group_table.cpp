#include "host/filter_mgr/group_table.h"

#include "host/runtime/middleware.h"

namespace host {
namespace {

using FiltersCommon::FiltersGroup;

GroupTable::Key KeyOf(const FiltersGroup& group) { return {group.getStage(), group.getId()}; }

}  // namespace

const char* GroupTypeName(FiltersCommon::filtersGroupType_t type) {
  switch (type) {
    case FiltersCommon::FILTERS_GROUP_TYPE_L2:
      return "L2";
    case FiltersCommon::FILTERS_GROUP_TYPE_L3:
      return "L3";
    default:
      return "?";
  }
}

FilterMgrError GroupTable::Check(const FiltersGroup& group) const {
  const char* const type = GroupTypeName(group.getType());
  if (*type == '?' || group.getStage() != FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS) {
    Log(LogLevel::kError, "filter group %d is refused: it has no valid type or stage",
        group.getId());
    return FILTER_MGR_ERR_INVALID_GROUP;
  }
  for (const auto& [key, held] : groups_) {
    const bool same = key == KeyOf(group);
    if (same == (held.getType() == group.getType())) continue;
    Log(LogLevel::kError, "filter group %d is refused: group %d of stage %d is the %s group",
        group.getId(), held.getId(), held.getStage(), GroupTypeName(held.getType()));
    return FILTER_MGR_ERR_INVALID_GROUP;
  }
  const size_t need = group.getEntriesRef().size();
  const auto accepted = accepted_.find(group.getType());
  if (need > capacity_ && (accepted == accepted_.end() || need > accepted->second)) {
    Log(LogLevel::kError,
        "filter group %d (%s, stage %d) is refused: it needs %zu entries and has room for %u",
        group.getId(), type, group.getStage(), need, capacity_);
    return FILTER_MGR_ERR_CAPACITY;
  }
  return FILTER_MGR_OK;
}

FilterMgrError GroupTable::Create(const FiltersGroup& group) {
  if (groups_.count(KeyOf(group)) != 0) return FILTER_MGR_ERR_EXISTS;
  FilterMgrError result = Check(group);
  if (result != FILTER_MGR_OK) return result;
  result = group.getEntriesRef().empty() ? backend_->Create(group) : backend_->Apply(group);
  if (result == FILTER_MGR_OK) groups_.emplace(KeyOf(group), group);
  return result;
}

FilterMgrError GroupTable::Update(const FiltersGroup& group) {
  FilterMgrError result = Check(group);
  if (result == FILTER_MGR_OK) result = backend_->Apply(group);
  if (result == FILTER_MGR_OK) groups_.insert_or_assign(KeyOf(group), group);
  return result;
}

}  // namespace host
