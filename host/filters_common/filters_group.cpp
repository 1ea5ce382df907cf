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
  // Groups are mostly built in the order of evaluation, which is that of ids: then the place is the
  // end. The rows know the last entry; to find it in the tree would take longer.
  const EntryRows* const rows = getRows();
  const FiltersEntry* const last = rows != nullptr ? rows->last() : nullptr;
  const bool append = rows != nullptr && (last == nullptr || last->getId() < id);
  const bool in_order = append && (last == nullptr || last->getPriority() <= entry.getPriority());
  if (!append && store_->entries.count(id) != 0) return FILTERS_ERR_EXISTS;
  Entries& entries = OwnEntries();
  const auto hint = append ? entries.end() : entries.lower_bound(id);
  const FiltersEntry& stored = SpareNodes::OfThread().Insert(entry, hint, &entries);
  if (in_order && store_->rows.size() + 1 == entries.size()) {
    store_->rows.Add(stored);
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
