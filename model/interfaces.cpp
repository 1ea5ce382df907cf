// Interfaces and the profiles bound to them.
#include "model/acl_cache.h"

namespace acl_app {

aclErr_t AclCache::CreateInterface(const std::string& ifName) {
  return interfaces_.emplace(ifName, std::set<std::string>()).second ? ACL_OK : ACL_ERR_EXISTS;
}

aclErr_t AclCache::RemoveInterface(const std::string& ifName) {
  interfaces_.erase(ifName);
  return ACL_OK;
}

aclErr_t AclCache::ClearAclsFromInterface(const std::string& ifName) {
  auto interface = interfaces_.find(ifName);
  if (interface == interfaces_.end()) return ACL_ERR_NOT_FOUND;
  interface->second.clear();
  return ACL_OK;
}

aclErr_t AclCache::AddAclIntoInterface(const std::string& ifName, const std::string& aclName) {
  auto interface = interfaces_.find(ifName);
  if (interface == interfaces_.end()) return ACL_ERR_NOT_FOUND;
  interface->second.insert(aclName);
  return ACL_OK;
}

aclErr_t AclCache::RemoveAclFromInterface(const std::string& ifName, const std::string& aclName) {
  auto interface = interfaces_.find(ifName);
  if (interface == interfaces_.end()) return ACL_ERR_NOT_FOUND;
  interface->second.erase(aclName);
  return ACL_OK;
}

}  // namespace acl_app
