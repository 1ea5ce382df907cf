// Profiles and their entries.
#include "model/acl_cache.h"

namespace acl_app {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::FiltersGroup;

// The id that a configured priority of a profile or an entry stands for.
unsigned short ToId(int prio) { return static_cast<unsigned short>(prio); }

FiltersGroup BasicGroup(unsigned short id, FiltersCommon::filtersGroupType_t type) {
  FiltersGroup group(id);
  group.setPriority(id);
  group.setStage(FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS);
  group.setType(type);
  return group;
}

}  // namespace

FiltersCommon::filtersGroupType_t AclCache::ConfdType2FilterCommon(int type) const {
  switch (type) {
    case kAclTypeL2:
      return FiltersCommon::FILTERS_GROUP_TYPE_L2;
    case kAclTypeL3:
      return FiltersCommon::FILTERS_GROUP_TYPE_L3;
    default:
      return FiltersCommon::FILTERS_GROUP_TYPE_NONE;
  }
}

FiltersGroup AclCache::CreateBasicL2Group() const {
  return BasicGroup(0, FiltersCommon::FILTERS_GROUP_TYPE_L2);
}

FiltersGroup AclCache::CreateBasicL3Group() const {
  return BasicGroup(1, FiltersCommon::FILTERS_GROUP_TYPE_L3);
}

aclErr_t AclCache::CreateAclProfile(int type, const std::string& name) {
  if (name.empty()) return ACL_ERR_INVALID_ARG;
  if (acl_profiles_.count(name) != 0 || pre_created_profiles_.count(name) != 0) {
    return ACL_ERR_EXISTS;
  }
  pre_created_profiles_.emplace(name, PreCreatedProfile{ConfdType2FilterCommon(type), {}});
  return ACL_OK;
}

aclErr_t AclCache::RemoveAclProfile(const std::string& name) {
  acl_profiles_.erase(name);
  pre_created_profiles_.erase(name);
  return ACL_OK;
}

aclErr_t AclCache::SetAclPrio(const std::string& name, int prio) {
  if (acl_profiles_.count(name) != 0) return ACL_ERR_PRIO_SET;
  auto pre_created = pre_created_profiles_.find(name);
  if (pre_created == pre_created_profiles_.end()) return ACL_ERR_NOT_FOUND;

  const PreCreatedProfile& profile = pre_created->second;
  FiltersGroup group(ToId(prio));
  group.setPriority(ToId(prio));
  if (group.setStage(FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS) != 0) return ACL_ERR_FILTERS;
  if (group.setType(profile.type) != 0) return ACL_ERR_FILTERS;
  for (const auto& [id, entry] : profile.entries) {
    if (group.insertEntry(entry) != 0) return ACL_ERR_FILTERS;
  }
  acl_profiles_.emplace(name, std::move(group));
  pre_created_profiles_.erase(pre_created);
  return ACL_OK;
}

aclErr_t AclCache::CreateEntry(const std::string& name, int entryPrio) {
  const FiltersEntry entry(ToId(entryPrio));
  auto pre_created = pre_created_profiles_.find(name);
  if (pre_created != pre_created_profiles_.end()) {
    const bool inserted = pre_created->second.entries.emplace(entry.getId(), entry).second;
    return inserted ? ACL_OK : ACL_ERR_EXISTS;
  }
  auto profile = acl_profiles_.find(name);
  if (profile == acl_profiles_.end()) return ACL_ERR_NOT_FOUND;
  FiltersGroup& group = profile->second;
  if (group.getEntriesRef().count(entry.getId()) != 0) return ACL_ERR_EXISTS;
  return group.insertEntry(entry) == 0 ? ACL_OK : ACL_ERR_FILTERS;
}

aclErr_t AclCache::RemoveEntry(const std::string& name, int entryPrio) {
  auto pre_created = pre_created_profiles_.find(name);
  if (pre_created != pre_created_profiles_.end()) {
    pre_created->second.entries.erase(ToId(entryPrio));
  }
  auto profile = acl_profiles_.find(name);
  if (profile != acl_profiles_.end() && profile->second.removeEntry(ToId(entryPrio)) != 0) {
    return ACL_ERR_FILTERS;
  }
  return ACL_OK;
}

aclErr_t AclCache::GetEntriesMap(const std::string& name,
                                 std::map<unsigned short, FiltersEntry>& out) {
  auto pre_created = pre_created_profiles_.find(name);
  if (pre_created != pre_created_profiles_.end()) {
    out = pre_created->second.entries;
    return ACL_OK;
  }
  auto profile = acl_profiles_.find(name);
  if (profile == acl_profiles_.end()) return ACL_ERR_NOT_FOUND;
  out = profile->second.getEntries();
  return ACL_OK;
}

aclErr_t AclCache::GetEntry(const std::string& name, int entryPrio,
                            std::shared_ptr<FiltersEntry>& out) {
  const FiltersEntry* entry = FindEntry(name, entryPrio);
  if (entry == nullptr) return ACL_ERR_NOT_FOUND;
  out = std::make_shared<FiltersEntry>(*entry);
  return ACL_OK;
}

const FiltersEntry* AclCache::FindEntry(const std::string& name, int entryPrio) const {
  const std::map<unsigned short, FiltersEntry>* entries = nullptr;
  auto pre_created = pre_created_profiles_.find(name);
  if (pre_created != pre_created_profiles_.end()) {
    entries = &pre_created->second.entries;
  } else {
    auto profile = acl_profiles_.find(name);
    if (profile == acl_profiles_.end()) return nullptr;
    entries = &profile->second.getEntriesRef();
  }
  auto entry = entries->find(ToId(entryPrio));
  return entry == entries->end() ? nullptr : &entry->second;
}

aclErr_t AclCache::Replace(const std::string& name, int entryPrio, const FiltersEntry& changed) {
  FiltersGroup* refusing = nullptr;
  return PutBack(name, entryPrio, changed, &refusing);
}

aclErr_t AclCache::ReplaceOrRestore(const std::string& name, int entryPrio,
                                    const FiltersEntry& changed, const FiltersEntry& backup) {
  FiltersGroup* refusing = nullptr;
  const aclErr_t put = PutBack(name, entryPrio, changed, &refusing);
  if (refusing == nullptr) return put;
  refusing->insertEntry(backup);
  return ACL_ERR_FILTERS;
}

aclErr_t AclCache::PutBack(const std::string& name, int entryPrio, const FiltersEntry& changed,
                           FiltersGroup** refusing) {
  auto pre_created = pre_created_profiles_.find(name);
  auto profile = acl_profiles_.find(name);
  if (pre_created != pre_created_profiles_.end()) {
    auto& entries = pre_created->second.entries;
    entries.erase(ToId(entryPrio));
    entries.emplace(changed.getId(), changed);
    return ACL_OK;
  }
  if (profile == acl_profiles_.end()) return ACL_ERR_NOT_FOUND;
  FiltersGroup& group = profile->second;
  group.removeEntry(ToId(entryPrio));
  if (group.insertEntry(changed) != 0) *refusing = &group;
  return ACL_OK;
}

}  // namespace acl_app
