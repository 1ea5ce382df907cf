// The filter model: values that copy, ranges, kinds, ids.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <map>
#include <random>
#include <vector>

#include "host/filters_common/spare_nodes.h"
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

// Groups that are changed, copied and dropped at random, against maps from id to priority: nodes
// and rows go round between them.
TEST(FiltersGroupTest, GroupsHoldWhatWasInserted) {
  std::mt19937 random(7);
  const FiltersEntry content = MakeEntry(0);
  std::vector<FiltersGroup> groups(4, FiltersGroup(0));
  std::vector<std::map<unsigned short, unsigned int>> wanted(4);
  size_t with_rows = 0;
  for (int step = 0; step < 20000; ++step) {
    const size_t at = random() % groups.size();
    FiltersEntry entry = content;
    entry.setId(static_cast<unsigned short>(random() % 64));
    entry.setPriority(random() % 8 == 0 ? 0 : entry.getId());
    switch (random() % (step % 1000 < 900 ? 8 : 2)) {
      case 0:
        groups[at] = FiltersGroup(0);
        wanted[at].clear();
        break;
      case 1:
        wanted[at] = wanted[step % groups.size()];
        groups[at] = FiltersGroup(groups[step % groups.size()]);  // shared until one is changed
        ASSERT_EQ(&groups[at].getEntriesRef(), &groups[step % groups.size()].getEntriesRef());
        break;
      case 2:
        ASSERT_EQ(wanted[at].erase(entry.getId()) == 1, groups[at].removeEntry(entry.getId()) == 0);
        break;
      case 3:
        SpareNodes::OfThread().TakeApart(random() % 16);
        break;
      default:
        // Mostly behind the last one, as groups are built.
        if (!wanted[at].empty() && random() % 8 != 0) {
          const auto& [last, priority] = *wanted[at].rbegin();
          entry.setId(last + 1);
          entry.setPriority(priority + 1);
        }
        ASSERT_EQ(wanted[at].try_emplace(entry.getId(), entry.getPriority()).second,
                  groups[at].insertEntry(entry) == 0);
    }
    std::map<unsigned short, unsigned int> held;
    for (const auto& [id, held_entry] : groups[at].getEntriesRef()) {
      ASSERT_EQ(id, held_entry.getId());
      ASSERT_EQ(content.contentIdentity(), held_entry.contentIdentity());
      held[id] = held_entry.getPriority();
    }
    ASSERT_EQ(wanted[at], held);
    const EntryRows* const rows = groups[at].getRows();
    if (rows == nullptr) continue;
    with_rows += rows->size();
    auto next = groups[at].getEntriesRef().begin();
    unsigned int last = 0;
    for (size_t i = 0; i < rows->size(); ++i, ++next) {
      ASSERT_EQ(&next->second, &rows->entry(i));
      ASSERT_LE(last, rows->entry(i).getPriority());
      last = rows->entry(i).getPriority();
    }
  }
  EXPECT_LT(10000u, with_rows);
}

// Nodes of maps that go are used again, in their order; there are never too many.
TEST(FiltersGroupTest, NodesAreUsedAgain) {
  const auto build = [](unsigned int count) {
    FiltersGroup group(0);
    for (unsigned int id = 0; id < count; ++id) {
      FiltersEntry entry(static_cast<unsigned short>(id));
      entry.setPriority(id);
      group.insertEntry(entry);
    }
    return group;
  };
  SpareNodes& spare = SpareNodes::OfThread();
  for (int round = 0; round < 6; ++round) {
    // In every other round, some of what is to be used is still with another thread.
    while (round % 2 == 0 && spare.TakeApart(1000)) continue;
    const bool all_there = round % 2 == 0 && spare.size() == 2u * 65536;
    EXPECT_TRUE(all_there || round % 2 == 1 || round == 0);
    const FiltersGroup a = build(65536), b = build(65536);
    ASSERT_EQ(65536u, a.getRows()->size());
    EXPECT_TRUE(!all_there || spare.size() == 0);
    const FiltersEntry* last = nullptr;
    size_t breaks = 0;
    for (const auto& [id, entry] : a.getEntriesRef()) {
      breaks += &entry < last ? 1 : 0;
      last = &entry;
    }
    EXPECT_GE(16384u, breaks);
  }
  // Too many go, and are kept as far as there is room.
  std::vector<FiltersGroup> more = {build(65536), build(65536), build(65536)};
  more.clear();
  while (spare.TakeApart(1000)) continue;
  EXPECT_EQ(2u * 65536, spare.size());
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
