// What a keypath names.
//
// Positions are counted from the top, where the schema fixes them; the keypath itself is indexed
// from the changed node upwards. In the profile subtree:
//   1..4  config, access-list, acl-profile, ingress
//   5     access-list (the list of profiles)            6   its keys: type, name
//   7     access-list-entry (the list of entries)       8   its key: ace-priority
//   9     match or action
//   10    match leaf or container; action container     11  action leaf
// and in the interface subtree:
//   1..3  config, access-list, interface (the list)     4   its key: name
#include "confd/confd_manager.h"
#include "model/value_check.h"
#include "yang_tags.h"

namespace acl_app {
namespace {

const char kSource[] = "confd_manager";  // under which wrong keys are reported

struct TagKind {
  uint32_t tag;
  aclFiltersMatch_t kind;
};

const TagKind kMatchKinds[] = {
    {yang_tags::kDestinationMacAddress, ACL_MATCH_DST_MAC},
    {yang_tags::kDestinationMacAddressMask, ACL_MATCH_DST_MAC},
    {yang_tags::kSourceMacAddress, ACL_MATCH_SRC_MAC},
    {yang_tags::kSourceMacAddressMask, ACL_MATCH_SRC_MAC},
    {yang_tags::kVlan, ACL_MATCH_VLAN},
    {yang_tags::kEthertype, ACL_MATCH_TPID},
    {yang_tags::kPcp, ACL_MATCH_PCP},
    {yang_tags::kDscp, ACL_MATCH_DSCP},
    {yang_tags::kTos, ACL_MATCH_TOS},
    {yang_tags::kSourceIpv4Address, ACL_MATCH_SRC_IPV4},
    {yang_tags::kDestinationIpv4Address, ACL_MATCH_DST_IPV4},
    {yang_tags::kIpProtocol, ACL_MATCH_IP_PROTOCOL},
    {yang_tags::kDestinationPort, ACL_MATCH_DST_PORT},
};

struct TagAction {
  uint32_t tag;
  FiltersCommon::filtersAction_t kind;
};

const TagAction kActionKinds[] = {
    {yang_tags::kDeny, FiltersCommon::FILTERS_ACTION_DENY},
    {yang_tags::kPermit, FiltersCommon::FILTERS_ACTION_PERMIT},
    {yang_tags::kPcp, FiltersCommon::FILTERS_ACTION_SET_PCP_AND_QUEUE},
};

std::string TextOf(const confd_value_t& value) {
  return reinterpret_cast<const char*>(value.val.buf.ptr);
}

}  // namespace

int ConfDManager::GetAclNameFromKeypath(const confd_hkeypath_t* kp, std::string& name) const {
  const int depth = kp->len - 6;
  if (depth < 0) return -1;
  ACL_ASSERT_VALUE_TYPE(&kp->v[depth][1], C_BUF, kSource);
  name = TextOf(kp->v[depth][1]);
  return 0;
}

int ConfDManager::GetAclTypeFromKeypath(const confd_hkeypath_t* kp, int& type) const {
  const int depth = kp->len - 6;
  if (depth < 0) return -1;
  ACL_ASSERT_VALUE_TYPE(&kp->v[depth][0], C_ENUM_VALUE, kSource);
  type = kp->v[depth][0].val.enumvalue;
  return 0;
}

int ConfDManager::GetEntryPrioFromKeypath(const confd_hkeypath_t* kp, int& prio) const {
  const int depth = kp->len - 8;
  if (depth < 0) return -1;
  ACL_ASSERT_VALUE_TYPE(&kp->v[depth][0], C_INT32, kSource);
  prio = kp->v[depth][0].val.i32;
  return 0;
}

int ConfDManager::GetActionTypeFromKeypath(const confd_hkeypath_t* kp,
                                           FiltersCommon::filtersAction_t& kind) const {
  const int depth = kp->len - 11;
  if (depth < 0 || kp->v[depth][0].type != C_XMLTAG) return -1;
  for (const TagAction& action : kActionKinds) {
    if (action.tag == kp->v[depth][0].val.xmltag.tag) {
      kind = action.kind;
      return 0;
    }
  }
  return -1;
}

int ConfDManager::GetMatchXmltagFromKeypath(const confd_hkeypath_t* kp, int& xmltag) const {
  const int depth = kp->len - 10;
  if (depth < 0 || kp->v[depth][0].type != C_XMLTAG) return -1;
  xmltag = static_cast<int>(kp->v[depth][0].val.xmltag.tag);
  return 0;
}

int ConfDManager::GetMatchTypeFromKeypath(const confd_hkeypath_t* kp,
                                          aclFiltersMatch_t& kind) const {
  int xmltag = 0;
  if (GetMatchXmltagFromKeypath(kp, xmltag) != 0) return -1;
  for (const TagKind& match : kMatchKinds) {
    if (match.tag == static_cast<uint32_t>(xmltag)) kind = match.kind;
  }
  return 0;
}

int ConfDManager::GetModifiedNodeFromKeypath(const confd_hkeypath_t* kp,
                                             confd_value_t* node) const {
  for (int depth = 0; depth <= kp->len; ++depth) {
    if (kp->v[depth][0].type == C_XMLTAG) {
      *node = kp->v[depth][0];
      return 0;
    }
  }
  return -1;
}

int ConfDManager::GetInterfaceNameFromKeypath(const confd_hkeypath_t* kp, std::string& name) const {
  const int depth = kp->len - 4;
  if (depth < 0) return -1;
  ACL_ASSERT_VALUE_TYPE(&kp->v[depth][0], C_BUF, kSource);
  name = TextOf(kp->v[depth][0]);
  return 0;
}

}  // namespace acl_app
