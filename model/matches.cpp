// Matches of an entry: what the kinds are, setting and removing one.
#include <array>

#include "model/acl_cache.h"
#include "model/entry_lookup.h"

namespace acl_app {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::filtersMatch_t;

using Converter = aclErr_t (*)(AclCache&, const AclCache::EntryPtr&, const confd_value_t* value1,
                               const confd_value_t* value2);

// Converters of kinds that have one value ignore the second.
template <aclErr_t (AclCache::*Convert)(AclCache::EntryPtr, const confd_value_t*)>
aclErr_t OneValue(AclCache& cache, const AclCache::EntryPtr& entry, const confd_value_t* value1,
                  const confd_value_t* /*value2*/) {
  return (cache.*Convert)(entry, value1);
}

template <aclErr_t (AclCache::*Convert)(AclCache::EntryPtr, const confd_value_t*,
                                        const confd_value_t*)>
aclErr_t TwoValues(AclCache& cache, const AclCache::EntryPtr& entry, const confd_value_t* value1,
                   const confd_value_t* value2) {
  return (cache.*Convert)(entry, value1, value2);
}

struct Kind {
  filtersMatch_t library_kind;
  Converter convert;
};

// By aclFiltersMatch_t.
constexpr std::array<Kind, ACL_MATCH_UNKNOWN> kKinds = {{
    {FiltersCommon::FILTERS_MATCH_DST_MAC, TwoValues<&AclCache::CreateMatchDstMac>},
    {FiltersCommon::FILTERS_MATCH_SRC_MAC, TwoValues<&AclCache::CreateMatchSrcMac>},
    {FiltersCommon::FILTERS_MATCH_EXTERNAL_VLAN_ID, OneValue<&AclCache::CreateMatchExternalVlanId>},
    {FiltersCommon::FILTERS_MATCH_TPID, OneValue<&AclCache::CreateMatchTpid>},
    {FiltersCommon::FILTERS_MATCH_PCP, OneValue<&AclCache::CreateMatchPcp>},
    {FiltersCommon::FILTERS_MATCH_TOS, OneValue<&AclCache::CreateMatchDscp>},
    {FiltersCommon::FILTERS_MATCH_TOS, OneValue<&AclCache::CreateMatchToS>},
    {FiltersCommon::FILTERS_MATCH_SRC_IPV4, OneValue<&AclCache::CreateMatchSrcIpv4>},
    {FiltersCommon::FILTERS_MATCH_DST_IPV4, OneValue<&AclCache::CreateMatchDstIpv4>},
    {FiltersCommon::FILTERS_MATCH_IP_PROTOCOL, OneValue<&AclCache::CreateMatchIpProtocol>},
    {FiltersCommon::FILTERS_MATCH_DST_L4_PORT, OneValue<&AclCache::CreateMatchDestinationPort>},
}};

filtersMatch_t LibraryKind(aclFiltersMatch_t kind) {
  return kind < kKinds.size() ? kKinds[kind].library_kind : FiltersCommon::FILTERS_MATCH_NONE;
}

std::set<filtersMatch_t> LibraryKinds() {
  std::set<filtersMatch_t> kinds;
  for (const Kind& kind : kKinds) kinds.insert(kind.library_kind);
  return kinds;
}

}  // namespace

const std::set<filtersMatch_t> AclCache::valid_matches_ = LibraryKinds();

aclErr_t AclCache::CreateMatch(const std::string& name, int entryPrio, aclFiltersMatch_t kind,
                               const confd_value_t* value1, const confd_value_t* value2) {
  if (value1 == nullptr) return ACL_ERR_INVALID_ARG;
  std::shared_ptr<FiltersEntry> entry;
  const aclErr_t found = GetEntry(name, entryPrio, entry);
  if (found != ACL_OK) return found;
  const FiltersEntry backup = *entry;
  if (HasMatch(*entry, LibraryKind(kind))) return ACL_ERR_EXISTS;
  if (kind < kKinds.size()) {
    const aclErr_t converted = kKinds[kind].convert(*this, entry, value1, value2);
    if (converted != ACL_OK) return converted;
  }
  return ReplaceOrRestore(name, entryPrio, *entry, backup);
}

aclErr_t AclCache::RemoveMatch(const std::string& name, int entryPrio, aclFiltersMatch_t kind) {
  const filtersMatch_t library_kind = LibraryKind(kind);
  if (valid_matches_.count(library_kind) == 0) return ACL_ERR_INVALID_ARG;
  std::shared_ptr<FiltersEntry> entry;
  const aclErr_t found = GetEntry(name, entryPrio, entry);
  if (found != ACL_OK) return found;
  entry->deleteMatch(library_kind);
  return Replace(name, entryPrio, *entry);
}

}  // namespace acl_app
