// The initial load of profiles, entries, matches, actions and interface bindings.
#include <stdexcept>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kList[] = "/config/access-list/acl-profile/ingress/access-list/";
constexpr char kInterfaceList[] = "/config/access-list/interface/";

class ProfileLoadTest : public ManagerTest {};

TEST_F(ProfileLoadTest, NoProfiles) {
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), 0);
  EXPECT_THAT(platform_.Take(), ElementsAre(std::string("cdb_exists 7 ") + kList));
  platform_.On("cdb_exists", 1);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), 0);
  platform_.On("cdb_exists", -1);  // an error counts as present
  platform_.On("cdb_num_instances", -3);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
  EXPECT_THAT(platform_.Take({"log", "cdb_get"}),
              ElementsAre("log Failed getting number of ACL instances from ConfD database "
                          "(error -3) "));
}

TEST_F(ProfileLoadTest, ReadsByPositionInOrder) {
  const std::string name = "100% %s{a b}";
  const std::string profile = platform_.AddProfile(name, 1, 20);
  platform_.AddEntry(profile, 5);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), 0);
  const std::string p = std::string(kList) + "[0]";
  const std::string q = p + "/access-list-entry[0]/";
  Lines record = platform_.Take();
  record.erase(std::remove_if(record.begin(), record.end(),
                              [&](const std::string& line) {
                                return line.find(q + "match/") != std::string::npos;
                              }),
               record.end());
  EXPECT_THAT(
      record,
      ElementsAre(std::string("cdb_exists 7 ") + kList, std::string("cdb_num_instances 7 ") + kList,
                  "cdb_get_buf 7 " + p + "/acl-name", "cdb_get_enum_value 7 " + p + "/acl-type",
                  "cdb_get_int32 7 " + p + "/acl-priority-l3/priority",
                  "model CreateAclProfile 1 " + name, "model SetAclPrio " + name + " 20",
                  "log ACL profile " + name + " created",
                  "cdb_num_instances 7 " + p + "/access-list-entry", "cdb_set_timeout 7 10",
                  "cdb_get_int32 7 " + q + "ace-priority", "model CreateEntry " + name + " 5",
                  "log Entry 5 created on ACL profile " + name,
                  "cdb_exists 7 " + q + "action/packet-handling/deny",
                  "cdb_exists 7 " + q + "action/packet-handling/permit",
                  "cdb_exists 7 " + q + "action/set/pcp"));
}

// Two profiles; whatever fails for the first, the second is loaded.
TEST_F(ProfileLoadTest, FailureOfOneProfileIsLoggedAndTheNextOneLoaded) {
  const std::string a = std::string(kList) + "[0]";
  const std::string entry = a + "/access-list-entry[0]/";
  const std::string created = "log ACL profile A created";
  const std::string entry_created = "log Entry 5 created on ACL profile A";
  const std::string incomplete = "log ACEs were not set correctly at database";
  const struct {
    std::string call;
    int result;
    Lines logged;
    Lines model;  // of profile A
  } rows[] = {
      {"cdb_get_buf 7 " + a, -1, {"log Error getting ACL profile name"}, {}},
      {"cdb_get_enum_value 7 " + a, -1, {"log Error type of ACL profile A"}, {}},
      {"cdb_get_int32 7 " + a + "/acl-priority-l2/priority",
       -1,
       {"log Error getting priority of ACL profile A"},
       {}},
      {"model CreateAclProfile 0 A", -5, {"log Error creating ACL profile A"}, {}},
      {"model SetAclPrio A",
       -4,
       {"log Error setting priority 10 to ACL profile A"},
       {"pending A type 6"}},
      {"model CreateEntry A",
       -4,
       {created, "log Error creating entry 5 on ACL profile A", incomplete},
       {"profile A type 6 priority 10 id 10 stage 1"}},
      {"cdb_cd 7 " + entry + "match/vlan",
       -1,
       {created, entry_created, "log Error entering in path " + entry + "match/vlan",
        "log Matches were not set correctly at database", incomplete},
       {"profile A type 6 priority 10 id 10 stage 1", "  5/0 ->"}},
      {"model CreateAction A 5 1",
       -4,
       {created, entry_created, "log Match vlan created on entry 5 of ACL profile A",
        "log Error creating action Deny created on entry 5 of ACL profile A",
        "log Actions were not set correctly at database", incomplete},
       {"profile A type 6 priority 10 id 10 stage 1", "  5/0 vlan 7 ->"}},
  };
  const std::string profile = platform_.AddProfile("A", 0, 10);
  for (int priority : {5, 6}) {
    const std::string path = platform_.AddEntry(profile, priority);
    platform_.cdb[path + "/match/vlan"] = U16(7);
    platform_.cdb[path + "/action/packet-handling/deny"] = Value();
  }
  platform_.AddProfile("B", 1, 20);
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    filter_->RemoveAclProfile("A");
    filter_->RemoveAclProfile("B");
    platform_.EndRules();
    // A row of calls that merely start alike: only the named one fails.
    for (const std::string& leaf : {std::string("/acl-name"), std::string("/acl-type")}) {
      if (row.call == "cdb_get_buf 7 " + a || row.call == "cdb_get_enum_value 7 " + a) {
        platform_.On(row.call + leaf, row.result);
      }
    }
    platform_.On(row.call, row.result);
    platform_.Take();
    EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
    Lines logged = row.logged;
    logged.push_back("log ACL profile B created");
    EXPECT_EQ(platform_.Take({"log"}), logged);
    Lines model = row.model;
    model.push_back("profile B type 4 priority 20 id 20 stage 1");
    EXPECT_EQ(DumpModel(*filter_), model);
  }
}

TEST_F(ProfileLoadTest, UnknownTypeAndMissingPriorityAreNotCreated) {
  const std::string odd = platform_.AddProfile("odd", 0, 1);
  platform_.cdb[odd + "/acl-type"] = Enum(2);
  const std::string bare = platform_.AddProfile("bare", 0, 1);
  platform_.cdb.erase(bare + "/acl-priority-l2/priority");
  platform_.AddProfile("fine", 0, 3);
  platform_.AddProfile("fine", 1, 4);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
  EXPECT_THAT(
      TakeEffects(),
      ElementsAre("log Unknown type of ACL profile odd",
                  "log Error getting priority of ACL profile bare", "model CreateAclProfile 0 fine",
                  "model SetAclPrio fine 3", "log ACL profile fine created",
                  "model CreateAclProfile 1 fine", "log Error creating ACL profile fine"));
}

TEST_F(ProfileLoadTest, BadEntryEndsTheProfilesEntries) {
  const std::string profile = platform_.AddProfile("P", 0, 1);
  for (int priority : {5, 65541, 7}) platform_.AddEntry(profile, priority);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
  EXPECT_THAT(Describe(Model::Profiles(*filter_).at("P")), ElementsAre("5/0 ->"));
  const std::string list = std::string(kList) + "[0]/access-list-entry";
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), acl_app::ACL_ERR_EXISTS);

  // A priority that cannot be read keeps the last value, 0 at first.
  filter_->RemoveEntry("P", 5);
  platform_.On("cdb_get_int32 7 " + list + "[0]/ace-priority", -1);
  platform_.On("cdb_get_int32 7 " + list + "[2]/ace-priority", -1);
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), acl_app::ACL_ERR_EXISTS);
  EXPECT_THAT(Describe(Model::Profiles(*filter_).at("P")), ElementsAre("0/0 ->", "5/0 ->"));
  platform_.On("cdb_num_instances", -1);
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), 0) << "a failed count is none";
}

// Matches and actions of entry 5 of profile P, whose leaves the tests set.
class EntryLoadTest : public ManagerTest {
 protected:
  EntryLoadTest() {
    const std::string profile = platform_.AddProfile("P", 0, 10);
    entry_ = platform_.AddEntry(profile, 5);
    filter_->CreateAclProfile(0, "P");
    filter_->CreateEntry("P", 5);
    platform_.Take();
  }
  void Match(const std::string& leaf, const Value& value) {
    platform_.cdb[entry_ + "/match/" + leaf] = value;
  }
  void Action(const std::string& leaf, const Value& value = Value()) {
    platform_.cdb[entry_ + "/action/" + leaf] = value;
  }
  int LoadMatches() { return manager_.LoadConfdMatches(kLoadSocket, "P", 5, kPath); }
  int LoadActions() { return manager_.LoadConfdActions(kLoadSocket, "P", 5, kPath); }

  const std::string kPath = std::string(kList) + "[0]/access-list-entry[0]/";
  const std::string kMatch = kPath + "match/";
  const std::string kAction = kPath + "action/";
  std::string entry_;
};

TEST_F(EntryLoadTest, LeavesAreReadInByteOrder) {
  const Value mac = Binary({2, 0, 0, 0, 0, 1});
  for (const char* end : {"tion-mac-address", "tion-mac-address-mask"}) {
    Match(std::string("destina") + end, mac);
  }
  Match("source-mac-address", mac);
  for (const char* side : {"destination", "source"}) {
    Match(std::string(side) + "-ipv4-address/mask/ip", Prefix("10.0.0.0", 8));
    Match(std::string(side) + "-ipv4-address/no-mask/ip", Ipv4("10.0.0.1"));
  }
  Match("destination-port", U16(80));
  Match("dscp", U8(1));
  Match("ethertype", Buf("8100"));
  Match("ip-protocol", U8(6));
  Match("pcp", U8(1));
  Match("tos", U8(1));
  Match("vlan", U16(7));
  EXPECT_EQ(LoadMatches(), 0) << "the last leaf decides";
  const Lines order = {"model CreateMatch P 5 8 10.0.0.0/8 null",
                       "model CreateMatch P 5 8 10.0.0.1 null",
                       "model CreateMatch P 5 0 0x020000000001 0x020000000001",
                       "model CreateMatch P 5 10 u16 80 null",
                       "model CreateMatch P 5 5 u8 1 null",
                       "model CreateMatch P 5 3 \"8100\" null",
                       "model CreateMatch P 5 9 u8 6 null",
                       "model CreateMatch P 5 4 u8 1 null",
                       "model CreateMatch P 5 7 10.0.0.0/8 null",
                       "model CreateMatch P 5 7 10.0.0.1 null",
                       "model CreateMatch P 5 1 0x020000000001 null",
                       "model CreateMatch P 5 6 u8 1 null",
                       "model CreateMatch P 5 2 u16 7 null"};
  const Lines record = TakeEffects();
  Lines asked, refused;
  for (const std::string& line : record) {
    if (line.compare(0, 6, "model ") == 0) asked.push_back(line);
    if (line.compare(0, 9, "log Error") == 0) refused.push_back(line);
  }
  EXPECT_EQ(asked, order);
  EXPECT_EQ(record[1],
            "log Match destination-ipv4-address/mask/ip created on entry 5 of ACL profile P");
  EXPECT_THAT(refused, ElementsAre("log Error creating match destination-ipv4-address/no-mask/ip",
                                   "log Error creating match source-ipv4-address/no-mask/ip",
                                   "log Error creating match tos"));
}

TEST_F(EntryLoadTest, EachLeafIsEnteredThenReadByItsPath) {
  Match("source-mac-address", Binary({2, 0, 0, 0, 0, 1}));
  EXPECT_EQ(LoadMatches(), 0);
  const std::string leaf = kMatch + "source-mac-address";
  Lines record = platform_.Take();
  EXPECT_EQ(record.size(), 13 + 6u) << "nothing is read of absent leaves";
  EXPECT_THAT(Lines(record.begin() + 10, record.begin() + 17),
              ElementsAre("cdb_exists 7 " + leaf, "cdb_cd 7 " + leaf, "cdb_getcwd_kpath 7",
                          "cdb_get 7 " + leaf, "cdb_exists 7 " + leaf + "-mask",
                          "model CreateMatch P 5 1 0x020000000001 null",
                          "log Match source-mac-address created on entry 5 of ACL profile P"));
}

TEST_F(EntryLoadTest, EveryStepOfALeafCanFail) {
  const std::string leaf = kMatch + "source-mac-address";
  const struct {
    std::string call;
    std::string logged;
  } rows[] = {
      {"cdb_cd 7 " + leaf, "log Error entering in path " + leaf},
      {"cdb_getcwd_kpath 7", "log Error getting keypath of " + leaf},
      {"cdb_get 7 " + leaf, "log Error getting value from " + leaf},
      {"cdb_get 7 " + leaf + "-mask", "log Error getting value from " + leaf + "-mask"},
      {"model CreateMatch", "log Error creating match source-mac-address"},
  };
  Match("source-mac-address", Binary({2, 0, 0, 0, 0, 1}));
  Match("source-mac-address-mask", Binary({255, 0, 0, 0, 0, 0}));
  for (const auto& row : rows) {
    platform_.EndRules();
    platform_.On(row.call, -6);
    EXPECT_EQ(LoadMatches(), -6) << row.call;
    EXPECT_THAT(platform_.Take({"log"}), ElementsAre(row.logged));
    Match("vlan", U16(7));  // a later leaf that succeeds decides
    if (row.call != "cdb_getcwd_kpath 7" && row.call != "model CreateMatch") {
      EXPECT_EQ(LoadMatches(), 0) << row.call;
      filter_->RemoveMatch("P", 5, acl_app::ACL_MATCH_VLAN);
    }
    platform_.cdb.erase(entry_ + "/match/vlan");
    platform_.Take();
  }
  // A position that is too short to be a match's.
  platform_.EndRules();
  EXPECT_EQ(manager_.LoadConfdMatches(kLoadSocket, "P", 5, "/config/access-list/"), 0);
  platform_.cdb["/config/access-list/match/pcp"] = U8(1);
  EXPECT_EQ(manager_.LoadConfdMatches(kLoadSocket, "P", 5, "/config/access-list/"), -1);
  EXPECT_THAT(platform_.Take({"log"}),
              ElementsAre("log Error getting match type from path /config/access-list/match/pcp"));
}

TEST_F(EntryLoadTest, ErrorOfExistsIsPresentForMatchesAndAbsentForActions) {
  EXPECT_EQ(LoadMatches(), 0);
  EXPECT_EQ(LoadActions(), 0);
  EXPECT_THAT(TakeEffects(), IsEmpty());
  for (int result : {-1, 2}) {
    platform_.On("cdb_exists 7", result);
    platform_.On("cdb_cd 7", -7);
    EXPECT_EQ(LoadMatches(), -7);
    EXPECT_EQ(platform_.Take({"log Error entering in path"}).size(), 13u);
    Action("packet-handling/deny");
    Action("set/pcp", U8(1));
    EXPECT_EQ(LoadActions(), 0);
    EXPECT_THAT(TakeEffects(), IsEmpty());
  }
}

TEST_F(EntryLoadTest, ActionsAndTheirResults) {
  const std::string on_entry = " on entry 5 of ACL profile P";
  const struct {
    Lines leaves;
    const char* refused;
    int result;
    Lines effects;
  } rows[] = {
      {{"packet-handling/deny", "packet-handling/permit"},
       "",
       0,
       {"model CreateAction P 5 1 null", "log Action Deny created" + on_entry}},
      {{"packet-handling/permit"},
       "",
       0,
       {"model CreateAction P 5 0 null", "log Action Permit created" + on_entry}},
      {{"packet-handling/deny"},
       "model CreateAction P 5 1",
       -4,
       {"model CreateAction P 5 1 null", "log Error creating action Deny created" + on_entry}},
      {{"packet-handling/permit"},
       "model CreateAction P 5 0",
       -4,
       {"model CreateAction P 5 0 null", "log Error creating action Permit created" + on_entry}},
      {{"packet-handling/deny", "set/pcp"},
       "model CreateAction P 5 1",
       0,
       {"model CreateAction P 5 1 null", "log Error creating action Deny created" + on_entry,
        "model CreateAction P 5 6 u8 3", "log Action Set PCP created" + on_entry}},
      {{"packet-handling/permit", "set/pcp"},
       "model CreateAction P 5 6",
       -4,
       {"model CreateAction P 5 0 null", "log Action Permit created" + on_entry,
        "model CreateAction P 5 6 u8 3", "log Error creating action Set PCP" + on_entry}},
      {{"packet-handling/permit", "set/pcp"},
       "cdb_get 7",
       -4,
       {"model CreateAction P 5 0 null", "log Action Permit created" + on_entry,
        "log Error getting value from Action Set PCP created" + on_entry}},
  };
  for (const auto& row : rows) {
    for (const std::string& leaf : row.leaves) Action(leaf, leaf == "set/pcp" ? U8(3) : Value());
    if (*row.refused != '\0') platform_.On(row.refused, -4);
    EXPECT_EQ(LoadActions(), row.result);
    EXPECT_EQ(TakeEffects(), row.effects);
    for (const std::string& leaf : row.leaves) platform_.cdb.erase(entry_ + "/action/" + leaf);
    platform_.EndRules();
    filter_->RemoveEntry("P", 5);
    filter_->CreateEntry("P", 5);
    platform_.Take();
  }
}

class InterfaceLoadTest : public ManagerTest {
 protected:
  int Load() { return manager_.LoadAclInterfaces(kLoadSocket); }
};

TEST_F(InterfaceLoadTest, NoInterfaces) {
  EXPECT_EQ(Load(), 0);
  platform_.On("cdb_num_instances", -1);
  EXPECT_EQ(Load(), 0) << "an error is an empty list";
  const std::string count = std::string("cdb_num_instances 7 ") + kInterfaceList;
  EXPECT_THAT(platform_.Take(), ElementsAre(count, count));
}

TEST_F(InterfaceLoadTest, ReadsByPositionAndBindsInListOrder) {
  platform_.AddInterface("ge %s/1", {"b%d", "a"});
  platform_.AddInterface("empty", {});
  EXPECT_EQ(Load(), 0);
  const std::string first = std::string(kInterfaceList) + "[0]/";
  const std::string second = std::string(kInterfaceList) + "[1]/";
  EXPECT_THAT(
      platform_.Take(),
      ElementsAre(std::string("cdb_num_instances 7 ") + kInterfaceList, "cdb_set_timeout 7 10",
                  "cdb_get_buf 7 " + first + "interface-name", "model CreateInterface ge %s/1",
                  "cdb_get 7 " + first + "ingress", "model ClearAclsFromInterface ge %s/1",
                  "model AddAclIntoInterface ge %s/1 b%d", "model AddAclIntoInterface ge %s/1 a",
                  "cdb_set_timeout 7 10", "cdb_get_buf 7 " + second + "interface-name",
                  "model CreateInterface empty", "cdb_get 7 " + second + "ingress",
                  "model ClearAclsFromInterface empty"));
  EXPECT_THAT(DumpModel(*filter_),
              ElementsAre("interface empty", "interface ge %s/1", "  a", "  b%d"));
}

TEST_F(InterfaceLoadTest, LastInterfaceDecidesTheResult) {
  const std::string value = std::string("cdb_get 7 ") + kInterfaceList;
  const struct {
    const char* position;  // of the interface to which the failure belongs
    const char* name;
    std::string call;
    std::string logged;
    Lines model;  // of that interface
  } rows[] = {
      {"[0]", "e0", "model CreateInterface e0", "log Error creating interface e0", {}},
      {"[1]", "e1", "model CreateInterface e1", "log Error creating interface e1", {}},
      {"[0]",
       "e0",
       value + "[0]/ingress",
       "log Error getting ACLs related to interface e0",
       {"interface e0"}},
      {"[1]",
       "e1",
       value + "[1]/ingress",
       "log Error getting ACLs related to interface e1",
       {"interface e1"}},
      {"[1]",
       "e1",
       "model ClearAclsFromInterface e1",
       "log Error clearing ACLs of interface e1",
       {"interface e1"}},
      {"[0]",
       "e0",
       "model AddAclIntoInterface e0 Q",
       "log Error setting ACL Q into interface e0",
       {"interface e0", "  P"}},
      {"[1]",
       "e1",
       "model AddAclIntoInterface e1 Q",
       "log Error setting ACL Q into interface e1",
       {"interface e1", "  P"}},
  };
  platform_.AddInterface("e0", {"P", "Q"});
  platform_.AddInterface("e1", {"P", "Q"});
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    const bool last = std::string(row.position) == "[1]";
    platform_.EndRules();
    platform_.On(row.call, -2);
    EXPECT_EQ(Load(), last ? -2 : 0);
    EXPECT_THAT(platform_.Take({"log"}), ElementsAre(row.logged));
    Lines model = row.model;
    const Lines other = {last ? "interface e0" : "interface e1", "  P", "  Q"};
    model.insert(last ? model.begin() : model.end(), other.begin(), other.end());
    EXPECT_EQ(DumpModel(*filter_), model);
    filter_->RemoveInterface("e0");
    filter_->RemoveInterface("e1");
    platform_.Take();
  }
}

TEST_F(InterfaceLoadTest, BadBindingDoesNotStopTheOthers) {
  platform_.AddInterface("e0", {"P", "Q"});
  platform_.On("model AddAclIntoInterface e0 P", -3);
  EXPECT_EQ(Load(), 0) << "the last binding decides";
  EXPECT_THAT(DumpModel(*filter_), ElementsAre("interface e0", "  Q"));
}

TEST_F(InterfaceLoadTest, UnreadableNameThrows) {
  platform_.AddInterface("e0", {});
  platform_.On("cdb_get_buf", CONFD_ERR);
  EXPECT_THROW(Load(), std::logic_error);  // the standard library's, about a null pointer
  EXPECT_THAT(platform_.Take({"model"}), IsEmpty());
}

TEST_F(InterfaceLoadTest, WrongTypesAreAssertions) {
  const std::string path = platform_.AddInterface("e0", {});
  platform_.cdb[path + "/ingress"] = Buf("P");
  EXPECT_DEATH(Load(), "Assertion `\\(&value\\)->type == C_LIST' failed");
  platform_.cdb[path + "/ingress"] = List({Buf("P"), Int32(1)});
  EXPECT_DEATH(Load(), "Assertion `\\(&vp\\[i\\]\\)->type == C_BUF' failed");
}

}  // namespace
}  // namespace acl_test
