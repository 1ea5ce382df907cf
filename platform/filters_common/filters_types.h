// Codes of the filter model library.
#ifndef PLATFORM_FILTERS_COMMON_FILTERS_TYPES_H_
#define PLATFORM_FILTERS_COMMON_FILTERS_TYPES_H_

namespace FiltersCommon {

enum filtersErr_t : int {
  FILTERS_OK = 0,
  FILTERS_ERR_EXISTS = 1,     // an entry with this id is there already
  FILTERS_ERR_NOT_FOUND = 2,  // no such entry, match or action
  FILTERS_ERR_RANGE = 3,      // the value does not fit the field
  FILTERS_ERR_TYPE = 4,       // unknown group type or stage
};

enum filtersMatch_t : unsigned int {
  FILTERS_MATCH_INGRESS_PORTS = 1,
  FILTERS_MATCH_EXTERNAL_VLAN_ID = 2,
  FILTERS_MATCH_TPID = 3,
  FILTERS_MATCH_DST_MAC = 4,
  FILTERS_MATCH_DST_L4_PORT = 5,
  FILTERS_MATCH_SRC_MAC = 7,
  FILTERS_MATCH_SRC_IPV4 = 9,
  FILTERS_MATCH_DST_IPV4 = 10,
  FILTERS_MATCH_PCP = 12,
  FILTERS_MATCH_IP_PROTOCOL = 17,
  FILTERS_MATCH_TOS = 19,  // the ToS byte, or the DSCP in its upper six bits
  FILTERS_MATCH_NONE = 30,
};

enum filtersAction_t : unsigned int {
  FILTERS_ACTION_PERMIT = 0,
  FILTERS_ACTION_DENY = 1,
  FILTERS_ACTION_SET_PCP_AND_QUEUE = 6,
};

enum filtersGroupType_t : unsigned int {
  FILTERS_GROUP_TYPE_NONE = 0,
  FILTERS_GROUP_TYPE_L3 = 4,
  FILTERS_GROUP_TYPE_L2 = 6,
};

enum filtersGroupStage_t : unsigned int {
  FILTERS_GROUP_STAGE_NONE = 0,
  FILTERS_GROUP_STAGE_PRE_INGRESS = 1,
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_FILTERS_TYPES_H_
