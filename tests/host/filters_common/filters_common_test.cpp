// The filter model: values that copy, ranges, kinds, ids.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include "platform/filters_common/filters_group.h"

namespace FiltersCommon {
namespace {

FiltersEntry MakeEntry(unsigned short id) {
  FiltersEntry entry(id);
  EXPECT_EQ(FILTERS_OK, entry.setMatch(MatchExternalVlanId(7)));
  EXPECT_EQ(FILTERS_OK, entry.setAction(ActionDeny()));
  return entry;
}

TEST(FiltersEntryTest, CopiesShareContentUntilOneIsChanged) {
  const FiltersEntry original = MakeEntry(1);
  FiltersEntry copy = original;
  EXPECT_EQ(original.findMatch(FILTERS_MATCH_EXTERNAL_VLAN_ID),
            copy.findMatch(FILTERS_MATCH_EXTERNAL_VLAN_ID));

  // Id, priority and ports are a copy's own, and cost it no copy of the rest.
  copy.setId(2);
  copy.setPriority(70000);
  copy.setMatch(MatchIngressPorts({5}));
  EXPECT_EQ(&original.getMatches(), &copy.getMatches());
  EXPECT_EQ(1, original.getId());
  EXPECT_EQ(0u, original.getPriority());
  EXPECT_EQ(nullptr, original.getMatch<MatchIngressPorts>());
  EXPECT_EQ(std::list<limid_t>{5}, copy.getMatch<MatchIngressPorts>()->ports());

  copy.setMatch(MatchPcp(3));
  copy.deleteAction(FILTERS_ACTION_DENY);
  EXPECT_EQ(nullptr, original.getMatch<MatchPcp>());
  EXPECT_NE(nullptr, original.getAction<ActionDeny>());
  EXPECT_EQ(2u, copy.getMatches().size());
  EXPECT_TRUE(copy.getActions().empty());
  // What the change did not concern is still shared.
  EXPECT_EQ(original.getMatch<MatchExternalVlanId>(), copy.getMatch<MatchExternalVlanId>());
}

TEST(FiltersEntryTest, RefusesValuesThatDoNotFitAndKeepsWhatItHad) {
  FiltersEntry entry(0);
  for (const filtersErr_t result : {FILTERS_OK, FILTERS_ERR_RANGE}) {
    const unsigned char over = result == FILTERS_OK ? 0 : 1;
    EXPECT_EQ(result, entry.setMatch(MatchExternalVlanId(4095 + over)));
    EXPECT_EQ(result, entry.setMatch(MatchPcp(7 + over)));
    EXPECT_EQ(result, entry.setMatch(MatchDSCP(63 + over)));
    EXPECT_EQ(result, entry.setAction(ActionSetPcpAndQueue(7 + over)));
  }
  EXPECT_EQ(4095, entry.getMatch<MatchExternalVlanId>()->value());
  EXPECT_EQ(7, entry.getAction<ActionSetPcpAndQueue>()->pcp());
  EXPECT_EQ(FILTERS_OK, entry.setMatch(MatchToS(255)));
}

TEST(FiltersEntryTest, HoldsOneElementOfEachKind) {
  FiltersEntry entry(0);
  entry.setMatch(MatchDSCP(46));
  entry.setMatch(MatchToS(0xb8));  // the same kind: it takes the other's place
  EXPECT_EQ(nullptr, entry.getMatch<MatchDSCP>());
  ASSERT_NE(nullptr, entry.getMatch<MatchToS>());
  EXPECT_EQ(1u, entry.getMatches().size());
  EXPECT_EQ(FILTERS_OK, entry.deleteMatch(FILTERS_MATCH_TOS));
  EXPECT_EQ(FILTERS_ERR_NOT_FOUND, entry.deleteMatch(FILTERS_MATCH_TOS));

  entry.setAction(ActionDeny());
  entry.setAction(ActionPermit());
  entry.setAction(ActionPermit());
  EXPECT_EQ(2u, entry.getActions().size());
  EXPECT_EQ(FILTERS_ERR_NOT_FOUND, entry.deleteAction(FILTERS_ACTION_SET_PCP_AND_QUEUE));

  EXPECT_EQ(FILTERS_ERR_NOT_FOUND, entry.deleteMatch(FILTERS_MATCH_INGRESS_PORTS));
  entry.setMatch(MatchIngressPorts({1, 2}));
  EXPECT_EQ(FILTERS_OK, entry.deleteMatch(FILTERS_MATCH_INGRESS_PORTS));
  EXPECT_EQ(nullptr, entry.findMatch(FILTERS_MATCH_INGRESS_PORTS));
}

TEST(FiltersEntryTest, KeepsMasksAsGivenAndMatchesInOrderOfKind) {
  FiltersEntry entry(0);
  const ether_addr mac = {{2, 0, 0, 0, 0, 1}}, ignored = {{0, 0, 0, 0xff, 0xff, 0xff}};
  in_addr address = {htonl(0x0a010203)}, mask = {htonl(0xff000000)};
  entry.setMatch(MatchDstIPv4(address, mask));
  entry.setMatch(MatchSrcMac(mac, ignored));
  entry.setMatch(MatchSrcIPv4(address));
  entry.setMatch(MatchTPID(0x88a8));
  std::vector<filtersMatch_t> kinds;
  for (const auto& match : entry.getMatches()) kinds.push_back(match->kind());
  EXPECT_EQ((std::vector<filtersMatch_t>{FILTERS_MATCH_TPID, FILTERS_MATCH_SRC_MAC,
                                         FILTERS_MATCH_SRC_IPV4, FILTERS_MATCH_DST_IPV4}),
            kinds);
  EXPECT_EQ(0xff, entry.getMatch<MatchSrcMac>()->mask()->ether_addr_octet[5]);
  EXPECT_EQ(address.s_addr, entry.getMatch<MatchDstIPv4>()->address().s_addr);
  EXPECT_EQ(mask.s_addr, entry.getMatch<MatchDstIPv4>()->mask()->s_addr);
  EXPECT_FALSE(entry.getMatch<MatchSrcIPv4>()->mask());
}

TEST(FiltersGroupTest, CopiesAreIndependent) {
  FiltersGroup original(9);
  ASSERT_EQ(FILTERS_OK, original.insertEntry(MakeEntry(1)));
  FiltersGroup copy = original;
  EXPECT_EQ(&original.getEntriesRef(), &copy.getEntriesRef());  // until one is changed
  ASSERT_EQ(FILTERS_OK, copy.insertEntry(MakeEntry(2)));
  ASSERT_EQ(FILTERS_OK, copy.removeEntry(1));
  EXPECT_EQ(1u, original.getEntriesRef().count(1));
  EXPECT_EQ(0u, original.getEntriesRef().count(2));
  FiltersGroup::Entries taken = copy.getEntries();
  taken.clear();
  EXPECT_EQ(1u, copy.getEntriesRef().size());
}

TEST(FiltersGroupTest, RefusesIdCollisionsAndKeepsTheFirst) {
  FiltersGroup group(0);
  for (unsigned short id : {20, 10, 30, 15}) {
    EXPECT_EQ(FILTERS_OK, group.insertEntry(FiltersEntry(id)));
  }
  for (unsigned short id : {10, 30}) {
    EXPECT_EQ(FILTERS_ERR_EXISTS, group.insertEntry(MakeEntry(id)));
    EXPECT_TRUE(group.getEntriesRef().at(id).getMatches().empty());
  }
  std::vector<int> ids;
  for (const auto& [id, entry] : group.getEntriesRef()) ids.push_back(entry.getId());
  EXPECT_EQ((std::vector<int>{10, 15, 20, 30}), ids);
  EXPECT_EQ(FILTERS_ERR_NOT_FOUND, group.removeEntry(11));
}

TEST(FiltersGroupTest, KnowsTwoTypesAndOneStage) {
  FiltersGroup group(3);
  EXPECT_EQ(3, group.getId());
  for (int type = 0; type < 16; ++type) {
    const bool known = type == FILTERS_GROUP_TYPE_L2 || type == FILTERS_GROUP_TYPE_L3;
    EXPECT_EQ(known ? FILTERS_OK : FILTERS_ERR_TYPE,
              group.setType(static_cast<filtersGroupType_t>(type)));
    const bool stage = type == FILTERS_GROUP_STAGE_PRE_INGRESS;
    EXPECT_EQ(stage ? FILTERS_OK : FILTERS_ERR_TYPE,
              group.setStage(static_cast<filtersGroupStage_t>(type)));
  }
  EXPECT_EQ(FILTERS_GROUP_TYPE_L2, group.getType());
  EXPECT_EQ(FILTERS_GROUP_STAGE_PRE_INGRESS, group.getStage());
}

}  // namespace
}  // namespace FiltersCommon
