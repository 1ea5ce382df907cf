// What the Filter Manager takes, holds and shows, over a back end that does as told.
#include "host/filter_mgr/group_table.h"

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <libyang/libyang.h>

#include "host/filter_mgr/group_state.h"
#include "host/filter_mgr/origin_hits.h"
#include "tests/host/filter_mgr/captured_log.h"
#include "tests/host/runtime/scratch_state.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class ScriptedHits : public HitsReading {
 public:
  // Takes two steps.
  Progress Next() override {
    if (!hits.empty()) return Progress::kDone;
    hits = {{11, 1100}};
    return Progress::kMore;
  }
};

class ScriptedBackend : public Backend {
 public:
  const char* name() const override { return "nftables"; }
  FilterMgrError Prepare(const SentGroup& group) override {
    calls.push_back("prepare " + std::to_string(group->getId()));
    return prepares;
  }
  Standing Publish() override {
    calls.emplace_back("publish");
    if (answer.taken()) stands = answer;
    return answer;
  }
  void Discard() override { calls.emplace_back("discard"); }
  const Standing& standing() const override { return stands; }
  bool Poll() override {
    stands = answer;
    return answer.state == Standing::kInForce;
  }
  std::unique_ptr<HitsReading> ReadHits(GroupSlot slot) override {
    if (slot != kL2) return nullptr;
    return std::make_unique<ScriptedHits>();
  }
  std::map<std::string, PortState> Ports() const override {
    return {{"eth0", PortState::kEnforced}, {"eth1", PortState::kAbsent}};
  }

  std::vector<std::string> calls;
  FilterMgrError prepares = FILTER_MGR_OK;
  Standing answer, stands;
};

FiltersGroup MakeGroup(unsigned short id, filtersGroupType_t type, int entries = 0) {
  FiltersGroup group(id);
  group.setPriority(id);
  group.setStage(FILTERS_GROUP_STAGE_PRE_INGRESS);
  if (type != FILTERS_GROUP_TYPE_NONE) group.setType(type);
  for (int i = 0; i < entries; ++i) group.insertEntry(FiltersEntry(i));
  return group;
}

using Context = std::unique_ptr<ly_ctx, decltype(&ly_ctx_destroy)>;

// A libyang context, with the groups' module or without.
Context MakeContext(bool with_module) {
  ly_ctx* context = nullptr;
  EXPECT_EQ(LY_SUCCESS, ly_ctx_new(YANG_DIR, 0, &context));
  if (with_module) ly_ctx_load_module(context, "acl-app-filters", nullptr, nullptr);
  return {context, ly_ctx_destroy};
}

class GroupTableTest : public ::testing::Test {
 protected:
  void SetUp() override { CapturedLog().clear(); }

  // Entries of both groups in force: "2+3"; "-" for a group that is not known.
  std::string Held() {
    std::string held;
    for (const unsigned short id : {0, 1}) {
      const auto it = table_.groups().find({FILTERS_GROUP_STAGE_PRE_INGRESS, id});
      held +=
          (id == 0 ? "" : "+") +
          (it == table_.groups().end() ? "-" : std::to_string(it->second->getEntriesRef().size()));
    }
    return held;
  }
  // Sends groups of so many entries; the calls that the back end got, and what it answered last.
  std::string Send(int l2, int l3) {
    backend_.calls.clear();
    const auto first = l2 < 0 ? std::nullopt : table_.Update(MakeGroup(0, kL2Type, l2));
    std::string text = first ? "L2 " + std::to_string(first->error) + ": " : "";
    if (!first && l3 >= 0) {
      text = "L3 " + std::to_string(table_.Update(MakeGroup(1, kL3Type, l3))->error) + ": ";
    }
    for (const std::string& call : backend_.calls) text += call + ", ";
    return text + Held();
  }

  static constexpr filtersGroupType_t kL2Type = FILTERS_GROUP_TYPE_L2,
                                      kL3Type = FILTERS_GROUP_TYPE_L3;
  const Standing kPending{Standing::kPending, 0, "busy"};
  const Standing kRefused{Standing::kRefused, FILTER_MGR_ERR_KERNEL, "no"};

  ScriptedBackend backend_;
  GroupTable table_{&backend_, 3, "best"};
};

TEST_F(GroupTableTest, BothGroupsComeIntoForceTogetherOrNeither) {
  EXPECT_EQ(FILTER_MGR_OK, table_.Create(MakeGroup(0, kL2Type)));
  EXPECT_EQ(FILTER_MGR_ERR_EXISTS, table_.Create(MakeGroup(0, kL2Type)));
  EXPECT_TRUE(backend_.calls.empty()) << "what an earlier run left stays";
  EXPECT_EQ("L3 0: prepare 0, prepare 1, publish, 2+1", Send(2, 1)) << "makes the L3 group known";
  backend_.answer = kRefused;
  EXPECT_EQ("L3 6: prepare 0, prepare 1, publish, 2+1", Send(3, 3));
  backend_.answer = {};
  EXPECT_EQ("L3 3: prepare 0, discard, 2+1", Send(3, 4));  // capacity
  EXPECT_THAT(CapturedLog(), ElementsAre("filter group 1 (L3, stage 1) is refused: it needs 4 "
                                         "entries and has room for 3"));
  EXPECT_EQ(std::nullopt, table_.Finish());
  backend_.prepares = FILTER_MGR_ERR_UNSUPPORTED;
  EXPECT_EQ("L2 4: prepare 0, discard, 2+1", Send(1, 1));
  backend_.prepares = FILTER_MGR_OK;
  EXPECT_EQ("prepare 0, 2+1", Send(1, -1)) << "alone, it waits";
  EXPECT_EQ(Standing(), *table_.Finish());
  EXPECT_EQ("1+1", Held());
  EXPECT_EQ(FILTER_MGR_ERR_EXISTS, table_.Create(MakeGroup(1, kL3Type, 2)));
}

TEST_F(GroupTableTest, WhatIsPendingIsTakenAndShownOnceInForce) {
  std::optional<Standing> changed;
  Send(1, 1);
  backend_.answer = kPending;
  EXPECT_EQ("L3 0: prepare 0, prepare 1, publish, 1+1", Send(2, 2));
  EXPECT_FALSE(table_.Poll(&changed));
  EXPECT_EQ(std::nullopt, changed);
  backend_.answer = kRefused;  // a later one does not take the place of what is pending
  EXPECT_EQ("L3 6: prepare 0, prepare 1, publish, 1+1", Send(3, 3));
  backend_.answer = {};
  Send(3, -1);  // waits for its L3 group; the pending one is another
  EXPECT_TRUE(table_.Poll(&changed));
  EXPECT_EQ(Standing(), changed);
  EXPECT_EQ("2+2", Held());
  table_.Finish();
  EXPECT_EQ("3+2", Held());

  backend_.answer = kPending;
  Send(0, 0);
  backend_.answer = kRefused;
  table_.Poll(&changed);
  EXPECT_EQ(kRefused, changed);
  backend_.answer = {};
  Send(1, -1);
  table_.Finish();
  EXPECT_EQ("1+2", Held()) << "what was refused is forgotten";
}

TEST_F(GroupTableTest, HoldsBackWhatIsSentUntilReleased) {
  table_.Hold("in doubt");
  EXPECT_EQ("L3 0: prepare 0, prepare 1, -+-", Send(2, 2));
  EXPECT_EQ("L3 3: prepare 0, discard, prepare 0, prepare 1, -+-", Send(1, 4));
  EXPECT_EQ(Standing(), *table_.Release());
  EXPECT_EQ("2+2", Held());
  EXPECT_EQ(std::nullopt, table_.Release());
}

TEST_F(GroupTableTest, SaysOnceWhenAGroupIsNearlyFullAndWhenNoMore) {
  const ScratchState state;
  const std::string& directory = state.directory();
  for (const bool restarts : {false, true}) {
    std::optional<GroupTable> table;
    std::string raised;
    for (const int entries : {7, 8, 6, 10, 6, 5, 7, 0}) {
      if (restarts || !table) {
        table.emplace(&backend_, 10, "", FillThreshold{80, 50}, FillThreshold(), nullptr,
                      directory);
        table->Create(MakeGroup(0, kL2Type));
      }
      table->Hold("in doubt");  // nothing is known of the level as long as nothing is put in force
      table->Update(MakeGroup(0, kL2Type, entries));
      table->Finish();
      table->Release();
      raised += table->NearlyFull(kL2Type) ? '!' : '.';
    }
    EXPECT_EQ(".!!!!...", raised);
    EXPECT_THAT(std::exchange(CapturedLog(), {}),
                ElementsAre("the L2 group is nearly full: 8 of 10 entries, 80 % or more",
                            "the L2 group has room again: 5 of 10 entries, 50 % or less"));
  }
}

TEST_F(GroupTableTest, RefusesGroupsItCannotPlace) {
  EXPECT_EQ(FILTER_MGR_ERR_INVALID_GROUP, table_.Create(MakeGroup(0, FILTERS_GROUP_TYPE_NONE)));
  FiltersGroup no_stage(0);
  no_stage.setType(FILTERS_GROUP_TYPE_L2);
  EXPECT_EQ(FILTER_MGR_ERR_INVALID_GROUP, table_.Update(no_stage)->error);
  ASSERT_EQ(FILTER_MGR_OK, table_.Create(MakeGroup(0, FILTERS_GROUP_TYPE_L2)));
  EXPECT_EQ(FILTER_MGR_ERR_INVALID_GROUP, table_.Create(MakeGroup(2, FILTERS_GROUP_TYPE_L2)));
  EXPECT_EQ(FILTER_MGR_ERR_INVALID_GROUP,
            table_.Update(MakeGroup(0, FILTERS_GROUP_TYPE_L3))->error);
}

std::string Name(limid_t port) { return "eth" + std::to_string(port - 1); }

// Origins of runs of entries of the profile "p".
std::shared_ptr<GroupOrigins> OriginsOf(
    const std::vector<std::pair<std::string, AcePriorities>>& runs) {
  auto origins = std::make_shared<GroupOrigins>();
  for (const auto& [interface, priorities] : runs) {
    origins->Append(interface, "p", std::make_shared<const AcePriorities>(priorities));
  }
  return origins;
}

TEST(SentGroup, TellsOriginsOnlyWhereTheyFitTheGroup) {
  FiltersGroup group = MakeGroup(0, FILTERS_GROUP_TYPE_L2);
  for (const unsigned short id : {0, 1, 2}) {
    FiltersEntry entry(id);
    entry.setPriority(id);
    entry.setMatch(MatchIngressPorts({id < 2 ? 1u : 2u}));
    group.insertEntry(entry);
  }
  const auto names_of = [](const SentGroup& sent) {
    return sent.NameOf(0) + ", " + sent.NameOf(2);
  };
  const std::string unknown = "entry 0, entry 2";
  EXPECT_EQ("entry 5 of profile p on eth0, entry 5 of profile p on eth1",
            names_of({group, OriginsOf({{"eth0", {5, 9}}, {"eth1", {5}}}), Name}));
  EXPECT_EQ(unknown, names_of(group));
  EXPECT_EQ(unknown, names_of({group, OriginsOf({{"eth0", {5, 9}}}), Name}));
  EXPECT_EQ(unknown, names_of({group, OriginsOf({{"eth0", {5}}, {"eth1", {5, 9}}}), Name}));
  for (const bool gap : {true, false}) {  // numbered otherwise than the merge does
    FiltersGroup odd = group;
    FiltersEntry last = group.getEntriesRef().at(2);
    odd.removeEntry(2);
    gap ? last.setId(3) : last.setPriority(7);
    odd.insertEntry(last);
    EXPECT_EQ(unknown, names_of({odd, OriginsOf({{"eth0", {5, 9}}, {"eth1", {5}}}), Name}));
  }
}

FiltersEntry EntryWithEverything() {
  FiltersEntry entry(0);
  const ether_addr mac = {{2, 0, 0, 0, 0, 1}}, ignored = {{0, 0, 0, 0xff, 0xff, 0xff}};
  const in_addr address = {htonl(0x0a010203)};
  entry.setMatch(MatchDstMac(mac, ignored));
  entry.setMatch(MatchSrcMac(mac));
  entry.setMatch(MatchExternalVlanId(4095));
  entry.setMatch(MatchTPID(0x88a8));
  entry.setMatch(MatchPcp(7));
  entry.setMatch(MatchDSCP(46));
  entry.setMatch(MatchSrcIPv4(address, in_addr{htonl(0xffffff00)}));
  entry.setMatch(MatchDstIPv4(address, in_addr{htonl(0xff00ff00)}));
  entry.setMatch(MatchIpProtocol(17));
  entry.setMatch(MatchDstL4Port(65535));
  entry.setMatch(MatchIngressPorts({1, 2}));
  entry.setAction(ActionPermit());
  entry.setAction(ActionSetPcpAndQueue(5));
  return entry;
}

TEST_F(GroupTableTest, ShowsGroupsAsOperationalData) {
  FiltersGroup group = MakeGroup(0, FILTERS_GROUP_TYPE_L2);
  group.insertEntry(EntryWithEverything());
  FiltersEntry second(1);
  second.setMatch(MatchToS(255));
  second.setAction(ActionDeny());
  group.insertEntry(second);
  table_.Update(group);
  table_.Finish();
  FiltersGroup other = MakeGroup(1, FILTERS_GROUP_TYPE_L3);
  FiltersEntry known(0);
  known.setMatch(MatchIngressPorts({2}));
  other.insertEntry(known);
  table_.Update({other, OriginsOf({{"eth1", {7}}}), Name});

  const Context context = MakeContext(true);
  lyd_node* tree = BuildGroupState(context.get(), table_, Name);
  ASSERT_NE(nullptr, tree);
  EXPECT_EQ(LY_SUCCESS, lyd_validate_all(&tree, context.get(), LYD_VALIDATE_PRESENT, nullptr))
      << ly_errmsg(context.get());
  char* text = nullptr;
  lyd_print_mem(&text, tree, LYD_JSON, LYD_PRINT_SHRINK | LYD_PRINT_KEEPEMPTYCONT);
  EXPECT_STREQ(
      R"({"acl-app-filters:filters":{"backend":"nftables","backend-reason":"best","capacity":3,"group":[)"
      R"({"id":0,"stage":1,"type":"l2","priority":0,"entries":2,"nearly-full":false,"entry":[)"
      R"({"id":0,"priority":0,"port":["eth0","eth1"],"match":{)"
      R"("destination-mac-address":"02:00:00:00:00:01",)"
      R"("destination-mac-address-mask":"ff:ff:ff:00:00:00",)"
      R"("source-mac-address":"02:00:00:00:00:01","vlan":4095,"ethertype":"0x88a8","pcp":7,)"
      R"("dscp":46,"source-ipv4-address":"10.1.2.3/24",)"
      R"("destination-ipv4-address":"10.1.2.3/255.0.255.0","ip-protocol":17,)"
      R"("destination-port":65535},)"
      R"("action":{"permit":[null],"set-pcp":5},"hits":{"packets":"11","bytes":"1100"}},)"
      R"({"id":1,"priority":0,"match":{"tos":255},"action":{"deny":[null]},)"
      R"("hits":{"packets":"0","bytes":"0"}}]},)"
      R"({"id":1,"stage":1,"type":"l3","priority":1,"entries":1,"nearly-full":false,"entry":[)"
      R"({"id":0,"priority":0,"port":["eth1"],"interface":"eth1","profile":"p","ace-priority":7,)"
      R"("match":{},"action":{}}]}],)"
      R"("port":[{"name":"eth0","state":"enforced"},{"name":"eth1","state":"absent"}]}})",
      text);
  free(text);
  lyd_free_all(tree);
}

// A counter that is told belongs to the entry of running that has its origin.
TEST_F(GroupTableTest, TellsHitsOfTheGroupsThatWereSentLast) {
  const auto group = [](uint16_t ace_priority) {
    FiltersGroup content = MakeGroup(0, FILTERS_GROUP_TYPE_L2);
    FiltersEntry entry(0);
    entry.setMatch(MatchIngressPorts({2}));
    content.insertEntry(entry);
    return SentGroup(content, OriginsOf({{"eth1", {ace_priority}}}), Name);
  };
  const auto alive = std::make_shared<char>();
  bool trusted = true;
  const auto told = [&](int sent_meanwhile) {
    const auto reading = ReadOriginHits(
        table_, [&] { return trusted; }, alive);
    HitsByOrigin hits;
    for (int steps = 0; !reading->Next(&hits); ++steps) {
      if (steps >= sent_meanwhile) continue;
      table_.Update(group(static_cast<uint16_t>(20 + steps)));
      table_.Finish();
    }
    std::string text;
    for (const EntryHits& entry : hits[{"eth1", "p"}]) {
      text += std::to_string(entry.ace_priority) + ": " + std::to_string(entry.hits.packets);
    }
    return text;
  };
  table_.Update(group(7));
  table_.Finish();
  EXPECT_EQ(told(0), "7: 11");
  EXPECT_EQ(told(2), "21: 11");  // read again
  EXPECT_EQ(told(99), "");       // given up
  trusted = false;
  EXPECT_EQ(told(0), "");
  trusted = true;
  for (const Standing& standing : {kPending, kRefused}) {
    backend_.answer = standing;
    table_.Update(group(8));
    table_.Finish();
    EXPECT_EQ(told(0), "");
    backend_.answer = {};
    table_.Update(group(9));
    table_.Finish();
    EXPECT_EQ(told(0), "9: 11");
  }
  // What comes into force late is not what was sent last, when that was refused.
  for (const bool held : {false, true}) {
    if (held) table_.Hold("in doubt");
    backend_.answer = kPending;
    table_.Update(group(8));
    table_.Finish();
    backend_.answer = kRefused;
    backend_.prepares = held ? FILTER_MGR_ERR_KERNEL : FILTER_MGR_OK;
    table_.Update(group(9));
    table_.Finish();
    backend_.answer = {};
    backend_.prepares = FILTER_MGR_OK;
    std::optional<Standing> changed;
    held ? (void)table_.Release() : (void)table_.Poll(&changed);
    EXPECT_EQ("1+-", Held()) << held;
    EXPECT_EQ(told(0), "") << held;
  }
}

TEST_F(GroupTableTest, ShowsLargeGroupsInPieces) {
  GroupTable table(&backend_, 1000);
  table.Update(MakeGroup(0, FILTERS_GROUP_TYPE_L2, 300));
  ASSERT_EQ(FILTER_MGR_OK, table.Update(MakeGroup(1, FILTERS_GROUP_TYPE_L3, 200))->error);
  const Context context = MakeContext(true);
  auto alive = std::make_shared<int>();
  const auto pieces = OpenGroupState(
      table, [](limid_t) { return ""; }, alive);
  std::vector<std::string> entries;
  size_t ports = 0, hits = 0;
  while (lyd_node* piece = pieces->Next(context.get())) {
    const size_t before = entries.size();
    const lyd_node* node;
    LYD_TREE_DFS_BEGIN(piece, node) {
      const std::string name = node->schema->name;
      if (name == "entry") {
        entries.push_back(std::string(lyd_get_value(lyd_child(lyd_parent(node)))) + "." +
                          lyd_get_value(lyd_child(node)));
      }
      ports += name == "port" ? 1 : 0;
      hits += name == "hits" ? 1 : 0;
      LYD_TREE_DFS_END(piece, node);
    }
    EXPECT_LE(entries.size() - before, 200u);
    lyd_free_all(piece);
  }
  std::vector<std::string> want(500);
  for (int i = 0; i < 500; ++i) {
    want[i] = (i < 300 ? "0." : "1.") + std::to_string(i < 300 ? i : i - 300);
  }
  EXPECT_EQ(want, entries);
  EXPECT_EQ(2u, ports);
  EXPECT_EQ(300u, hits) << "of the group whose hits are counted";
  const auto more = OpenGroupState(
      table, [](limid_t) { return ""; }, alive);
  alive.reset();
  EXPECT_EQ(nullptr, more->Next(context.get()));
}

TEST_F(GroupTableTest, SaysWhyGroupsCannotBeShown) {
  const Context context = MakeContext(false);
  EXPECT_EQ(nullptr, BuildGroupState(context.get(), table_, [](limid_t) { return ""; }));
  EXPECT_THAT(CapturedLog(), ElementsAre(HasSubstr("acl-app-filters is not loaded")));
}

}  // namespace
}  // namespace host
