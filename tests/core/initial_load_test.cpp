// The initial load of profiles, entries, matches, actions and interface bindings.
#include <cstring>

#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// Of the first profile and its first entry, and of the interfaces.
const std::string kList = "/config/access-list/acl-profile/ingress/access-list/";
const std::string kLoadedEntry = kList + "[0]/access-list-entry[0]";
const Names kPaths = {{"$list", kList},
                      {"$p", kList + "[0]"},
                      {"$q", kLoadedEntry},
                      {"$interfaces", "/config/access-list/interface/"}};

class LoadTest : public ManagerTest {
 protected:
  int LoadProfiles() { return manager_.LoadAclProfiles(kLoadSocket); }
  int LoadInterfaces() { return manager_.LoadAclInterfaces(kLoadSocket); }
};

TEST_F(LoadTest, NothingToLoad) {
  EXPECT_EQ(LoadProfiles(), 0);
  EXPECT_EQ(LoadInterfaces(), 0);
  EXPECT_EQ(platform_.Take(), Text("cdb_exists 7 $list ; cdb_num_instances 7 $interfaces", kPaths));
  platform_.On("cdb_exists", -1);  // an error counts as present
  EXPECT_EQ(LoadProfiles(), 0);
  platform_.On("cdb_num_instances", -3);
  EXPECT_EQ(LoadProfiles(), -1);
  EXPECT_EQ(LoadInterfaces(), 0) << "an error is an empty list";
  EXPECT_THAT(platform_.Take({"log", "cdb_get"}),
              ElementsAre("log Failed getting number of ACL instances from ConfD database "
                          "(error -3) "));
}

TEST_F(LoadTest, ProfilesAreReadByPositionInOrder) {
  const std::string name = "100% %s{a b}";
  platform_.AddEntry(platform_.AddProfile(name, 1, 20), 5);
  EXPECT_EQ(LoadProfiles(), 0);
  Lines record = platform_.Take();
  EXPECT_EQ(record.size(), 16u + 13) << "each match leaf is asked for";
  record.erase(record.begin() + 13, record.begin() + 26);
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

TEST_F(LoadTest, WhatIsInTheModelStays) {
  const std::string profile = platform_.AddProfile("A", 0, 10);
  platform_.AddProfile("B", 1, 20);
  platform_.On("model SetAclPrio A", -4);
  EXPECT_EQ(LoadProfiles(), -1);
  EXPECT_EQ(Dump(*filter_), Text("A pending type 6 ; B type 4 priority 20 id 20 stage 1"));
  platform_.cdb[profile + "/acl-type"] = "enum 2";
  platform_.Take();
  EXPECT_EQ(LoadProfiles(), -1);
  EXPECT_EQ(TakeEffects(), Text(R"(
      log Unknown type of ACL profile A
      model CreateAclProfile 1 B ; log Error creating ACL profile B)"));
}

TEST_F(LoadTest, BadEntryEndsTheProfilesEntries) {
  const std::string profile = platform_.AddProfile("P", 0, 1);
  for (int priority : {5, 65541, 7}) platform_.AddEntry(profile, priority);
  EXPECT_EQ(LoadProfiles(), -1);
  EXPECT_EQ(Dump(*filter_).back(), "P 5/0 ->");

  // A priority that cannot be read keeps the last value, 0 at first.
  filter_->RemoveEntry("P", 5);
  const std::string list = kList + "[0]/access-list-entry";
  for (const char* position : {"[0]", "[2]"}) {
    platform_.On("cdb_get_int32 7 " + list + position + "/ace-priority", -1);
  }
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), acl_app::ACL_ERR_EXISTS);
  EXPECT_THAT(Describe(Model::Profiles(*filter_).at("P")), ElementsAre("0/0 ->", "5/0 ->"));
  // So does the last match that cannot be had.
  platform_.cdb[list + "[0]/match/vlan"] = "u16 4096";
  filter_->RemoveEntry("P", 0);
  filter_->RemoveEntry("P", 5);
  platform_.Take();
  EXPECT_NE(manager_.LoadConfdAce(kLoadSocket, "P", list), 0);
  EXPECT_EQ(TakeEffects().back(), "log Matches were not set correctly at database");
  platform_.On("cdb_num_instances", -1);
  EXPECT_EQ(manager_.LoadConfdAce(kLoadSocket, "P", list), 0) << "a failed count is none";
}

// Matches and actions of entry 5 of profile P, whose leaves the tests set.
class EntryLoadTest : public LoadTest {
 protected:
  EntryLoadTest() {
    filter_->CreateAclProfile(0, "P");
    filter_->CreateEntry("P", 5);
    platform_.Take();
  }
  std::string& Match(const std::string& leaf) {
    return platform_.cdb[kLoadedEntry + "/match/" + leaf];
  }
  std::string& Action(const std::string& leaf) {
    return platform_.cdb[kLoadedEntry + "/action/" + leaf];
  }
  int LoadMatches(const std::string& entry = kLoadedEntry + '/') {
    return manager_.LoadConfdMatches(kLoadSocket, "P", 5, entry);
  }
  int LoadActions() { return manager_.LoadConfdActions(kLoadSocket, "P", 5, kLoadedEntry + '/'); }
};

TEST_F(EntryLoadTest, LeavesAreReadInByteOrder) {
  Lines effects;
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
    Match(row[0]) = row[1];
    effects.push_back("model CreateMatch P 5 " + row[2]);
    const bool second_of_its_kind = row[0].find("no-mask") != std::string::npos || row[0] == "tos";
    effects.push_back(second_of_its_kind
                          ? "log Error creating match " + row[0]
                          : "log Match " + row[0] + " created on entry 5 of ACL profile P");
  }
  Match("destination-mac-address-mask") = "0xffffff000000";
  EXPECT_EQ(LoadMatches(), 0) << "the last leaf decides";
  EXPECT_EQ(TakeEffects(), effects);
}

TEST_F(EntryLoadTest, StepsOfALeaf) {
  Match("source-mac-address") = "0x020000000001";
  EXPECT_EQ(LoadMatches(), 0);
  const Lines record = platform_.Take();
  ASSERT_EQ(record.size(), 13 + 6u) << "nothing is read of absent leaves";
  EXPECT_EQ(Lines(record.begin() + 10, record.begin() + 16),
            Text("cdb_exists 7 $leaf ; cdb_cd 7 $leaf ; cdb_getcwd_kpath 7 ; cdb_get 7 $leaf ; "
                 "cdb_exists 7 $leaf-mask ; model CreateMatch P 5 1 0x020000000001 null",
                 {{"$leaf", kLoadedEntry + "/match/source-mac-address"}}));
  // A position that cannot be a match's.
  platform_.cdb["/config/access-list/match/pcp"] = "u8 1";
  platform_.Take();
  EXPECT_EQ(LoadMatches("/config/access-list/"), -1);
  EXPECT_EQ(TakeEffects(),
            Text("log Error getting match type from path /config/access-list/match/pcp"));
}

TEST_F(EntryLoadTest, ErrorOfExistsIsPresentForMatchesAndAbsentForActions) {
  Action("packet-handling/deny") = "";
  Action("set/pcp") = "u8 1";
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
      deny permit | none                     | 0  | $1 ; log Action Deny created $on
      permit      | none                     | 0  | $0 ; log Action Permit created $on
      permit      | model CreateAction P 5 0 | -4 | $0 ; log Error creating action Permit created $on
      deny pcp    | model CreateAction P 5 1 | 0  | $1 ; log Error creating action Deny created $on ; $6 ; log Action Set PCP created $on)",
                               {{"$on", "on entry 5 of ACL profile P"},
                                {"$0", "model CreateAction P 5 0 null"},
                                {"$1", "model CreateAction P 5 1 null"},
                                {"$6", "model CreateAction P 5 6 u8 3"}})) {
    platform_.cdb.clear();
    for (const char* leaf : {"packet-handling/deny", "packet-handling/permit", "set/pcp"}) {
      if (row[0].find(std::strchr(leaf, '/') + 1) != std::string::npos) Action(leaf) = "u8 3";
    }
    filter_->RemoveEntry("P", 5);
    filter_->CreateEntry("P", 5);
    platform_.Take();
    platform_.EndRules();
    platform_.On(row[1], -4);
    EXPECT_EQ(LoadActions(), std::stoi(row[2]));
    EXPECT_EQ(TakeEffects(), Text(row[3]));
  }
}

TEST_F(LoadTest, InterfacesAreReadByPositionAndBoundInListOrder) {
  platform_.AddInterface("ge %s/1", "[\"b%d\",\"a\"]");
  platform_.AddInterface("empty", "[]");
  EXPECT_EQ(LoadInterfaces(), 0);
  EXPECT_EQ(platform_.Take(), Text(R"(
      cdb_num_instances 7 $interfaces
      cdb_set_timeout 7 10 ; cdb_get_buf 7 $interfaces[0]/interface-name
      model CreateInterface ge %s/1 ; cdb_get 7 $interfaces[0]/ingress
      model ClearAclsFromInterface ge %s/1
      model AddAclIntoInterface ge %s/1 b%d ; model AddAclIntoInterface ge %s/1 a
      cdb_set_timeout 7 10 ; cdb_get_buf 7 $interfaces[1]/interface-name
      model CreateInterface empty ; cdb_get 7 $interfaces[1]/ingress
      model ClearAclsFromInterface empty)",
                                   kPaths));
  EXPECT_EQ(Dump(*filter_), Lines({"empty binds", "ge %s/1 binds a b%d"}));
}

TEST_F(LoadTest, LastBindingOfTheLastInterfaceDecides) {
  platform_.AddInterface("e1", "[\"P\",\"Q\"]");
  for (const Lines& row : Rows("P | 0 | e1 binds Q \n Q | -2 | e1 binds P")) {
    platform_.On("model AddAclIntoInterface e1 " + row[0], -2);
    EXPECT_EQ(LoadInterfaces(), std::stoi(row[1]));
    EXPECT_EQ(Dump(*filter_), Lines({row[2]}));
    filter_->RemoveInterface("e1");
    platform_.EndRules();
  }
}

TEST_F(LoadTest, WrongTypesOfBindingsAreAssertions) {
  std::string& ingress = platform_.cdb[platform_.AddInterface("e0", "\"P\"") + "/ingress"];
  EXPECT_DEATH(LoadInterfaces(), "confd_manager:[0-9]+: .*`\\(&value\\)->type == C_LIST' failed");
  ingress = "[\"P\",int32 1]";
  EXPECT_DEATH(LoadInterfaces(),
               "confd_manager:[0-9]+: .*`\\(&vp\\[i\\]\\)->type == C_BUF' failed");
}

}  // namespace
}  // namespace acl_test
