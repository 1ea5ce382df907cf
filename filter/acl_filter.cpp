#include "filter/acl_filter.h"

#include <cstdlib>
#include <list>

#include "app/fault.h"
#include "app/log.h"

namespace acl_app {
namespace {

const char kMergeFailed[] = "%s: error merging profiles and interfaces (aclErr %d)";

}  // namespace

AclFilter::AclFilter(FilterMgrClientApi::FilterMgrClient* client) : filter_mgr_client_(client) {
  if (client == nullptr) {
    RaiseFatalFault("AclFilter", "filter", __LINE__,
                    "failed to initialize AclFilter - invalid Filter Manager Client");
  }
  std::list<FiltersCommon::FiltersGroup> groups;
  const aclErr_t merged = MergeFilterEnvironment(groups);
  if (merged != ACL_OK) AclLog::SendDebug(kMergeFailed, "AclFilter", merged);
  for (const FiltersCommon::FiltersGroup& group : groups) {
    const int error = filter_mgr_client_->createGroup(group);
    if (error != 0) {
      AclLog::SendDebug("%s: error creating group %d of stage %d on Filter Manager (filtMgrErr %d)",
                        "AclFilter", group.getId(), group.getStage(), error);
    }
  }
}

aclErr_t AclFilter::SubmitConfiguration() {
  std::list<FiltersCommon::FiltersGroup> groups;
  const aclErr_t merged = MergeFilterEnvironment(groups);
  if (merged != ACL_OK) {
    AclLog::SendDebug(kMergeFailed, "SubmitConfiguration", merged);
    return merged;
  }
  for (const FiltersCommon::FiltersGroup& group : groups) {
    const int error = filter_mgr_client_->updateGroup(group);
    if (error != 0) {
      AclLog::SendDebug("%s: error updating group %d of stage %d on Filter Manager (filtMgrErr %d)",
                        "SubmitConfiguration", group.getId(), group.getStage(), error);
      return ACL_ERR_FILTER_MGR;
    }
  }
  return ACL_OK;
}

}  // namespace acl_app
