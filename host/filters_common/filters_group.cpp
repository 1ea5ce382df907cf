#include "platform/filters_common/filters_group.h"

namespace FiltersCommon {

FiltersGroup::FiltersGroup(const unsigned short& id)
    : id_(id), entries_(CountedPtr<Entries>::Make()) {}

filtersErr_t FiltersGroup::setStage(const filtersGroupStage_t& stage) {
  if (stage != FILTERS_GROUP_STAGE_PRE_INGRESS) return FILTERS_ERR_TYPE;
  stage_ = stage;
  return FILTERS_OK;
}

filtersErr_t FiltersGroup::setType(const filtersGroupType_t& type) {
  if (type != FILTERS_GROUP_TYPE_L2 && type != FILTERS_GROUP_TYPE_L3) return FILTERS_ERR_TYPE;
  type_ = type;
  return FILTERS_OK;
}

FiltersGroup::Entries& FiltersGroup::OwnEntries() {
  if (!entries_.unique()) entries_ = CountedPtr<Entries>::Make(*entries_);
  return *entries_;
}

filtersErr_t FiltersGroup::insertEntry(const FiltersEntry& entry) {
  const unsigned short id = entry.getId();
  // Groups are mostly built in ascending order of id: then the place is the end.
  const bool append = entries_->empty() || entries_->rbegin()->first < id;
  if (!append && entries_->count(id) != 0) return FILTERS_ERR_EXISTS;
  Entries& entries = OwnEntries();
  entries.emplace_hint(append ? entries.end() : entries.lower_bound(id), id, entry);
  return FILTERS_OK;
}

filtersErr_t FiltersGroup::removeEntry(const unsigned short& id) {
  if (entries_->count(id) == 0) return FILTERS_ERR_NOT_FOUND;
  OwnEntries().erase(id);
  return FILTERS_OK;
}

}  // namespace FiltersCommon
