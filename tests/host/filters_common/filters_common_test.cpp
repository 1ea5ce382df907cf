// The filter model: values that copy, ranges, kinds, ids.
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <vector>

#include "platform/filters_common/filters_group.h"
#include "tests/random_rounds.h"

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
  const MatchIngressPorts kept = *entry.getMatch<MatchIngressPorts>();
  entry.setMatch(*entry.getMatch<MatchIngressPorts>());
  EXPECT_EQ(FILTERS_OK, entry.deleteMatch(FILTERS_MATCH_INGRESS_PORTS));
  EXPECT_EQ(nullptr, entry.findMatch(FILTERS_MATCH_INGRESS_PORTS));
  EXPECT_EQ((std::list<limid_t>{1, 2}), kept.ports());
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

// A match that knows how many of it there are.
struct CountedMatch : MatchPcp {
  static inline int alive = 0;
  CountedMatch() : MatchPcp(1) { ++alive; }
  CountedMatch(const CountedMatch& other) : MatchPcp(other) { ++alive; }
  ~CountedMatch() override { --alive; }
};

// What a group should hold of an entry.
struct Wanted {
  unsigned int priority;
  const void* content;
  bool operator==(const Wanted& other) const {
    return priority == other.priority && content == other.content;
  }
};

// Groups that are changed, copied and dropped at random, small and large ones, against plain maps;
// and nothing that entries hold is lost or freed too early.
TEST(FiltersGroupTest, GroupsHoldWhatWasInserted) {
  std::mt19937 random(7);
  std::vector<FiltersEntry> contents;
  for (unsigned short i = 0; i < 8; ++i) {
    contents.push_back(MakeEntry(i));
    if (i % 4 == 1) contents.back().setMatch(MatchIngressPorts(std::list<limid_t>()));
    if (i % 4 > 1) contents.back().setMatch(MatchIngressPorts({i}));
  }
  std::vector<FiltersGroup> groups(4, FiltersGroup(0));
  std::vector<std::map<unsigned short, Wanted>> wanted(4);
  size_t with_rows = 0, largest = 0;
  for (int step = 0; step < host::RandomRounds(2000); ++step) {
    const size_t at = random() % groups.size(), from = random() % groups.size();
    FiltersEntry entry = contents[random() % contents.size()];
    if (random() % 4 == 0) entry.setMatch(CountedMatch());
    entry.setId(static_cast<unsigned short>(random() % 2048));
    entry.setPriority(random() % 8 == 0 ? 0 : entry.getId());
    switch (random() % 16) {
      case 0:
        groups[at] = FiltersGroup(0);
        wanted[at].clear();
        break;
      case 1:
        wanted[at] = wanted[from];
        groups[at] = FiltersGroup(groups[from]);  // shared until one is changed
        ASSERT_EQ(&groups[at].getEntriesRef(), &groups[from].getEntriesRef());
        break;
      case 2:
        ASSERT_EQ(wanted[at].erase(entry.getId()) == 1, groups[at].removeEntry(entry.getId()) == 0);
        break;
      case 3:
        ASSERT_EQ(
            wanted[at]
                .try_emplace(entry.getId(), Wanted{entry.getPriority(), entry.contentIdentity()})
                .second,
            groups[at].insertEntry(entry) == 0);
        break;
      default:  // behind the last one, as groups are built
        for (size_t count = random() % 200; count > 0 && wanted[at].size() < 2000; --count) {
          if (count % 8 == 0) entry.setMatch(MatchIngressPorts({7}));  // a list of its own
          const bool first = wanted[at].empty();
          entry.setId(first ? 0 : static_cast<unsigned short>(wanted[at].rbegin()->first + 1));
          entry.setPriority(first ? 0 : wanted[at].rbegin()->second.priority + 1);
          wanted[at][entry.getId()] = {entry.getPriority(), entry.contentIdentity()};
          ASSERT_EQ(FILTERS_OK, groups[at].insertEntry(entry));
        }
    }
    std::map<unsigned short, Wanted> held;
    for (const auto& [id, held_entry] : groups[at].getEntriesRef()) {
      ASSERT_EQ(id, held_entry.getId());
      ASSERT_NE(nullptr, held_entry.getAction<ActionDeny>());
      held.try_emplace(id, Wanted{held_entry.getPriority(), held_entry.contentIdentity()});
    }
    ASSERT_EQ(wanted[at], held);
    largest = std::max(largest, held.size());
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
  EXPECT_LT(host::RandomRounds(100000), static_cast<int>(with_rows));
  EXPECT_LT(1500u, largest);
  EXPECT_LT(0, CountedMatch::alive);
  groups.clear();
  EXPECT_EQ(0, CountedMatch::alive);
}

// The memory of groups that go is used again, and a group's entries are side by side in their
// order.
TEST(FiltersGroupTest, MemoryIsUsedAgainInOrder) {
  std::set<const void*> places, lists;
  for (int round = 0; round < 8; ++round) {
    const MatchIngressPorts ports({3});
    lists.insert(&ports.ports());
    FiltersGroup group(0);
    const auto add = [&group, &ports](unsigned int id) {
      FiltersEntry entry(static_cast<unsigned short>(id));
      entry.setPriority(id);
      entry.setMatch(ports);
      group.insertEntry(entry);
      return group.getRows()->last();
    };
    size_t breaks = 0;
    const FiltersEntry* last = nullptr;
    for (unsigned int id = 0; id < 65536; ++id) {
      const FiltersEntry* const stored = add(id);
      breaks += stored < last ? 1 : 0;
      last = stored;
      if (id % 1024 == 1000) places.insert(stored);
    }
    EXPECT_GE(200u, breaks);  // from one block of memory to the next one at most
    if (round < 6) continue;
    // Emptied, it goes, or is filled again.
    for (unsigned int id = 0; id < 65536; ++id) group.removeEntry(id);
    for (unsigned int id = 0; round == 7 && id < 65536; ++id) add(id);
    EXPECT_EQ(round == 7 ? 65536u : 0u, group.getEntriesRef().size());
    EXPECT_EQ(FiltersGroup::Entries().get_allocator(), group.getEntriesRef().get_allocator());
  }
  EXPECT_GE(2u * 64, places.size());
  EXPECT_EQ(1u, lists.size());
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
