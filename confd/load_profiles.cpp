// Initial load of profiles and their entries.
//
// A profile that cannot be loaded is skipped and the load goes on with the next one; an entry that
// cannot be loaded ends the loading of its profile's entries. What is in the model already stays.
#include <cstdlib>
#include <list>
#include <sstream>

#include "app/log.h"
#include "confd/confd_manager.h"

namespace acl_app {
namespace {

// A profile as the database has it.
struct StoredProfile {
  std::shared_ptr<char> name;  // a buffer of the database's, NUL-terminated
  int type = 0;
  int priority = 0;
};

// Where the priority of a profile of this type is, below the profile; null for an unknown type.
const char* PriorityLeaf(int type) {
  switch (type) {
    case kAclTypeL2:
      return "/acl-priority-l2/priority";
    case kAclTypeL3:
      return "/acl-priority-l3/priority";
    default:
      return nullptr;
  }
}

// Path of a list entry by its position.
std::string InstancePath(const std::string& list, int index, const char* end) {
  std::ostringstream path;
  path << list << "[" << index << end;
  return path.str();
}

// Reads name, type and priority of the profile at `path`. False, and logged, when one is missing.
bool ReadProfile(int sock, const std::string& path, StoredProfile* profile) {
  unsigned char* buffer = nullptr;
  int length = 0;
  if (cdb_get_buf(sock, &buffer, &length, "%s", (path + "/acl-name").c_str()) != CONFD_OK) {
    AclLog::SendDebug("Error getting ACL profile name");
    return false;
  }
  profile->name.reset(reinterpret_cast<char*>(buffer), std::free);
  const char* name = profile->name.get();

  if (cdb_get_enum_value(sock, &profile->type, "%s", (path + "/acl-type").c_str()) != CONFD_OK) {
    AclLog::SendDebug("Error type of ACL profile %s", name);
    return false;
  }
  const char* priority_leaf = PriorityLeaf(profile->type);
  if (priority_leaf == nullptr) {
    AclLog::SendDebug("Unknown type of ACL profile %s", name);
    return false;
  }
  if (cdb_get_int32(sock, &profile->priority, "%s", (path + priority_leaf).c_str()) != CONFD_OK) {
    AclLog::SendDebug("Error getting priority of ACL profile %s", name);
    return false;
  }
  return true;
}

// Puts the profile into the model, without entries. False, and logged, when the model refuses.
bool CreateProfile(AclFilter* filter, const StoredProfile& profile) {
  const char* name = profile.name.get();
  if (filter->CreateAclProfile(profile.type, name) != ACL_OK) {
    AclLog::SendDebug("Error creating ACL profile %s", name);
    return false;
  }
  if (filter->SetAclPrio(name, profile.priority) != ACL_OK) {
    AclLog::SendDebug("Error setting priority %d to ACL profile %s", profile.priority, name);
    return false;
  }
  AclLog::SendDebug("ACL profile %s created", name);
  return true;
}

}  // namespace

// 0 when every profile was loaded whole, -1 otherwise.
int ConfDManager::LoadAclProfiles(int sock) {
  int result = 0;
  const std::list<std::string> lists = {"/config/access-list/acl-profile/ingress/access-list/"};
  for (const std::string& list : lists) {
    if (cdb_exists(sock, "%s", list.c_str()) == 0) continue;
    const int count = cdb_num_instances(sock, "%s", list.c_str());
    if (count < 0) {
      AclLog::SendDebug("Failed getting number of ACL instances from ConfD database (error %d) ",
                        count);
      result = -1;
      continue;
    }
    for (int i = 0; i < count; ++i) {
      const std::string path = InstancePath(list, i, "]");
      StoredProfile profile;
      if (!ReadProfile(sock, path, &profile) || !CreateProfile(filter_.get(), profile)) {
        result = -1;
        continue;
      }
      if (LoadConfdAce(sock, profile.name.get(), path + "/access-list-entry") != 0) {
        AclLog::SendDebug("ACEs were not set correctly at database");
        result = -1;
      }
    }
  }
  return result;
}

// 0, or the first failing code. A failed count of the entries loads as none.
int ConfDManager::LoadConfdAce(int sock, const char* aclName, std::string entriesPath) {
  constexpr int kTimeoutSeconds = 10;
  const int count = cdb_num_instances(sock, "%s", entriesPath.c_str());
  int priority = 0;
  for (int i = 0; i < count; ++i) {
    const std::string path = InstancePath(entriesPath, i, "]/");
    cdb_set_timeout(sock, kTimeoutSeconds);
    // A failed read keeps the last priority, 0 for the first entry; the model refuses it when there
    // is such an entry.
    cdb_get_int32(sock, &priority, "%s", (path + "ace-priority").c_str());
    int rc = filter_->CreateEntry(aclName, priority);
    if (rc != ACL_OK) {
      AclLog::SendDebug("Error creating entry %d on ACL profile %s", priority, aclName);
      return rc;
    }
    AclLog::SendDebug("Entry %d created on ACL profile %s", priority, aclName);
    rc = LoadConfdMatches(sock, aclName, priority, path);
    if (rc != 0) {
      AclLog::SendDebug("Matches were not set correctly at database");
      return rc;
    }
    rc = LoadConfdActions(sock, aclName, priority, path);
    if (rc != 0) {
      AclLog::SendDebug("Actions were not set correctly at database");
      return rc;
    }
  }
  return 0;
}

}  // namespace acl_app
