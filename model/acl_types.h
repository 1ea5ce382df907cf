// Types that the whole daemon shares: result codes, match kinds, profiles without a priority.
#ifndef MODEL_ACL_TYPES_H_
#define MODEL_ACL_TYPES_H_

#include <map>

#include "platform/filters_common/filters_entry.h"
#include "platform/filters_common/filters_types.h"

namespace acl_app {

// Result of an operation on the model. The numbers appear in logs.
enum aclErr_t : int {
  ACL_OK = 0,
  ACL_ERR_EXISTS = -1,           // what is to be created is there already
  ACL_ERR_PRIO_SET = -2,         // the profile has its priority already
  ACL_ERR_NOT_FOUND = -3,        // no such profile, entry or interface
  ACL_ERR_FILTERS = -4,          // the filter model library refused
  ACL_ERR_INVALID_ARG = -5,      // an argument is missing or unknown
  ACL_ERR_PENDING_PROFILE = -6,  // a profile has no priority yet
  ACL_ERR_INVALID_VALUE = -7,    // wrong type of a value or of a group
  ACL_ERR_FILTER_MGR = -8,       // the Filter Manager refused a group
};

// What the configuration can match on.
enum aclFiltersMatch_t : unsigned int {
  ACL_MATCH_DST_MAC = 0,
  ACL_MATCH_SRC_MAC = 1,
  ACL_MATCH_VLAN = 2,
  ACL_MATCH_TPID = 3,
  ACL_MATCH_PCP = 4,
  ACL_MATCH_DSCP = 5,
  ACL_MATCH_TOS = 6,
  ACL_MATCH_SRC_IPV4 = 7,
  ACL_MATCH_DST_IPV4 = 8,
  ACL_MATCH_IP_PROTOCOL = 9,
  ACL_MATCH_DST_PORT = 10,
  ACL_MATCH_UNKNOWN = 11,  // none of the above; nor is any higher value
};

// Profile types as the configuration's enumeration has them.
enum : int { kAclTypeL2 = 0, kAclTypeL3 = 1 };

// A profile whose name and type are known, but not its priority. The priority is the id of the
// profile's filter group, so there is no group yet.
struct PreCreatedProfile {
  FiltersCommon::filtersGroupType_t type;
  std::map<unsigned short, FiltersCommon::FiltersEntry> entries;  // by ace-priority
};

}  // namespace acl_app

#endif  // MODEL_ACL_TYPES_H_
