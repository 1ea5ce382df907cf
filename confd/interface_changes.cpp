// Changes of interfaces and of what is bound to them.
#include "app/log.h"
#include "confd/confd_manager.h"
#include "model/value_check.h"
#include "yang_tags.h"

namespace acl_app {
namespace {

const char kSource[] = "confd_manager";  // under which wrong keys are reported

}  // namespace

confd_iter_ret ConfDManager::AclInterfacesDiffIt(confd_hkeypath_t* kp, confd_iter_op op,
                                                 confd_value_t* /*oldv*/, confd_value_t* newv) {
  const QzConfdCdbSession session(Interface());
  uint32_t tag = 0;
  if (!BeginChange(__func__, session.Socket(), kp, &tag)) return ITER_STOP;

  if (tag == yang_tags::kInterface) return HandleInterface(kp, op);
  if (tag == yang_tags::kIngress) return HandleInterfaceAcl(kp, op, newv);
  AclLog::SendDebug("%s - nothing to do (xmltag %d)", __func__, static_cast<int>(tag));
  return ITER_RECURSE;
}

confd_iter_ret ConfDManager::HandleInterface(const confd_hkeypath_t* kp, confd_iter_op op) {
  std::string name;
  if (GetInterfaceNameFromKeypath(kp, name) != 0) {
    AclLog::SendDebug("%s - error parsing interface name", __func__);
    return ITER_RECURSE;
  }
  switch (op) {
    case MOP_CREATED: {
      AclLog::SendDebug("%s - creating interface %s", __func__, name.c_str());
      const aclErr_t rc = filter_->CreateInterface(name);
      if (rc == ACL_OK || rc == ACL_ERR_EXISTS) return ITER_RECURSE;
      AclLog::SendDebug("%s - error creating interface %s", __func__, name.c_str());
      return ITER_CONTINUE;
    }
    case MOP_DELETED:
      AclLog::SendDebug("%s - removing interface %s", __func__, name.c_str());
      return filter_->RemoveInterface(name) == ACL_OK ? ITER_RECURSE : ITER_CONTINUE;
    default:
      AclLog::SendDebug("%s - nothing to do (operation %d)", __func__, op);
      return ITER_RECURSE;
  }
}

confd_iter_ret ConfDManager::HandleInterfaceAcl(const confd_hkeypath_t* kp, confd_iter_op op,
                                                const confd_value_t* /*newv*/) {
  std::string name;
  if (GetInterfaceNameFromKeypath(kp, name) != 0) {
    AclLog::SendDebug("%s - error parsing interface name", __func__);
    return ITER_CONTINUE;
  }
  ACL_ASSERT_VALUE_TYPE(&kp->v[0][0], C_BUF, kSource);
  const std::string profile(reinterpret_cast<const char*>(kp->v[0][0].val.buf.ptr));
  if (op == MOP_CREATED) {
    if (filter_->AddAclIntoInterface(name, profile) != ACL_OK) {
      AclLog::SendDebug("%s - error adding ACL %s into interface %s", __func__, profile.c_str(),
                        name.c_str());
      return ITER_CONTINUE;
    }
    AclLog::SendDebug("%s - adding ACL %s into interface %s", __func__, profile.c_str(),
                      name.c_str());
    return ITER_RECURSE;
  }
  if (op == MOP_DELETED) {
    if (filter_->RemoveAclFromInterface(name, profile) != ACL_OK) {
      AclLog::SendDebug("%s - error removing ACL %s from interface %s", __func__, profile.c_str(),
                        name.c_str());
      return ITER_CONTINUE;
    }
    AclLog::SendDebug("%s - removing ACL %s from interface %s", __func__, profile.c_str(),
                      name.c_str());
  }
  // Written after a removal as well: who reads these logs has always had both lines.
  AclLog::SendDebug("%s - nothing to do (operation %d)", __func__, op);
  return ITER_RECURSE;
}

}  // namespace acl_app
