// The merge: from profiles and bindings to the two filter groups.
//
// It works on copies throughout: what is merged is renumbered and bound to a port, and the profiles
// stay as they are.
#include "model/acl_cache.h"
#include "platform/limid/limid.h"

namespace acl_app {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::FiltersGroup;

// One output group and the use of entries that goes with it.
struct Layer {
  FiltersGroup group;
  ResourceMap used;
};

// Appends copies of a profile's entries to an output group, renumbered and restricted to one port.
aclErr_t AppendEntries(const FiltersGroup& profile,
                       const FiltersCommon::MatchIngressPorts& ingress_port, FiltersGroup* output) {
  for (const auto& [id, entry] : profile.getEntriesRef()) {
    unsigned short new_id = 0;
    unsigned int new_priority = 0;
    if (!output->getEntriesRef().empty()) {
      const FiltersEntry& last = output->getEntriesRef().rbegin()->second;
      new_id = static_cast<unsigned short>(last.getId() + 1);
      new_priority = last.getPriority() + 1;
    }
    FiltersEntry copy(entry);
    copy.setId(new_id);
    copy.setPriority(new_priority);
    copy.setMatch(ingress_port);
    if (output->insertEntry(copy) != 0) return ACL_ERR_FILTERS;
  }
  return ACL_OK;
}

// Appends one bound profile to its layer.
aclErr_t AppendProfile(const std::string& interface, const std::string& name,
                       const FiltersGroup& profile, Layer* l2, Layer* l3) {
  Layer* layer;
  switch (profile.getType()) {
    case FiltersCommon::FILTERS_GROUP_TYPE_L3:
      layer = l3;
      break;
    case FiltersCommon::FILTERS_GROUP_TYPE_L2:
      layer = l2;
      break;
    default:
      return ACL_ERR_INVALID_VALUE;
  }
  layer->used[interface][name] = static_cast<unsigned int>(profile.getEntriesRef().size());
  if (profile.getStage() != layer->group.getStage()) return ACL_ERR_INVALID_VALUE;

  // The result is of no interest: an id that the platform cannot resolve matches no port.
  limid_t port = 0;
  limid_from_intfname(&port, interface.c_str());
  return AppendEntries(profile, FiltersCommon::MatchIngressPorts({port}), &layer->group);
}

}  // namespace

aclErr_t AclCache::GetOrderedProfiles(const std::set<std::string>& names,
                                      OrderedProfiles& ordered) const {
  ordered.clear();
  for (const std::string& name : names) {
    auto profile = acl_profiles_.find(name);
    if (profile == acl_profiles_.end()) return ACL_ERR_NOT_FOUND;
    ordered.try_emplace(profile->second.getPriority(), name, profile->second);
  }
  return ACL_OK;
}

aclErr_t AclCache::MergeFilterEnvironment(std::list<FiltersGroup>& groups) {
  Layer l2{CreateBasicL2Group(), {}};
  Layer l3{CreateBasicL3Group(), {}};
  if (!pre_created_profiles_.empty()) return ACL_ERR_PENDING_PROFILE;

  for (const auto& [interface, names] : interfaces_) {
    OrderedProfiles ordered;
    aclErr_t rc = GetOrderedProfiles(names, ordered);
    if (rc != ACL_OK) return rc;
    for (const auto& [priority, profile] : ordered) {
      rc = AppendProfile(interface, profile.first, profile.second, &l2, &l3);
      if (rc != ACL_OK) return rc;
    }
  }

  groups.clear();
  groups.push_back(l2.group);
  groups.push_back(l3.group);
  used_l2_resources_ = std::move(l2.used);
  used_l3_resources_ = std::move(l3.used);
  return ACL_OK;
}

}  // namespace acl_app
