// Actions of an entry.
#include "model/acl_cache.h"
#include "model/entry_lookup.h"
#include "model/value_check.h"

namespace acl_app {

using FiltersCommon::FiltersEntry;

aclErr_t AclCache::CreateAction(const std::string& name, int entryPrio,
                                FiltersCommon::filtersAction_t kind, const confd_value_t* value) {
  std::shared_ptr<FiltersEntry> entry;
  const aclErr_t found = GetEntry(name, entryPrio, entry);
  if (found != ACL_OK) return found;
  if (HasAction(*entry, kind)) return ACL_ERR_EXISTS;

  FiltersCommon::filtersErr_t set;
  if (kind == FiltersCommon::FILTERS_ACTION_DENY) {
    set = entry->setAction(FiltersCommon::ActionDeny());
  } else if (kind == FiltersCommon::FILTERS_ACTION_PERMIT) {
    set = entry->setAction(FiltersCommon::ActionPermit());
  } else if (kind == FiltersCommon::FILTERS_ACTION_SET_PCP_AND_QUEUE && value != nullptr) {
    ACL_ASSERT_VALUE_TYPE(value, C_UINT8, "filter");
    set = entry->setAction(FiltersCommon::ActionSetPcpAndQueue(value->val.u8));
  } else {
    return ACL_ERR_INVALID_ARG;
  }
  if (set != 0) return ACL_ERR_FILTERS;
  return Replace(name, entryPrio, *entry);
}

aclErr_t AclCache::RemoveAction(const std::string& name, int entryPrio,
                                FiltersCommon::filtersAction_t kind) {
  std::shared_ptr<FiltersEntry> entry;
  const aclErr_t found = GetEntry(name, entryPrio, entry);
  if (found != ACL_OK) return found;
  entry->deleteAction(kind);
  return Replace(name, entryPrio, *entry);
}

}  // namespace acl_app
