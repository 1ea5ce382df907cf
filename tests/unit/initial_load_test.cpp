// The initial load of profiles, entries, matches, actions and interface bindings.
#include <stdexcept>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Of the first profile and its first entry, and of the interfaces.
const Names kPaths = {{"$list", "/config/access-list/acl-profile/ingress/access-list/"},
                      {"$p", "/config/access-list/acl-profile/ingress/access-list/[0]"},
                      {"$q",
                       "/config/access-list/acl-profile/ingress/access-list/[0]/"
                       "access-list-entry[0]"},
                      {"$interfaces", "/config/access-list/interface/"}};

Lines PathText(const std::string& block) { return Text(block, kPaths); }
std::string Path(const std::string& text) { return PathText(text).at(0); }

using ProfileLoadTest = ManagerTest;

TEST_F(ProfileLoadTest, NoProfiles) {
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), 0);
  EXPECT_EQ(platform_.Take(), PathText("cdb_exists 7 $list"));
  platform_.On("cdb_exists", -1);  // an error counts as present
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), 0);
  platform_.On("cdb_num_instances", -3);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
  EXPECT_THAT(platform_.Take({"log", "cdb_get"}),
              ElementsAre("log Failed getting number of ACL instances from ConfD database "
                          "(error -3) "));
}

TEST_F(ProfileLoadTest, ReadsByPositionInOrder) {
  const std::string name = "100% %s{a b}";
  platform_.AddEntry(platform_.AddProfile(name, 1, 20), 5);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), 0);
  Lines record = platform_.Take();
  const auto of_match = [](const std::string& line) {
    return line.find("/match/") != std::string::npos;
  };
  record.erase(std::remove_if(record.begin(), record.end(), of_match), record.end());
  Names names = kPaths;
  names["$name"] = name;
  EXPECT_EQ(record, Text(R"(
      cdb_exists 7 $list ; cdb_num_instances 7 $list
      cdb_get_buf 7 $p/acl-name ; cdb_get_enum_value 7 $p/acl-type
      cdb_get_int32 7 $p/acl-priority-l3/priority
      model CreateAclProfile 1 $name ; model SetAclPrio $name 20 ; log ACL profile $name created
      cdb_num_instances 7 $p/access-list-entry
      cdb_set_timeout 7 10 ; cdb_get_int32 7 $q/ace-priority ; model CreateEntry $name 5
      log Entry 5 created on ACL profile $name
      cdb_exists 7 $q/action/packet-handling/deny ; cdb_exists 7 $q/action/packet-handling/permit
      cdb_exists 7 $q/action/set/pcp)",
                         names));
}

// Two profiles; whatever fails for the first, the second is loaded.
TEST_F(ProfileLoadTest, FailureOfOneProfileIsLoggedAndTheNextOneLoaded) {
  const std::string profile = platform_.AddProfile("A", 0, 10);
  for (int priority : {5, 6}) {
    const std::string entry = platform_.AddEntry(profile, priority);
    platform_.cdb[entry + "/match/vlan"] = "u16 7";
    platform_.cdb[entry + "/action/packet-handling/deny"] = "";
  }
  platform_.AddProfile("B", 1, 20);
  Names names = kPaths;
  names["$created"] = "log ACL profile A created ; log Entry 5 created on ACL profile A";
  names["$incomplete"] = "log ACEs were not set correctly at database";
  names["$A"] = "A type 6 priority 10 id 10 stage 1";
  for (const Lines& row : Rows(R"(
      cdb_get_buf 7 $p/acl-name        | log Error getting ACL profile name |
      cdb_get_enum_value 7 $p/acl-type | log Error type of ACL profile A |
      cdb_get_int32 7 $p/acl-priority-l2/priority | log Error getting priority of ACL profile A |
      model CreateAclProfile 0 A       | log Error creating ACL profile A |
      model SetAclPrio A | log Error setting priority 10 to ACL profile A | A pending type 6
      model CreateEntry A | log ACL profile A created ; log Error creating entry 5 on ACL profile A ; $incomplete | $A
      cdb_cd 7 $q/match/vlan | $created ; log Error entering in path $q/match/vlan ; log Matches were not set correctly at database ; $incomplete | $A ; A 5/0 ->
      model CreateAction A 5 1 | $created ; log Match vlan created on entry 5 of ACL profile A ; log Error creating action Deny created on entry 5 of ACL profile A ; log Actions were not set correctly at database ; $incomplete | $A ; A 5/0 vlan 7 ->)",
                               names)) {
    SCOPED_TRACE(row[0]);
    filter_->RemoveAclProfile("A");
    filter_->RemoveAclProfile("B");
    platform_.EndRules();
    platform_.On(row[0], -4);
    platform_.Take();
    EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
    EXPECT_EQ(platform_.Take({"log"}), Text(row[1] + " ; log ACL profile B created"));
    EXPECT_EQ(Dump(*filter_), Text(row[2] + " ; B type 4 priority 20 id 20 stage 1"));
  }
}

TEST_F(ProfileLoadTest, UnknownTypeAndDuplicateAreRefused) {
  platform_.cdb[platform_.AddProfile("odd", 0, 1) + "/acl-type"] = "enum 2";
  platform_.AddProfile("fine", 0, 3);
  platform_.AddProfile("fine", 1, 4);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
  EXPECT_EQ(TakeEffects(), Text(R"(
      log Unknown type of ACL profile odd
      model CreateAclProfile 0 fine ; model SetAclPrio fine 3 ; log ACL profile fine created
      model CreateAclProfile 1 fine ; log Error creating ACL profile fine)"));
}

TEST_F(ProfileLoadTest, BadEntryEndsTheProfilesEntries) {
  const std::string profile = platform_.AddProfile("P", 0, 1);
  for (int priority : {5, 65541, 7}) platform_.AddEntry(profile, priority);
  EXPECT_EQ(manager_.LoadAclProfiles(kLoadSocket), -1);
  EXPECT_THAT(Describe(Model::Profiles(*filter_).at("P")), ElementsAre("5/0 ->"));

  // A priority that cannot be read keeps the last value, 0 at first.
  filter_->RemoveEntry("P", 5);
  const std::string list = Path("$p/access-list-entry");
  for (const char* position : {"[0]", "[2]"}) {
    platform_.On("cdb_get_int32 7 " + list + position + "/ace-priority", -1);
  }
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), acl_app::ACL_ERR_EXISTS);
  EXPECT_THAT(Describe(Model::Profiles(*filter_).at("P")), ElementsAre("0/0 ->", "5/0 ->"));
  platform_.On("cdb_num_instances", -1);
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), 0) << "a failed count is none";
}

// Matches and actions of entry 5 of profile P, whose leaves the tests set.
class EntryLoadTest : public ManagerTest {
 protected:
  EntryLoadTest() : entry_(platform_.AddEntry(platform_.AddProfile("P", 0, 10), 5)) {
    filter_->CreateAclProfile(0, "P");
    filter_->CreateEntry("P", 5);
    platform_.Take();
  }
  int LoadMatches(const std::string& entry = Path("$q/")) {
    return manager_.LoadConfdMatches(kLoadSocket, "P", 5, entry);
  }
  int LoadActions() { return manager_.LoadConfdActions(kLoadSocket, "P", 5, Path("$q/")); }

  const std::string entry_;
};

TEST_F(EntryLoadTest, LeavesAreReadInByteOrder) {
  Lines asked;
  for (const Lines& row : Rows(R"(
      destination-ipv4-address/mask/ip    | 10.0.0.0/8     | 8 10.0.0.0/8 null
      destination-ipv4-address/no-mask/ip | 10.0.0.1       | 8 10.0.0.1 null
      destination-mac-address             | 0x020000000001 | 0 0x020000000001 0xffffff000000
      destination-port                    | u16 80         | 10 u16 80 null
      dscp                                | u8 1           | 5 u8 1 null
      ethertype                           | "8100"         | 3 "8100" null
      ip-protocol                         | u8 6           | 9 u8 6 null
      pcp                                 | u8 1           | 4 u8 1 null
      source-ipv4-address/mask/ip         | 10.0.0.0/8     | 7 10.0.0.0/8 null
      source-ipv4-address/no-mask/ip      | 10.0.0.1       | 7 10.0.0.1 null
      source-mac-address                  | 0x020000000001 | 1 0x020000000001 null
      tos                                 | u8 1           | 6 u8 1 null
      vlan                                | u16 7          | 2 u16 7 null)")) {
    platform_.cdb[entry_ + "/match/" + row[0]] = row[1];
    asked.push_back("model CreateMatch P 5 " + row[2]);
    const bool second_of_its_kind = row[0].find("no-mask") != std::string::npos || row[0] == "tos";
    asked.push_back(second_of_its_kind
                        ? "log Error creating match " + row[0]
                        : "log Match " + row[0] + " created on entry 5 of ACL profile P");
  }
  platform_.cdb[entry_ + "/match/destination-mac-address-mask"] = "0xffffff000000";
  EXPECT_EQ(LoadMatches(), 0) << "the last leaf decides";
  EXPECT_EQ(TakeEffects(), asked);
}

TEST_F(EntryLoadTest, EachLeafIsEnteredThenReadByItsPath) {
  platform_.cdb[entry_ + "/match/source-mac-address"] = "0x020000000001";
  EXPECT_EQ(LoadMatches(), 0);
  Lines record = platform_.Take();
  EXPECT_EQ(record.size(), 13 + 6u) << "nothing is read of absent leaves";
  EXPECT_EQ(Lines(record.begin() + 10, record.begin() + 16), PathText(R"(
      cdb_exists 7 $q/match/source-mac-address
      cdb_cd 7 $q/match/source-mac-address ; cdb_getcwd_kpath 7
      cdb_get 7 $q/match/source-mac-address
      cdb_exists 7 $q/match/source-mac-address-mask
      model CreateMatch P 5 1 0x020000000001 null)"));
}

TEST_F(EntryLoadTest, EveryStepOfALeafCanFail) {
  platform_.cdb[entry_ + "/match/source-mac-address"] = "0x020000000001";
  platform_.cdb[entry_ + "/match/source-mac-address-mask"] = "0xff0000000000";
  for (const Lines& row : Rows(R"(
      cdb_cd 7 $leaf       | log Error entering in path $leaf
      cdb_getcwd_kpath 7   | log Error getting keypath of $leaf
      cdb_get 7 $leaf      | log Error getting value from $leaf
      cdb_get 7 $leaf-mask | log Error getting value from $leaf-mask)",
                               {{"$leaf", Path("$q/match/source-mac-address")}})) {
    platform_.EndRules();
    platform_.On(row[0], -6);
    EXPECT_EQ(LoadMatches(), -6) << row[0];
    EXPECT_EQ(TakeEffects(), Text(row[1]));
  }
  platform_.cdb[entry_ + "/match/vlan"] = "u16 7";
  EXPECT_EQ(LoadMatches(), 0) << "a later leaf that succeeds decides";
  // A position that cannot be a match's.
  platform_.cdb["/config/access-list/match/pcp"] = "u8 1";
  platform_.Take();
  EXPECT_EQ(LoadMatches("/config/access-list/"), -1);
  EXPECT_EQ(TakeEffects(),
            Text("log Error getting match type from path /config/access-list/match/pcp"));
}

TEST_F(EntryLoadTest, ErrorOfExistsIsPresentForMatchesAndAbsentForActions) {
  platform_.cdb[entry_ + "/action/packet-handling/deny"] = "";
  platform_.cdb[entry_ + "/action/set/pcp"] = "u8 1";
  for (int result : {-1, 2}) {
    platform_.On("cdb_exists 7", result);
    platform_.On("cdb_cd 7", -7);
    EXPECT_EQ(LoadMatches(), -7);
    EXPECT_EQ(platform_.Take({"log Error entering in path"}).size(), 13u);
    EXPECT_EQ(LoadActions(), 0);
    EXPECT_THAT(TakeEffects(), IsEmpty());
  }
}

TEST_F(EntryLoadTest, ActionsAndTheirResults) {
  for (const Lines& row : Rows(R"(
      deny, permit | none                     | 0  | $1 ; log Action Deny created $on
      permit       | none                     | 0  | $0 ; log Action Permit created $on
      permit       | model CreateAction P 5 0 | -4 | $0 ; log Error creating action Permit created $on
      deny, pcp    | model CreateAction P 5 1 | 0  | $1 ; log Error creating action Deny created $on ; $6 ; log Action Set PCP created $on
      pcp          | model CreateAction P 5 6 | -4 | $6 ; log Error creating action Set PCP $on
      pcp          | cdb_get 7                | -4 | log Error getting value from Action Set PCP created $on)",
                               {{"$on", "on entry 5 of ACL profile P"},
                                {"$0", "model CreateAction P 5 0 null"},
                                {"$1", "model CreateAction P 5 1 null"},
                                {"$6", "model CreateAction P 5 6 u8 3"}})) {
    platform_.cdb.clear();
    for (const char* leaf : {"packet-handling/deny", "packet-handling/permit", "set/pcp"}) {
      const std::string name = std::string(leaf).substr(std::string(leaf).find('/') + 1);
      if (row[0].find(name) == std::string::npos) continue;
      platform_.cdb[entry_ + "/action/" + leaf] = name == "pcp" ? "u8 3" : "";
    }
    filter_->RemoveEntry("P", 5);
    filter_->CreateEntry("P", 5);
    platform_.Take();
    platform_.EndRules();
    platform_.On(row[1], -4);
    EXPECT_EQ(std::to_string(LoadActions()), row[2]);
    EXPECT_EQ(TakeEffects(), Text(row[3]));
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
  EXPECT_EQ(platform_.Take(), Lines(2, Path("cdb_num_instances 7 $interfaces")));
}

TEST_F(InterfaceLoadTest, ReadsByPositionAndBindsInListOrder) {
  platform_.AddInterface("ge %s/1", {"b%d", "a"});
  platform_.AddInterface("empty", {});
  EXPECT_EQ(Load(), 0);
  EXPECT_EQ(platform_.Take(), PathText(R"(
      cdb_num_instances 7 $interfaces
      cdb_set_timeout 7 10 ; cdb_get_buf 7 $interfaces[0]/interface-name
      model CreateInterface ge %s/1 ; cdb_get 7 $interfaces[0]/ingress
      model ClearAclsFromInterface ge %s/1
      model AddAclIntoInterface ge %s/1 b%d ; model AddAclIntoInterface ge %s/1 a
      cdb_set_timeout 7 10 ; cdb_get_buf 7 $interfaces[1]/interface-name
      model CreateInterface empty ; cdb_get 7 $interfaces[1]/ingress
      model ClearAclsFromInterface empty)"));
  EXPECT_EQ(Dump(*filter_), Lines({"empty binds", "ge %s/1 binds a b%d"}));
}

// Two interfaces that bind P and Q; the failure of the first is forgotten.
TEST_F(InterfaceLoadTest, LastInterfaceDecidesTheResult) {
  platform_.AddInterface("e0", {"P", "Q"});
  platform_.AddInterface("e1", {"P", "Q"});
  for (const Lines& row : Rows(R"(
      model CreateInterface $if           | log Error creating interface $if |
      cdb_get 7 $interfaces$at/ingress    | log Error getting ACLs related to interface $if | $if binds
      model ClearAclsFromInterface $if    | log Error clearing ACLs of interface $if        | $if binds
      model AddAclIntoInterface $if Q     | log Error setting ACL Q into interface $if      | $if binds P)",
                               kPaths)) {
    for (bool last : {false, true}) {
      const Names names = {{"$if", last ? "e1" : "e0"}, {"$at", last ? "[1]" : "[0]"}};
      const std::string call = Text(row[0], names).at(0);
      platform_.On(call, -2);
      EXPECT_EQ(Load(), last ? -2 : 0) << call;
      EXPECT_EQ(platform_.Take({"log"}), Text(row[1], names)) << call;
      Lines model = Text(row[2], names);
      model.insert(last ? model.begin() : model.end(), last ? "e0 binds P Q" : "e1 binds P Q");
      EXPECT_EQ(Dump(*filter_), model) << call;
      platform_.EndRules();
      filter_->RemoveInterface("e0");
      filter_->RemoveInterface("e1");
      platform_.Take();
    }
  }
  platform_.On("model AddAclIntoInterface e1 P", -3);
  EXPECT_EQ(Load(), 0) << "a bad binding does not stop the next, which decides";
  EXPECT_EQ(Dump(*filter_), Lines({"e0 binds P Q", "e1 binds Q"}));
}

TEST_F(InterfaceLoadTest, UnreadableNameThrows) {
  platform_.AddInterface("e0", {});
  platform_.On("cdb_get_buf", CONFD_ERR);
  EXPECT_THROW(Load(), std::logic_error);  // the standard library's, about a null pointer
  EXPECT_THAT(platform_.Take({"model"}), IsEmpty());
}

TEST_F(InterfaceLoadTest, WrongTypesAreAssertions) {
  const std::string path = platform_.AddInterface("e0", {});
  platform_.cdb[path + "/ingress"] = "\"P\"";
  EXPECT_DEATH(Load(), "Assertion `\\(&value\\)->type == C_LIST' failed");
  platform_.cdb[path + "/ingress"] = ListOf({"\"P\"", "int32 1"});
  EXPECT_DEATH(Load(), "Assertion `\\(&vp\\[i\\]\\)->type == C_BUF' failed");
}

}  // namespace
}  // namespace acl_test
