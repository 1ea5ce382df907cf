#include "platform/filters_common/filters_group.h"

#include "host/filters_common/spare_nodes.h"

namespace FiltersCommon {

FiltersGroup::Store::~Store() { SpareNodes::OfThread().KeepAll(&entries); }

FiltersGroup::FiltersGroup(const unsigned short& id) : id_(id), store_(CountedPtr<Store>::Make()) {}

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
  if (!store_.unique()) store_ = CountedPtr<Store>::Make(*store_);
  return store_->entries;
}

filtersErr_t FiltersGroup::insertEntry(const FiltersEntry& entry) {
  const unsigned short id = entry.getId();
  const Entries& held = store_->entries;
  // Groups are mostly built in ascending order of id: then the place is the end.
  const bool append = held.empty() || held.rbegin()->first < id;
  if (!append && held.count(id) != 0) return FILTERS_ERR_EXISTS;
  const bool last =
      append && (held.empty() || held.rbegin()->second.getPriority() <= entry.getPriority());
  Entries& entries = OwnEntries();
  SpareNodes::OfThread().Insert(entry, append ? entries.end() : entries.lower_bound(id), &entries);
  if (last && store_->rows.size() + 1 == entries.size()) {
    store_->rows.Add(entries.rbegin()->second);
  } else {
    store_->rows = {};
  }
  return FILTERS_OK;
}

filtersErr_t FiltersGroup::removeEntry(const unsigned short& id) {
  if (store_->entries.count(id) == 0) return FILTERS_ERR_NOT_FOUND;
  SpareNodes::OfThread().Keep(OwnEntries().extract(id));
  store_->rows = {};
  return FILTERS_OK;
}

}  // namespace FiltersCommon
