// The access control lists as configured: profiles with their entries, and what is bound to which
// interface.
//
// A profile lives in two stages. The configuration delivers its name and type first, its priority
// later; the priority is the id of the profile's filter group. So a profile is a PreCreatedProfile
// until SetAclPrio() turns it into a FiltersGroup. Entries can be created in either stage.
//
// Invariants: a name is never in both maps of profiles; entries are keyed by their own id; a failed
// operation leaves the model as it was. An entry is changed by copy: fetched, changed, written
// back.
//
// Operations return a result code and write no log. Names are compared byte by byte. Priorities of
// profiles and entries are cut to their low 16 bits. Used from one thread.
#ifndef MODEL_ACL_CACHE_H_
#define MODEL_ACL_CACHE_H_

#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "model/acl_types.h"
#include "platform/confd/confd_lib.h"
#include "platform/filters_common/filters_entry.h"
#include "platform/filters_common/filters_group.h"

namespace acl_app {

// Number of filter entries by interface, then by profile.
using ResourceMap = std::map<std::string, std::map<std::string, unsigned int>>;
// Profiles by priority: name and group.
using OrderedProfiles =
    std::map<unsigned short, std::pair<std::string, FiltersCommon::FiltersGroup>>;

class AclCache {
 public:
  // `type` is one of kAclTypeL2, kAclTypeL3; an unknown one is stored, and refused when the profile
  // gets its priority.
  // 0, ACL_ERR_INVALID_ARG (empty name), ACL_ERR_EXISTS.
  virtual aclErr_t CreateAclProfile(int type, const std::string& name);
  // Removes the profile in either stage; bindings to it stay. Always 0.
  virtual aclErr_t RemoveAclProfile(const std::string& name);
  // Gives the profile its priority, once.
  // 0, ACL_ERR_PRIO_SET, ACL_ERR_NOT_FOUND, ACL_ERR_FILTERS.
  virtual aclErr_t SetAclPrio(const std::string& name, int prio);

  // 0, ACL_ERR_EXISTS, ACL_ERR_NOT_FOUND, ACL_ERR_FILTERS.
  virtual aclErr_t CreateEntry(const std::string& name, int entryPrio);
  // 0 (also for an unknown profile), or ACL_ERR_FILTERS when a profile with priority has no such
  // entry.
  virtual aclErr_t RemoveEntry(const std::string& name, int entryPrio);

  // Sets a match from its configured value. `value2` is the mask of a MAC address, or null; other
  // kinds ignore it. An unknown kind adds nothing and succeeds.
  // 0, ACL_ERR_INVALID_ARG (no value1), ACL_ERR_NOT_FOUND, ACL_ERR_EXISTS (DSCP and ToS count as
  // one kind), ACL_ERR_INVALID_VALUE, ACL_ERR_FILTERS. A prefix length above 32 throws
  // std::out_of_range.
  virtual aclErr_t CreateMatch(const std::string& name, int entryPrio, aclFiltersMatch_t kind,
                               const confd_value_t* value1, const confd_value_t* value2);
  // Removes a match, if it is there. 0, ACL_ERR_INVALID_ARG (unknown kind), ACL_ERR_NOT_FOUND.
  virtual aclErr_t RemoveMatch(const std::string& name, int entryPrio, aclFiltersMatch_t kind);

  // Sets an action: permit, deny (`value` ignored), or set-PCP, whose value is required.
  // 0, ACL_ERR_NOT_FOUND, ACL_ERR_EXISTS, ACL_ERR_INVALID_ARG, ACL_ERR_FILTERS.
  virtual aclErr_t CreateAction(const std::string& name, int entryPrio,
                                FiltersCommon::filtersAction_t kind, const confd_value_t* value);
  // Removes an action of any kind, if it is there. 0, ACL_ERR_NOT_FOUND.
  virtual aclErr_t RemoveAction(const std::string& name, int entryPrio,
                                FiltersCommon::filtersAction_t kind);

  // 0, ACL_ERR_EXISTS (its bindings stay).
  virtual aclErr_t CreateInterface(const std::string& ifName);
  // Removes the interface and its bindings. Always 0.
  virtual aclErr_t RemoveInterface(const std::string& ifName);
  // The binding operations: 0 or ACL_ERR_NOT_FOUND (no such interface). The profile is not checked.
  virtual aclErr_t ClearAclsFromInterface(const std::string& ifName);
  virtual aclErr_t AddAclIntoInterface(const std::string& ifName, const std::string& aclName);
  virtual aclErr_t RemoveAclFromInterface(const std::string& ifName, const std::string& aclName);

  // Builds the two filter groups, L2 then L3, from all bound profiles. Entries are in the order of
  // interface name, profile priority, entry id; each is restricted to its interface's port, and
  // ids and priorities run from 0 without gaps. On failure `groups` and the resource counts stay.
  // 0, ACL_ERR_PENDING_PROFILE, ACL_ERR_NOT_FOUND, ACL_ERR_INVALID_VALUE, ACL_ERR_FILTERS.
  virtual aclErr_t MergeFilterEnvironment(std::list<FiltersCommon::FiltersGroup>& groups);

  // What the last successful merge used. Interfaces without bindings have no key.
  virtual const ResourceMap& getUsedL2Resources() const { return used_l2_resources_; }
  virtual const ResourceMap& getUsedL3Resources() const { return used_l3_resources_; }

  // Copies a profile's entries. 0, ACL_ERR_NOT_FOUND (`out` stays).
  aclErr_t GetEntriesMap(const std::string& name,
                         std::map<unsigned short, FiltersCommon::FiltersEntry>& out);
  // Copies one entry; the copy is detached from the model. 0, ACL_ERR_NOT_FOUND.
  aclErr_t GetEntry(const std::string& name, int entryPrio,
                    std::shared_ptr<FiltersCommon::FiltersEntry>& out);
  // The empty groups that every merge starts from.
  FiltersCommon::FiltersGroup CreateBasicL2Group() const;
  FiltersCommon::FiltersGroup CreateBasicL3Group() const;
  // Orders profiles by priority. Of two with the same priority the one whose name sorts first is
  // kept. 0, or ACL_ERR_NOT_FOUND at the first name that is no profile with priority.
  aclErr_t GetOrderedProfiles(const std::set<std::string>& names, OrderedProfiles& ordered) const;
  // The group type of a profile type; FILTERS_GROUP_TYPE_NONE when there is none.
  FiltersCommon::filtersGroupType_t ConfdType2FilterCommon(int type) const;

  // Address and netmask of an IPv4 value, in network byte order. 0 or ACL_ERR_INVALID_VALUE; a
  // value without prefix length has no mask. A length above 32 throws std::out_of_range.
  aclErr_t GetIpv4Addr(const confd_value_t& value, in_addr& out) const;
  aclErr_t GetIpv4Mask(const confd_value_t& value, in_addr& out) const;

  // Converters, one per kind of match: turn a configured value into a match and set it on `entry`.
  // 0 or ACL_ERR_FILTERS, for IPv4 also ACL_ERR_INVALID_VALUE. A value of another type than the
  // schema gives ends the process. No range is checked here.
  using EntryPtr = std::shared_ptr<FiltersCommon::FiltersEntry>;
  aclErr_t CreateMatchDstMac(EntryPtr entry, const confd_value_t* value1,
                             const confd_value_t* value2);
  aclErr_t CreateMatchSrcMac(EntryPtr entry, const confd_value_t* value1,
                             const confd_value_t* value2);
  aclErr_t CreateMatchExternalVlanId(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchTpid(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchPcp(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchDscp(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchToS(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchSrcIpv4(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchDstIpv4(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchIpProtocol(EntryPtr entry, const confd_value_t* value1);
  aclErr_t CreateMatchDestinationPort(EntryPtr entry, const confd_value_t* value1);

 private:
  friend class AclCacheTestPeer;  // the tests' way to the members

  // The entry with the id that `entryPrio` is cut to, or null. Finds it without copying anything.
  const FiltersCommon::FiltersEntry* FindEntry(const std::string& name, int entryPrio) const;
  // Puts a changed entry in the place of the old one; a refusal of the library is not reported.
  // ACL_ERR_NOT_FOUND when there is no such profile.
  aclErr_t Replace(const std::string& name, int entryPrio,
                   const FiltersCommon::FiltersEntry& changed);
  // The same, but when the library refuses the entry, `backup` takes its place, and the result is
  // ACL_ERR_FILTERS.
  aclErr_t ReplaceOrRestore(const std::string& name, int entryPrio,
                            const FiltersCommon::FiltersEntry& changed,
                            const FiltersCommon::FiltersEntry& backup);
  // Puts a changed entry in the place of the old one. `*refusing` becomes the group that refused
  // it, and has neither of the two then.
  aclErr_t PutBack(const std::string& name, int entryPrio,
                   const FiltersCommon::FiltersEntry& changed,
                   FiltersCommon::FiltersGroup** refusing);

  static const std::map<int, std::string> ipv4_mask_map_;  // netmask by prefix length
  static const std::set<FiltersCommon::filtersMatch_t> valid_matches_;

  std::map<std::string, PreCreatedProfile> pre_created_profiles_;
  std::map<std::string, FiltersCommon::FiltersGroup> acl_profiles_;
  std::map<std::string, std::set<std::string>> interfaces_;  // names of the bound profiles
  ResourceMap used_l2_resources_;
  ResourceMap used_l3_resources_;
};

}  // namespace acl_app

#endif  // MODEL_ACL_CACHE_H_
