// Construction, subscriptions, initial load and commit cycle.
#include "confd/confd_manager.h"

#include <cstdio>
#include <cstring>

#include "app/fault.h"
#include "app/log.h"
#include "app/trace.h"
#include "yang_tags.h"

namespace acl_app {
namespace {

using std::placeholders::_1;
using std::placeholders::_2;
using std::placeholders::_3;
using std::placeholders::_4;

const char kProcess[] = "acl_app";  // as the log names it
constexpr int kSubscriptionFlags = 16;

}  // namespace

ConfDManager::ConfDManager(zlog_category_s* log, FilterMgrClientApi::FilterMgrClient* fmc)
    : ConfDManager(log, std::make_shared<AclFilter>(fmc)) {}

ConfDManager::ConfDManager(zlog_category_s* log, std::shared_ptr<AclFilter> filter)
    : last_txid_(), filter_(std::move(filter)), log_(log) {
  if (!filter_) {
    RaiseFatalFault("ConfDManager", "confd_manager", __LINE__, "failed to initialize ACL Filter");
  }
  // Profiles come first: what is bound must be there before it is bound.
  const qzconfd::SubscriptionPoint points[] = {
      {0, yang_tags::kNamespace, "/config/access-list/acl-profile/", kSubscriptionFlags,
       std::bind(&ConfDManager::AclProfilesDiffIt, this, _1, _2, _3, _4)},
      {1, yang_tags::kNamespace, "/config/access-list/interface/", kSubscriptionFlags,
       std::bind(&ConfDManager::AclInterfacesDiffIt, this, _1, _2, _3, _4)},
  };
  for (const qzconfd::SubscriptionPoint& point : points) {
    ACL_TRACE(log_, "Subscribe to %s", point.path);
    subscription_points_.push_back(point);
  }
}

const std::vector<qzconfd::SubscriptionPoint>& ConfDManager::GetSubscriptionPoints() const {
  ACL_TRACE(log_, "Entry Point");
  return subscription_points_;
}

void ConfDManager::LoadInitialConfig(int cdbSocket) {
  ACL_TRACE(log_, "Entry Point");
  ClearAclResources();
  if (IsThereNewCdbConfig(cdbSocket) != 0) {
    AclLog::SendDebug("Received new configuration. Loading config...");
    if (LoadConfdAcl(cdbSocket) != 0) {
      AclLog::SendDebug("Could not load %s from CDB configuration.", kProcess);
      return;
    }
  }
  AclLog::SendDebug("All LoadConfdConfig executed successfully!");
}

void ConfDManager::ApplyInitialConfig() {
  // The load has submitted the configuration already.
  ACL_TRACE(log_, "Entry Point");
}

int ConfDManager::IsThereNewCdbConfig(int cdbSocket) {
  cdb_txid txid = {};
  cdb_get_txid(cdbSocket, &txid);
  if (txid.s1 == last_txid_.s1 && txid.s2 == last_txid_.s2 && txid.s3 == last_txid_.s3 &&
      std::strncmp(txid.primary, last_txid_.primary, sizeof(txid.primary)) == 0) {
    return 0;
  }
  // Recorded before anything is loaded: a load that fails is not tried again for this transaction.
  last_txid_.s1 = txid.s1;
  last_txid_.s2 = txid.s2;
  last_txid_.s3 = txid.s3;
  std::snprintf(last_txid_.primary, sizeof(last_txid_.primary), "%s", txid.primary);
  return 1;
}

int ConfDManager::LoadConfdAcl(int cdbSocket) {
  if (cdb_set_namespace(cdbSocket, yang_tags::kNamespace) != CONFD_OK) {
    AclLog::SendDebug("Cannot set namespace to %s on loadCfg", kProcess);
    return -1;
  }
  int rc = LoadAclProfiles(cdbSocket);
  if (rc != 0) {
    AclLog::SendDebug("Error loading ACL profiles");
    return rc;
  }
  rc = LoadAclInterfaces(cdbSocket);
  if (rc != 0) {
    AclLog::SendDebug("Error loading ACL interfaces");
    return rc;
  }
  rc = filter_->SubmitConfiguration();
  // Published whether or not the submission succeeded: the status tree was cleared before the load.
  UpdateAclResources();
  if (rc != ACL_OK) {
    RaiseFault("LoadConfdAcl", "confd_manager", __LINE__,
               "Filter Manager failed to apply ACL initial configuration");
  }
  return rc;
}

void ConfDManager::StartCommit() {
  ACL_TRACE(log_, "Entry Point");
  changed_ = false;
}

void ConfDManager::ApplyCommitConfig() {
  ACL_TRACE(log_, "Entry Point");
  if (!changed_) return;
  changed_ = false;
  if (filter_->SubmitConfiguration() != ACL_OK) {
    // The model keeps the commit, and the next submission carries it; the status tree shows what
    // was last applied.
    AclLog::SendDebug("%s - could not submit configuration to Filter Manager", "ApplyCommitConfig");
    return;
  }
  AclLog::SendDebug("%s: applied ACL configuration to Filter Manager", "ApplyCommitConfig");
  if (ClearAclResources() == 0) UpdateAclResources();
}

bool ConfDManager::BeginChange(const char* function, int sock, const confd_hkeypath_t* kp,
                               uint32_t* tag) {
  constexpr int kTimeoutSeconds = 5;
  if (cdb_set_timeout(Interface()->CfgSubsSocket(), kTimeoutSeconds) != CONFD_OK ||
      cdb_set_timeout(sock, kTimeoutSeconds) != CONFD_OK) {
    AclLog::SendDebug("%s - error setting timeout (%s)", function, "");
  }
  changed_ = true;
  char path[8192];
  path[0] = '\0';
  confd_pp_kpath(path, sizeof(path), kp);
  AclLog::SendDebug("%s - modified path: %s", function, path);

  confd_value_t node;
  if (GetModifiedNodeFromKeypath(kp, &node) != 0) {
    AclLog::SendDebug("%s - wrong keypath", function);
    return false;
  }
  *tag = node.val.xmltag.tag;
  return true;
}

}  // namespace acl_app
