// Short ways to write entries and groups in tests.
#ifndef TESTS_HOST_FILTER_MGR_GROUPS_FOR_TEST_H_
#define TESTS_HOST_FILTER_MGR_GROUPS_FOR_TEST_H_

#include <arpa/inet.h>

#include <list>
#include <vector>

#include "platform/filters_common/filters_group.h"

namespace host {

// An address in network byte order from its number.
inline in_addr Ipv4(uint32_t address) { return {htonl(address)}; }
// The netmask of a prefix length.
inline in_addr Netmask(int length) { return Ipv4(length == 0 ? 0 : ~uint32_t{0} << (32 - length)); }

// A denying entry that only differs from others in its destination address.
inline FiltersCommon::FiltersEntry DenyTo(uint32_t address) {
  FiltersCommon::FiltersEntry entry(0);
  entry.setMatch(FiltersCommon::MatchDstIPv4(Ipv4(address)));
  entry.setAction(FiltersCommon::ActionDeny());
  return entry;
}

// An entry and the ports that it is for.
struct PlacedEntry {
  FiltersCommon::FiltersEntry entry;
  std::list<limid_t> ports = {1};
};

// A group as the merge makes it: ids and priorities count up.
inline FiltersCommon::FiltersGroup GroupOf(FiltersCommon::filtersGroupType_t type,
                                           const std::vector<PlacedEntry>& entries) {
  FiltersCommon::FiltersGroup group(type == FiltersCommon::FILTERS_GROUP_TYPE_L2 ? 0 : 1);
  group.setPriority(group.getId());
  group.setStage(FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS);
  group.setType(type);
  unsigned short id = 0;
  for (const PlacedEntry& placed : entries) {
    FiltersCommon::FiltersEntry entry = placed.entry;
    entry.setId(id);
    entry.setPriority(id);
    entry.setMatch(FiltersCommon::MatchIngressPorts(placed.ports));
    group.insertEntry(entry);
    ++id;
  }
  return group;
}

}  // namespace host

#endif  // TESTS_HOST_FILTER_MGR_GROUPS_FOR_TEST_H_
