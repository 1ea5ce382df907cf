// Changes of profiles, their priorities, entries and actions.
//
// Every handler applies one change to the model at once. ITER_RECURSE: applied, or nothing to do;
// ITER_CONTINUE: the model refused or a name could not be parsed, the node's children are skipped;
// ITER_STOP: the keypath cannot be used.
#include <algorithm>
#include <iterator>

#include "app/log.h"
#include "confd/confd_manager.h"
#include "model/value_check.h"
#include "yang_tags.h"

namespace acl_app {
namespace {

const char kSource[] = "confd_manager";  // under which wrong values are reported

// Leaves of an entry's match and action containers.
const uint32_t kEntryLeaves[] = {
    yang_tags::kDestinationMacAddress,
    yang_tags::kDestinationMacAddressMask,
    yang_tags::kSourceMacAddress,
    yang_tags::kSourceMacAddressMask,
    yang_tags::kVlan,
    yang_tags::kEthertype,
    yang_tags::kPcp,
    yang_tags::kDscp,
    yang_tags::kTos,
    yang_tags::kIp,
    yang_tags::kIpProtocol,
    yang_tags::kDestinationPort,
    yang_tags::kDeny,
    yang_tags::kPermit,
};

bool IsEntryLeaf(uint32_t tag) {
  return std::find(std::begin(kEntryLeaves), std::end(kEntryLeaves), tag) != std::end(kEntryLeaves);
}

confd_iter_ret ToIterRet(aclErr_t rc) { return rc == ACL_OK ? ITER_RECURSE : ITER_CONTINUE; }

confd_iter_ret NothingToDo(const char* function, confd_iter_op op) {
  AclLog::SendDebug("%s - nothing to do (operation %d)", function, op);
  return ITER_RECURSE;
}

}  // namespace

confd_iter_ret ConfDManager::AclProfilesDiffIt(confd_hkeypath_t* kp, confd_iter_op op,
                                               confd_value_t* /*oldv*/, confd_value_t* newv) {
  const QzConfdCdbSession session(Interface());
  uint32_t tag = 0;
  if (!BeginChange(__func__, session.Socket(), kp, &tag)) return ITER_STOP;

  if (tag == yang_tags::kAccessList) return HandleAcl(kp, op);
  if (tag == yang_tags::kPriority) return HandleAclPrio(kp, op, newv);
  if (tag == yang_tags::kAccessListEntry) return HandleEntry(kp, op);
  if (!IsEntryLeaf(tag)) return ITER_RECURSE;

  const int depth = kp->len - 9;
  if (depth < 0) {
    AclLog::SendDebug("%s - wrong keypath", __func__);
    return ITER_STOP;
  }
  ACL_ASSERT_VALUE_TYPE(&(kp->v[depth][0]), C_XMLTAG, kSource);
  const uint32_t container = kp->v[depth][0].val.xmltag.tag;
  if (container == yang_tags::kMatch) return HandleMatch(session.Socket(), kp, op, newv);
  if (container == yang_tags::kAction) return HandleAction(kp, op, newv);
  AclLog::SendDebug("%s - unknown match or action. cmltag %d", __func__, static_cast<int>(tag));
  return ITER_CONTINUE;
}

confd_iter_ret ConfDManager::HandleAcl(const confd_hkeypath_t* kp, confd_iter_op op) {
  std::string name;
  int type = 0;
  if (GetAclNameFromKeypath(kp, name) != 0 || GetAclTypeFromKeypath(kp, type) != 0) {
    AclLog::SendDebug("%s - error parsing ACL keys", __func__);
    return ITER_CONTINUE;
  }
  switch (op) {
    case MOP_CREATED:
      AclLog::SendDebug("%s - creating ACL profile %s of type %d", __func__, name.c_str(), type);
      return ToIterRet(filter_->CreateAclProfile(type, name));
    case MOP_DELETED:
      AclLog::SendDebug("%s - removing ACL profile %s of type %d", __func__, name.c_str(), type);
      return ToIterRet(filter_->RemoveAclProfile(name));
    default:
      return NothingToDo(__func__, op);
  }
}

confd_iter_ret ConfDManager::HandleAclPrio(const confd_hkeypath_t* kp, confd_iter_op op,
                                           const confd_value_t* newv) {
  std::string name;
  if (GetAclNameFromKeypath(kp, name) != 0) {
    AclLog::SendDebug("%s - error parsing ACL name", __func__);
    return ITER_CONTINUE;
  }
  switch (op) {
    case MOP_DELETED:
      // A priority cannot be taken back, so the profile goes with it.
      AclLog::SendDebug("%s - removing prio of ACL profile %s", __func__, name.c_str());
      return ToIterRet(filter_->RemoveAclProfile(name));
    case MOP_MODIFIED:
    case MOP_VALUE_SET: {
      ACL_ASSERT_VALUE_TYPE(newv, C_INT32, kSource);
      const int prio = newv->val.i32;
      AclLog::SendDebug("%s - setting prio %d on ACL profile %s", __func__, prio, name.c_str());
      return ToIterRet(filter_->SetAclPrio(name, prio));
    }
    default:
      return NothingToDo(__func__, op);
  }
}

confd_iter_ret ConfDManager::HandleEntry(const confd_hkeypath_t* kp, confd_iter_op op) {
  std::string name;
  int prio = 0;
  if (GetAclNameFromKeypath(kp, name) != 0 || GetEntryPrioFromKeypath(kp, prio) != 0) {
    AclLog::SendDebug("%s - error parsing ACL keys", __func__);
    return ITER_CONTINUE;
  }
  switch (op) {
    case MOP_CREATED:
      AclLog::SendDebug("%s - creating entry %d on ACL profile %s", __func__, prio, name.c_str());
      return ToIterRet(filter_->CreateEntry(name, prio));
    case MOP_DELETED:
      AclLog::SendDebug("%s - removing entry %d from ACL profile %s", __func__, prio, name.c_str());
      return ToIterRet(filter_->RemoveEntry(name, prio));
    default:
      return NothingToDo(__func__, op);
  }
}

confd_iter_ret ConfDManager::HandleAction(const confd_hkeypath_t* kp, confd_iter_op op,
                                          const confd_value_t* newv) {
  std::string name;
  int prio = 0;
  if (GetAclNameFromKeypath(kp, name) != 0 || GetEntryPrioFromKeypath(kp, prio) != 0) {
    AclLog::SendDebug("%s - error parsing ACL keys", __func__);
    return ITER_CONTINUE;
  }
  FiltersCommon::filtersAction_t kind;
  if (GetActionTypeFromKeypath(kp, kind) != 0) {
    AclLog::SendDebug("%s - wrong keypath", __func__);
    return ITER_STOP;
  }
  switch (op) {
    case MOP_DELETED:
      AclLog::SendDebug("%s - removing action from entry %d from ACL profile %s", __func__, prio,
                        name.c_str());
      return ToIterRet(filter_->RemoveAction(name, prio, kind));
    case MOP_CREATED:
    case MOP_MODIFIED:
    case MOP_VALUE_SET:
      AclLog::SendDebug("%s - setting action on entry %d on ACL profile %s", __func__, prio,
                        name.c_str());
      if (filter_->RemoveAction(name, prio, kind) != ACL_OK) return ITER_CONTINUE;
      return ToIterRet(filter_->CreateAction(name, prio, kind, newv));
    default:
      return NothingToDo(__func__, op);
  }
}

}  // namespace acl_app
