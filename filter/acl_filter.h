// The access control lists together with the Filter Manager that enforces them.
#ifndef FILTER_ACL_FILTER_H_
#define FILTER_ACL_FILTER_H_

#include "model/acl_cache.h"
#include "platform/filter_mgr/filter_mgr_client.h"

namespace acl_app {

class AclFilter : public AclCache {
 public:
  // Creates the two (empty) groups on the Filter Manager. A refusal is logged and tolerated: later
  // submissions still update both groups. A null client ends the process. The client is not owned
  // and must outlive every submission.
  explicit AclFilter(FilterMgrClientApi::FilterMgrClient* client);

  // Merges the model and updates both groups, L2 first; the first failure ends it.
  // 0, what the merge returns, or ACL_ERR_FILTER_MGR.
  virtual aclErr_t SubmitConfiguration();

 private:
  FilterMgrClientApi::FilterMgrClient* filter_mgr_client_;
};

}  // namespace acl_app

#endif  // FILTER_ACL_FILTER_H_
