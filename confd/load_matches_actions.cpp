// Initial load of an entry's matches and actions.
#include "app/log.h"
#include "confd/confd_manager.h"
#include "confd/scoped_values.h"

namespace acl_app {
namespace {

// Match leaves below "match/", each with the leaf of its mask or an empty string. They are visited
// in this (byte-wise) order: of two leaves of one kind the first one counts.
const std::map<std::string, std::string>& MatchLeaves() {
  static const std::map<std::string, std::string> leaves = {
      {"destination-ipv4-address/mask/ip", ""},
      {"destination-ipv4-address/no-mask/ip", ""},
      {"destination-mac-address", "destination-mac-address-mask"},
      {"destination-port", ""},
      {"dscp", ""},
      {"ethertype", ""},
      {"ip-protocol", ""},
      {"pcp", ""},
      {"source-ipv4-address/mask/ip", ""},
      {"source-ipv4-address/no-mask/ip", ""},
      {"source-mac-address", "source-mac-address-mask"},
      {"tos", ""},
      {"vlan", ""},
  };
  return leaves;
}

// Reads one value. Returns the result of cdb_get(), a failure logged.
int ReadValue(int sock, const std::string& path, ScopedValue* value) {
  const int rc = value->Read(sock, path);
  if (rc != CONFD_OK) AclLog::SendDebug("Error getting value from %s", path.c_str());
  return rc;
}

}  // namespace

// The status of the last leaf that exists: a leaf that fails is logged and skipped, and a later one
// that succeeds makes the whole a success.
int ConfDManager::LoadConfdMatches(int sock, const char* aclName, int entryPrio,
                                   const std::string& entryPath) {
  const std::string base = entryPath + "match/";
  int status = 0;
  for (const auto& [leaf, mask_leaf] : MatchLeaves()) {
    const std::string path = base + leaf;
    // An error counts as present here: the next step then fails and is logged.
    if (cdb_exists(sock, "%s", path.c_str()) == 0) continue;
    status = cdb_cd(sock, "%s", path.c_str());
    if (status != CONFD_OK) {
      AclLog::SendDebug("Error entering in path %s", path.c_str());
      continue;
    }
    ScopedKeypath keypath;
    status = keypath.Read(sock);
    if (status != CONFD_OK) {
      AclLog::SendDebug("Error getting keypath of %s", path.c_str());
      continue;
    }
    aclFiltersMatch_t kind = ACL_MATCH_UNKNOWN;
    status = GetMatchTypeFromKeypath(keypath.get(), kind);
    if (status != 0) {
      AclLog::SendDebug("Error getting match type from path %s", path.c_str());
      continue;
    }
    ScopedValue value;
    status = ReadValue(sock, path, &value);
    if (status != CONFD_OK) continue;
    ScopedValue mask;
    const std::string mask_path = base + mask_leaf;
    if (!mask_leaf.empty() && cdb_exists(sock, "%s", mask_path.c_str()) != 0) {
      status = ReadValue(sock, mask_path, &mask);
      if (status != CONFD_OK) continue;
    }
    status = filter_->CreateMatch(aclName, entryPrio, kind, value.get(), mask.get());
    if (status == ACL_OK) {
      AclLog::SendDebug("Match %s created on entry %d of ACL profile %s", leaf.c_str(), entryPrio,
                        aclName);
    } else {
      AclLog::SendDebug("Error creating match %s", leaf.c_str());
    }
  }
  return status;
}

// The result of set-PCP when that is configured, otherwise that of deny or permit, or 0.
int ConfDManager::LoadConfdActions(int sock, const char* aclName, int entryPrio,
                                   const std::string& entryPath) {
  const std::string base = entryPath + "action/";
  // An error counts as absent here.
  const auto exists = [&](const char* leaf) {
    return cdb_exists(sock, "%s", (base + leaf).c_str()) == 1;
  };
  int result = 0;
  if (exists("packet-handling/deny")) {
    result = filter_->CreateAction(aclName, entryPrio, FiltersCommon::FILTERS_ACTION_DENY, nullptr);
    AclLog::SendDebug(result == ACL_OK
                          ? "Action Deny created on entry %d of ACL profile %s"
                          : "Error creating action Deny created on entry %d of ACL profile %s",
                      entryPrio, aclName);
  } else if (exists("packet-handling/permit")) {
    result =
        filter_->CreateAction(aclName, entryPrio, FiltersCommon::FILTERS_ACTION_PERMIT, nullptr);
    AclLog::SendDebug(result == ACL_OK
                          ? "Action Permit created on entry %d of ACL profile %s"
                          : "Error creating action Permit created on entry %d of ACL profile %s",
                      entryPrio, aclName);
  }
  if (!exists("set/pcp")) return result;

  ScopedValue pcp;
  result = pcp.Read(sock, base + "set/pcp");
  if (result != CONFD_OK) {
    AclLog::SendDebug(
        "Error getting value from Action Set PCP created on entry %d of ACL profile %s", entryPrio,
        aclName);
    return result;
  }
  result = filter_->CreateAction(aclName, entryPrio,
                                 FiltersCommon::FILTERS_ACTION_SET_PCP_AND_QUEUE, pcp.get());
  AclLog::SendDebug(result == ACL_OK
                        ? "Action Set PCP created on entry %d of ACL profile %s"
                        : "Error creating action Set PCP on entry %d of ACL profile %s",
                    entryPrio, aclName);
  return result;
}

}  // namespace acl_app
