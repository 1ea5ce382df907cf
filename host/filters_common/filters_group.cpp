#include "platform/filters_common/filters_group.h"

namespace FiltersCommon {
namespace {

// From so many entries on the others' nodes have an arena.
constexpr size_t kFew = 256;

static_assert(sizeof(void*) != 8 || sizeof(FiltersEntry) == 24, "a node fills a line");

}  // namespace

// Where the rows know all entries, they are in the order of their insertion. So the first ones go
// one by one, the others' shares by the rows; and then nothing of the tree is needed any more.
FiltersGroup::Store::~Store() {
  if (arena == nullptr || rows.size() != entries.size() || entries.size() <= shared) return;
  entries.erase(entries.begin(), entries.find(rows.entry(shared).getId()));
  rows.ReleaseFrom(shared);
  new (&entries) Entries();
}

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
  // (A group that was emptied and is filled anew has its arena already.)
  if (in_order && store_->arena == nullptr && entries.size() == kFew &&
      store_->rows.size() == kFew) {
    store_->arena = std::make_unique<NodeArena>();
    store_->shared = kFew;
  }
  const NodeArena::Use use(store_->arena.get());
  const FiltersEntry& stored = entries.emplace_hint(hint, id, entry)->second;
  if (in_order && store_->rows.size() + 1 == entries.size()) {
    store_->rows.Add(stored);
  } else {
    store_->rows = {};
  }
  return FILTERS_OK;
}

filtersErr_t FiltersGroup::removeEntry(const unsigned short& id) {
  if (store_->entries.count(id) == 0) return FILTERS_ERR_NOT_FOUND;
  OwnEntries().erase(id);
  store_->rows = {};
  return FILTERS_OK;
}

}  // namespace FiltersCommon
