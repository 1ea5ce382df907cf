#include "host/filter_mgr/group_table.h"

#include <algorithm>

#include "host/runtime/middleware.h"

namespace host {
namespace {

using FiltersCommon::FiltersGroup;

GroupTable::Key KeyOf(const FiltersGroup& group) { return {group.getStage(), group.getId()}; }
GroupTable::Key KeyOf(const SentGroup& group) { return KeyOf(group.content()); }

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
  for (const Groups* const groups : {&groups_, &pending_, &prepared_}) {
    for (const auto& [key, held] : *groups) {
      const bool same = key == KeyOf(group);
      if (same == (held->getType() == group.getType())) continue;
      Log(LogLevel::kError, "filter group %d is refused: group %d of stage %d is the %s group",
          group.getId(), held->getId(), held->getStage(), GroupTypeName(held->getType()));
      return FILTER_MGR_ERR_INVALID_GROUP;
    }
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

FilterMgrError GroupTable::Create(const SentGroup& group) {
  if (groups_.count(KeyOf(group)) != 0) return FILTER_MGR_ERR_EXISTS;
  if (!group->getEntriesRef().empty()) {
    const std::optional<Standing> waits = Update(group);
    const Standing standing = waits ? *waits : *Finish();
    return static_cast<FilterMgrError>(standing.error);
  }
  const FilterMgrError result = Check(group.content());
  if (result == FILTER_MGR_OK) {
    groups_.emplace(KeyOf(group), group);
    ++generation_;
  }
  return result;
}

std::optional<Standing> GroupTable::Update(const SentGroup& group) {
  FilterMgrError result = Check(group.content());
  if (result == FILTER_MGR_OK) result = backend_->Prepare(group);
  if (result != FILTER_MGR_OK) return Refuse(result);
  prepared_.insert_or_assign(KeyOf(group), group);
  if (SlotOf(group->getType()) != kSlots.back()) return std::nullopt;
  return Publish();
}

bool GroupTable::refused_into_nothing() const {
  const auto empty = [](const auto& group) { return group.second->getEntriesRef().empty(); };
  return refused_ && pending_.empty() && std::all_of(groups_.begin(), groups_.end(), empty);
}

std::optional<Standing> GroupTable::Finish() {
  if (prepared_.empty()) return std::nullopt;
  return Publish();
}

Standing GroupTable::Refuse(FilterMgrError error) {
  backend_->Discard();
  prepared_.clear();
  refused_ = true;
  // What is held back was prepared, too.
  if (!hold_.empty()) {
    for (const auto& [key, group] : pending_) backend_->Prepare(group);
  }
  return {Standing::kRefused, error, FilterMgrErrorText(error)};
}

Standing GroupTable::Publish() {
  Standing standing =
      hold_.empty() ? backend_->Publish() : Standing{Standing::kPending, FILTER_MGR_OK, hold_};
  Note(standing);
  return standing;
}

std::optional<Standing> GroupTable::Release() {
  hold_.clear();
  if (pending_.empty() && prepared_.empty()) return std::nullopt;
  const bool newer_refused = refused_ && prepared_.empty();
  const Standing standing = Publish();
  refused_ = refused_ || newer_refused;
  if (!standing.taken()) pending_.clear();
  return standing;
}

bool GroupTable::Poll(std::optional<Standing>* changed) {
  const Standing before = backend_->standing();
  const bool done = backend_->Poll();
  const Standing& now = backend_->standing();
  if (now == before) return done;
  Groups waiting = std::move(prepared_);
  prepared_.clear();
  const bool newer_refused = refused_;  // what comes into force now was sent before
  Note(now);
  refused_ = refused_ || newer_refused;
  if (!now.taken()) pending_.clear();
  prepared_ = std::move(waiting);
  *changed = now;
  return done;
}

void GroupTable::Note(const Standing& standing) {
  Groups& to = standing.state == Standing::kPending ? pending_ : groups_;
  refused_ = !standing.taken();
  if (standing.taken()) {
    if (&to == &groups_) {
      prepared_.merge(pending_);
      ++generation_;
    }
    for (auto& [key, group] : prepared_) to.insert_or_assign(key, std::move(group));
  }
  if (standing.taken() && &to == &groups_) {
    pending_.clear();
    for (const auto& [key, group] : groups_) {
      levels_.at(SlotOf(group->getType())).Note(group->getEntriesRef().size());
    }
  }
  prepared_.clear();
}

}  // namespace host
