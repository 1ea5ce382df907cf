// The changes that a commit makes: of profiles, entries, matches, actions, interfaces, bindings.
#include <sstream>

#include "tests/core/platform/core_fixtures.h"
#include "yang_tags.h"

namespace acl_test {
namespace {

const std::string kRoot = "/config/access-list/acl-profile/ingress/";
const std::string kEntry = kRoot + "access-list{0 P}/access-list-entry{5}";

class ProfileChangesTest : public ManagerTest {
 protected:
  ProfileChangesTest() {
    filter_->CreateAclProfile(0, "P");
    filter_->SetAclPrio("P", 10);
    filter_->CreateEntry("P", 5);
    platform_.Take();
  }
};

TEST_F(ProfileChangesTest, ProfilesPrioritiesAndEntries) {
  RunChanges(
      kRoot, R"(
      created $odd ; log HandleAcl - creating ACL profile a%s b of type 1 ; model CreateAclProfile 1 a%s b
      deleted $odd ; log HandleAcl - removing ACL profile a%s b of type 1 ; model RemoveAclProfile a%s b
      modified $P ; log HandleAcl - nothing to do (operation 3)
      set $P ; log HandleAcl - nothing to do (operation 4)
      created $Q ; log HandleAcl - creating ACL profile Q of type 0 ; model CreateAclProfile 0 Q
      set $Q/acl-priority-l2/priority = int32 65537
        log HandleAclPrio - setting prio 65537 on ACL profile Q ; model SetAclPrio Q 65537
      created $Q/acl-priority-l2/priority = int32 1 ; log HandleAclPrio - nothing to do (operation 1)
      deleted $Q/acl-priority-l3/priority
        log HandleAclPrio - removing prio of ACL profile Q ; model RemoveAclProfile Q
      created $P/access-list-entry{7}
        log HandleEntry - creating entry 7 on ACL profile P ; model CreateEntry P 7
      deleted $P/access-list-entry{7}
        log HandleEntry - removing entry 7 from ACL profile P ; model RemoveEntry P 7
      7 $P/access-list-entry{5} ; log HandleEntry - nothing to do (operation 7)
      set $P/acl-name = "P" ; set $P/acl-type = enum 0 ; modified $P/acl-priority-l2
      set $P/access-list-entry{5}/ace-priority = int32 5 ; modified $P/access-list-entry{5}/match
      modified $P/access-list-entry{5}/match/source-ipv4-address/mask
      modified $P/access-list-entry{5}/action/set)",
      {{"$odd", "access-list{1 a%s b}"}, {"$P", "access-list{0 P}"}, {"$Q", "access-list{0 Q}"}});
  EXPECT_EQ(Dump(*filter_), Text("P type 6 priority 10 id 10 stage 1 ; P 5/0 ->"));
  ExpectChange(
      "modified " + kRoot + "access-list{0 P}/acl-priority-l2/priority = int32 11",
      ITER_CONTINUE,  // given once
      Text("log HandleAclPrio - setting prio 11 on ACL profile P ; model SetAclPrio P 11"));
}

TEST_F(ProfileChangesTest, Actions) {
  RunChanges(kEntry + "/action/", R"(
      created packet-handling/deny
        $set ; model RemoveAction P 5 1 ; model CreateAction P 5 1 null
      modified packet-handling/permit
        $set ; model RemoveAction P 5 0 ; model CreateAction P 5 0 null
      set set/pcp = u8 3 ; $set ; model RemoveAction P 5 6 ; model CreateAction P 5 6 u8 3
      set set/pcp = u8 4 ; $set ; model RemoveAction P 5 6 ; model CreateAction P 5 6 u8 4
      deleted packet-handling/deny
        log HandleAction - removing action from entry 5 from ACL profile P ; model RemoveAction P 5 1
      7 packet-handling/deny ; log HandleAction - nothing to do (operation 7))",
             {{"$set", "log HandleAction - setting action on entry 5 on ACL profile P"}});
  EXPECT_EQ(Dump(*filter_).back(), "P 5/0 -> permit set-pcp 4");
}

// What setting and removing a match makes.
const Names kMatch = {{"$set-match", R"(
      log HandleMatch - setting match on entry 5 on ACL profile P
      model RemoveMatch P 5 $kind ! HandleMatch - error removing match before recreate it
      model CreateMatch P 5 $kind $value1 $value2 ! HandleMatch - error creating match)"},
                      {"$remove-match", R"(
      log HandleMatch - removing match from entry 5 from ACL profile P
      model RemoveMatch P 5 $kind ! HandleMatch - error removing match)"}};

TEST_F(ProfileChangesTest, PlainMatches) {
  for (const Lines& row : Rows(R"(
      vlan                                | u16 100    | 2
      ethertype                           | "8100"     | 3
      pcp                                 | u8 1       | 4
      dscp                                | u8 10      | 5
      tos                                 | u8 9       | 6
      source-ipv4-address/no-mask/ip      | 10.0.0.1   | 7
      source-ipv4-address/mask/ip         | 10.0.0.1/8 | 7
      destination-ipv4-address/no-mask/ip | 10.0.0.1   | 8
      destination-ipv4-address/mask/ip    | 10.0.0.1/8 | 8
      ip-protocol                         | enum 6     | 9
      destination-port                    | u16 80     | 10)")) {
    Names names = {{"$leaf", row[0]}, {"$value1", row[1]}, {"$value2", "null"}, {"$kind", row[2]}};
    names.insert(kMatch.begin(), kMatch.end());
    RunChanges(kEntry + "/match/", R"(
        created $leaf = $value1 ; $set-match
        set $leaf = $value1 ; $set-match
        modified $leaf = $value1 ; $set-match
        7 $leaf ; log HandleMatch - nothing to do (operation 7)
        deleted $leaf ; $remove-match)",
               names);
  }
}

// An address and its mask are one match: whichever changes, the other is read.
TEST_F(ProfileChangesTest, MacAddressAndMaskArePaired) {
  for (const Lines& row : Rows("destination-mac-address | 0 \n source-mac-address | 1")) {
    const std::string match = kEntry + "/match/", address = match + row[0];
    Names names = kMatch;
    names.insert({{"$leaf", row[0]}, {"$kind", row[1]}, {"$value1", "0x020000000001"}});
    names["$value2"] = "null";
    platform_.cdb.clear();  // no partner
    RunChanges(match, R"(set $leaf = $value1 ; $set-match ; deleted $leaf = $value1 ; $remove-match
                         deleted $leaf-mask ; $remove-match)",
               names);
    platform_.cdb[address] = names["$value1"];
    RunChanges(match, R"(deleted $leaf-mask ; $remove-match
                           model CreateMatch P 5 $kind $value1 null ! HandleMatch - error recreating match after remove it)",
               names);
    names["$value2"] = "0xffff00000000";
    RunChanges(match, "set $leaf-mask = $value2 ; $set-match", names);
    platform_.cdb = {{address + "-mask", names["$value2"]}};
    RunChanges(match, "set $leaf = $value1 ; $set-match ; deleted $leaf ; $remove-match", names);
  }
}

TEST_F(ProfileChangesTest, SessionOfAChange) {
  const std::string leaf = kEntry + "/match/source-mac-address";
  platform_.cdb[leaf + "-mask"] = "0xffff00000000";
  platform_.On("cdb_get", CONFD_ERR);
  EXPECT_EQ(Change("set " + leaf + " = 0x020000000001"), ITER_CONTINUE);
  EXPECT_EQ(platform_.Take({"open", "cdb", "log", "close"}), Text(R"(
      open 101 1 true ; cdb_set_timeout 5 5 ; cdb_set_timeout 101 5
      log AclProfilesDiffIt - modified path: $leaf
      cdb_cd 101 $leaf ; cdb_cd 101 .. ; cdb_getcwd 101
      cdb_exists 101 $leaf-mask ; cdb_get 101 $leaf-mask
      log HandleMatch - error getting value from $leaf-mask
      close 101)",
                                                                  {{"$leaf", leaf}}));
  for (const auto& [failing, tried] :
       {std::pair("cdb_set_timeout 101", "cdb_set_timeout 5 5 ; cdb_set_timeout 101 5"),
        {"cdb_set_timeout 5", "cdb_set_timeout 5 5"}}) {
    platform_.On(failing, CONFD_ERR);
    EXPECT_EQ(Change("modified /config/access-list/acl-profile"), ITER_RECURSE);
    EXPECT_EQ(platform_.Take({"cdb_", "log"}), Text(R"(
        $tried ; log AclProfilesDiffIt - error setting timeout ()
        log AclProfilesDiffIt - modified path: /config/access-list/acl-profile)",
                                                    {{"$tried", tried}}));
  }
}

TEST_F(ProfileChangesTest, MalformedKeypaths) {
  for (const Lines& row : Rows(R"(
      deny                  | 1 | AclProfilesDiffIt - wrong keypath
      $entry/deny           | 3 | AclProfilesDiffIt - unknown match or action. cmltag 1028777810
      $entry/set/pcp        | 3 | AclProfilesDiffIt - unknown match or action. cmltag 236583976
      $entry/action/deny    | 1 | HandleAction - wrong keypath
      $entry/action/set/tos | 1 | HandleAction - wrong keypath
      access-list           | 3 | HandleAcl - error parsing ACL keys
      priority              | 3 | HandleAclPrio - error parsing ACL name
      $list                 | 3 | HandleEntry - error parsing ACL keys)",
                               {{"$entry", "access-list{0 P}/access-list-entry{5}"},
                                {"$list", "access-list{0 P}/access-list-entry"}})) {
    ExpectChange("created " + kRoot + row[0], static_cast<confd_iter_ret>(std::stoi(row[1])),
                 {"log " + row[2]});
  }
  const KeyPath list(kRoot + "access-list{0 P}/access-list-entry"), match(kEntry + "/match");
  EXPECT_EQ(manager_.HandleMatch(101, &list, MOP_CREATED, nullptr), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleAction(&list, MOP_CREATED, nullptr), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleMatch(101, &match, MOP_CREATED, nullptr), ITER_CONTINUE);
  KeyPath action(kEntry + "/action/set/pcp");
  action.v[0][0].type = C_INT32;
  EXPECT_EQ(manager_.HandleAction(&action, MOP_CREATED, nullptr), ITER_STOP);
  EXPECT_EQ(TakeEffects(), Text(R"(
      log HandleMatch - error parsing ACL keys ; log HandleAction - error parsing ACL keys
      log HandleMatch - wrong keypath ; log HandleAction - wrong keypath)"));
}

TEST_F(ProfileChangesTest, TagIsSearchedUpToTheElementAfterTheLast) {
  KeyPath path(kRoot + "access-list{0 P}");
  for (int length : {-1, 0}) {
    path.len = length;
    acl_app::ConfDManagerTestPeer::Changed(manager_) = false;
    EXPECT_EQ(manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr), ITER_STOP);
    EXPECT_EQ(TakeEffects().back(), "log AclProfilesDiffIt - wrong keypath");
    EXPECT_TRUE(acl_app::ConfDManagerTestPeer::Changed(manager_)) << "set by every call";
  }
  confd_value_t node;
  EXPECT_EQ(manager_.GetModifiedNodeFromKeypath(&path, &node), -1);
  path.v[0][0] = *Value("unknown");
  EXPECT_EQ(manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr), ITER_RECURSE);
}

TEST_F(ProfileChangesTest, GettersFailButForAnUnknownMatch) {
  auto kind = acl_app::ACL_MATCH_TOS;
  auto action = FiltersCommon::FILTERS_ACTION_PERMIT;
  std::string name;
  int number = 0;
  KeyPath path("/config/access-list");
  EXPECT_EQ(manager_.GetAclNameFromKeypath(&path, name), -1);
  EXPECT_EQ(manager_.GetAclTypeFromKeypath(&path, number), -1);
  EXPECT_EQ(manager_.GetEntryPrioFromKeypath(&path, number), -1);
  EXPECT_EQ(manager_.GetActionTypeFromKeypath(&path, action), -1);
  EXPECT_EQ(manager_.GetMatchXmltagFromKeypath(&path, number), -1);
  EXPECT_EQ(manager_.GetInterfaceNameFromKeypath(&path, name), -1);
  path = KeyPath(kEntry + "/action/set/unknown");
  EXPECT_EQ(manager_.GetActionTypeFromKeypath(&path, action), -1);
  path = KeyPath(kEntry + "/action/set/pcp/below");
  EXPECT_EQ(manager_.GetActionTypeFromKeypath(&path, action), 0) << "what is above counts";
  path = KeyPath(kEntry + "/match/unknown");
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), 0);
  EXPECT_EQ(kind, acl_app::ACL_MATCH_TOS) << "left unchanged";
  path.v[0][0].type = C_INT32;
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), -1);
}

TEST_F(ProfileChangesTest, KeysAndValuesOfAWrongTypeAreAssertions) {
  KeyPath path(kEntry + "/match/vlan");
  const auto with_wrong_key = [&](int position, int key) {
    path.FromTop(position)[key].type = C_UINT8;
    manager_.HandleAcl(&path, MOP_CREATED);
    manager_.HandleEntry(&path, MOP_CREATED);
    manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr);
  };
  const std::string key = "confd_manager:[0-9]+: .*Assertion `\\(&kp->v\\[depth\\]\\[";
  EXPECT_DEATH(with_wrong_key(6, 1), key + "1\\]\\)->type == C_BUF' failed");
  EXPECT_DEATH(with_wrong_key(6, 0), key + "0\\]\\)->type == C_ENUM_VALUE' failed");
  EXPECT_DEATH(with_wrong_key(8, 0), key + "0\\]\\)->type == C_INT32' failed");
  EXPECT_DEATH(
      with_wrong_key(9, 0),
      "confd_manager:[0-9]+: .*`\\(&\\(kp->v\\[depth\\]\\[0\\]\\)\\)->type == C_XMLTAG' failed");
  KeyPath binding("/config/access-list/interface{eth0}/ingress{P}");
  binding.v[0][0].type = C_INT32;
  EXPECT_DEATH(manager_.HandleInterfaceAcl(&binding, MOP_CREATED, nullptr),
               "confd_manager:[0-9]+: .*`\\(&kp->v\\[0\\]\\[0\\]\\)->type == C_BUF' failed");
  binding.FromTop(4)->type = C_INT32;
  EXPECT_DEATH(manager_.HandleInterface(&binding, MOP_CREATED),
               key + "0\\]\\)->type == C_BUF' failed");
  for (confd_iter_op operation : {MOP_VALUE_SET, MOP_MODIFIED}) {
    EXPECT_DEATH(manager_.HandleAclPrio(&path, operation, Value("u8 1")),
                 "confd_manager:[0-9]+: .*`\\(newv\\)->type == C_INT32' failed");
  }
}

using InterfaceChangesTest = ManagerTest;

TEST_F(InterfaceChangesTest, InterfacesAndBindings) {
  filter_->CreateInterface("eth0");
  filter_->AddAclIntoInterface("eth0", "P");
  platform_.Take();
  RunChanges("/config/access-list/", R"(
      created interface{gi 1/1/%s}
        log HandleInterface - creating interface gi 1/1/%s
        model CreateInterface gi 1/1/%s ! HandleInterface - error creating interface gi 1/1/%s
      created interface{eth0}
        log HandleInterface - creating interface eth0
        model CreateInterface eth0 ! HandleInterface - error creating interface eth0
      deleted interface{unknown}
        log HandleInterface - removing interface unknown ; model RemoveInterface unknown
      modified interface{eth0} ; log HandleInterface - nothing to do (operation 3)
      set interface{eth0} ; log HandleInterface - nothing to do (operation 4)
      created interface{eth0}/ingress{Q %d}
        model AddAclIntoInterface eth0 Q %d ! HandleInterfaceAcl - error adding ACL Q %d into interface eth0
        log HandleInterfaceAcl - adding ACL Q %d into interface eth0
      deleted interface{eth0}/ingress{P}
        model RemoveAclFromInterface eth0 P ! HandleInterfaceAcl - error removing ACL P from interface eth0
        log HandleInterfaceAcl - removing ACL P from interface eth0
        log HandleInterfaceAcl - nothing to do (operation 2)
      set interface{eth0}/ingress{P} ; log HandleInterfaceAcl - nothing to do (operation 4)
      set interface{eth0}/unknown ; log AclInterfacesDiffIt - nothing to do (xmltag 74565)
      modified access-list ; log AclInterfacesDiffIt - nothing to do (xmltag 1900334689)
      created interface ; log HandleInterface - error parsing interface name)");
  EXPECT_EQ(Dump(*filter_), Lines({"eth0 binds Q %d", "gi 1/1/%s binds"}));
  ExpectChange("created /config/access-list/ingress", ITER_CONTINUE,
               {"log HandleInterfaceAcl - error parsing interface name"});
}

// The tags are part of the interface: other programs of the element know them.
TEST(TagsTest, AreThoseOfTheNamespace) {
  std::istringstream tags(R"(
      access-list 7144ce61 priority 503e91e6 access-list-entry 2fee653f match 598628e6
      action 2216416f source-mac-address 56ffb85b source-mac-address-mask 2668bcbc vlan 0442b85d
      destination-mac-address 20545f04 destination-mac-address-mask 49f0ce61 tos 71951d84
      ethertype 6623e796 pcp 0e19fc28 dscp 42a50984 source-ipv4-address 112d8cb2 ip 61fa2cdb
      destination-ipv4-address 2ff6a7b6 ip-protocol 30a8400a destination-port 6475b955
      deny 3d51e752 permit 71588c03 interface 0d34ee32 ingress 55e10b17 unknown 00012345)");
  uint32_t tag;
  for (std::string name; tags >> name >> std::hex >> tag;) {
    EXPECT_EQ(Value(name)->val.xmltag.tag, tag) << name;
  }
  EXPECT_EQ(yang_tags::kNamespace, 1543965233);
}

}  // namespace
}  // namespace acl_test
