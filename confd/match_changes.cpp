// Changes of an entry's matches.
//
// A MAC address and its mask are two leaves but one match: a change of either sets the match anew
// from both, the other one being read from the database.
#include "app/log.h"
#include "confd/confd_manager.h"
#include "confd/scoped_values.h"
#include "yang_tags.h"

namespace acl_app {
namespace {

struct MacPair {
  uint32_t leaf;
  const char* partner;  // path below the container that holds both
  bool leaf_is_mask;
};

const MacPair kMacPairs[] = {
    {yang_tags::kSourceMacAddress, "/source-mac-address-mask", false},
    {yang_tags::kSourceMacAddressMask, "/source-mac-address", true},
    {yang_tags::kDestinationMacAddress, "/destination-mac-address-mask", false},
    {yang_tags::kDestinationMacAddressMask, "/destination-mac-address", true},
};

// The pair that the leaf belongs to, null when it is no MAC leaf.
const MacPair* FindMacPair(int xmltag) {
  for (const MacPair& pair : kMacPairs) {
    if (pair.leaf == static_cast<uint32_t>(xmltag)) return &pair;
  }
  return nullptr;
}

// The path of the container that holds the leaf at `path`. Uses the session's position.
std::string ContainerOf(int sock, const char* path) {
  char container[8192];
  container[0] = '\0';
  cdb_cd(sock, "%s", path);
  cdb_cd(sock, "..");
  cdb_getcwd(sock, sizeof(container), container);
  return container;
}

}  // namespace

confd_iter_ret ConfDManager::HandleMatch(int sock, const confd_hkeypath_t* kp, confd_iter_op op,
                                         const confd_value_t* newv) {
  std::string name;
  int prio = 0;
  if (GetAclNameFromKeypath(kp, name) != 0 || GetEntryPrioFromKeypath(kp, prio) != 0) {
    AclLog::SendDebug("%s - error parsing ACL keys", __func__);
    return ITER_CONTINUE;
  }
  aclFiltersMatch_t kind = ACL_MATCH_UNKNOWN;
  if (GetMatchTypeFromKeypath(kp, kind) != 0) {
    AclLog::SendDebug("%s - wrong keypath", __func__);
    return ITER_CONTINUE;
  }
  char path[8192];
  path[0] = '\0';
  confd_pp_kpath(path, sizeof(path), kp);
  int xmltag = 0;
  if (GetMatchXmltagFromKeypath(kp, xmltag) != 0) {
    AclLog::SendDebug("%s - error getting XML Tag", __func__);
    return ITER_CONTINUE;
  }

  const std::string container = ContainerOf(sock, path);
  const confd_value_t* value1 = newv;
  const confd_value_t* value2 = nullptr;
  ScopedValue partner;
  const MacPair* pair = FindMacPair(xmltag);
  if (pair != nullptr) {
    const std::string partner_path = container + pair->partner;
    if (cdb_exists(sock, "%s", partner_path.c_str()) == 1) {
      if (partner.Read(sock, partner_path) != CONFD_OK) {
        AclLog::SendDebug("%s - error getting value from %s", __func__, partner_path.c_str());
        return ITER_CONTINUE;
      }
      value1 = pair->leaf_is_mask ? partner.get() : newv;
      value2 = pair->leaf_is_mask ? newv : partner.get();
    }
  }

  switch (op) {
    case MOP_DELETED:
      AclLog::SendDebug("%s - removing match from entry %d from ACL profile %s", __func__, prio,
                        name.c_str());
      if (filter_->RemoveMatch(name, prio, kind) != ACL_OK) {
        AclLog::SendDebug("%s - error removing match", __func__);
        return ITER_CONTINUE;
      }
      // Without its mask the address goes on to match; without the address the mask does not.
      if (pair != nullptr && pair->leaf_is_mask && value1 != nullptr &&
          filter_->CreateMatch(name, prio, kind, value1, nullptr) != ACL_OK) {
        AclLog::SendDebug("%s - error recreating match after remove it", __func__);
        return ITER_CONTINUE;
      }
      return ITER_RECURSE;
    case MOP_CREATED:
    case MOP_MODIFIED:
    case MOP_VALUE_SET:
      AclLog::SendDebug("%s - setting match on entry %d on ACL profile %s", __func__, prio,
                        name.c_str());
      if (filter_->RemoveMatch(name, prio, kind) != ACL_OK) {
        AclLog::SendDebug("%s - error removing match before recreate it", __func__);
        return ITER_CONTINUE;
      }
      if (filter_->CreateMatch(name, prio, kind, value1, value2) != ACL_OK) {
        AclLog::SendDebug("%s - error creating match", __func__);
        return ITER_CONTINUE;
      }
      return ITER_RECURSE;
    default:
      AclLog::SendDebug("%s - nothing to do (operation %d)", __func__, op);
      return ITER_RECURSE;
  }
}

}  // namespace acl_app
