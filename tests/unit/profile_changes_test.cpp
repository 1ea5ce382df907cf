// Changes of profiles, entries, matches and actions that a commit makes.
#include "tests/support/core_fixtures.h"
#include "yang_tags.h"

namespace acl_test {
namespace {

constexpr char kRoot[] = "/config/access-list/acl-profile/ingress/";
constexpr char kMatch[] =
    "/config/access-list/acl-profile/ingress/access-list{0 P}/access-list-entry{5}/match/";

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
      created $odd ; log HandleAcl - creating ACL profile a%s b of type 1
        model CreateAclProfile 1 a%s b
      deleted $odd ; log HandleAcl - removing ACL profile a%s b of type 1
        model RemoveAclProfile a%s b
      modified $P ; log HandleAcl - nothing to do (operation 3)
      set $P ; log HandleAcl - nothing to do (operation 4)
      created $Q ; log HandleAcl - creating ACL profile Q of type 0 ; model CreateAclProfile 0 Q
      set $Q/acl-priority-l2/priority = int32 65537
        log HandleAclPrio - setting prio 65537 on ACL profile Q ; model SetAclPrio Q 65537
      created $Q/acl-priority-l2/priority = int32 1
        log HandleAclPrio - nothing to do (operation 1)
      deleted $Q/acl-priority-l3/priority
        log HandleAclPrio - removing prio of ACL profile Q ; model RemoveAclProfile Q
      created $P/access-list-entry{7}
        log HandleEntry - creating entry 7 on ACL profile P ; model CreateEntry P 7
      deleted $P/access-list-entry{7}
        log HandleEntry - removing entry 7 from ACL profile P ; model RemoveEntry P 7
      modified $P/access-list-entry{5} ; log HandleEntry - nothing to do (operation 3)
      7 $P/access-list-entry{5} ; log HandleEntry - nothing to do (operation 7)
      set $P/acl-name = "P" ; set $P/acl-type = enum 0 ; modified $P/acl-priority-l2
      set $P/access-list-entry{5}/ace-priority = int32 5 ; modified $P/access-list-entry{5}/match
      modified $P/access-list-entry{5}/match/source-ipv4-address/mask
      modified $P/access-list-entry{5}/action/set)",
      {{"$odd", "access-list{1 a%s b}"}, {"$P", "access-list{0 P}"}, {"$Q", "access-list{0 Q}"}});
  EXPECT_EQ(Dump(*filter_), Text("P type 6 priority 10 id 10 stage 1 ; P 5/0 ->"));
  const std::string priority = std::string(kRoot) + "access-list{0 P}/acl-priority-l2/priority";
  EXPECT_EQ(Change("modified " + priority + " = int32 11"), ITER_CONTINUE) << "given once";
  EXPECT_EQ(TakeChange(), Text(R"(
      log HandleAclPrio - setting prio 11 on ACL profile P ; model SetAclPrio P 11)"));
}

TEST_F(ProfileChangesTest, Actions) {
  RunChanges(std::string(kRoot) + "access-list{0 P}/access-list-entry{5}/action/", R"(
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

// What setting and removing a match of kind $kind makes; $value1 and $value2 are given to the
// model.
constexpr char kSetMatch[] = R"(
        log HandleMatch - setting match on entry 5 on ACL profile P
        model RemoveMatch P 5 $kind
        refused: HandleMatch - error removing match before recreate it
        model CreateMatch P 5 $kind $value1 $value2
        refused: HandleMatch - error creating match
)";
constexpr char kRemoveMatch[] = R"(
        log HandleMatch - removing match from entry 5 from ACL profile P
        model RemoveMatch P 5 $kind
        refused: HandleMatch - error removing match
)";

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
    std::string changes;
    for (const char* operation : {"created", "set", "modified"}) {
      changes += std::string(operation) + " $leaf = $value1" + kSetMatch;
    }
    changes += "7 $leaf ; log HandleMatch - nothing to do (operation 7) ; deleted $leaf";
    RunChanges(kMatch, changes + kRemoveMatch,
               {{"$leaf", row[0]}, {"$value1", row[1]}, {"$value2", "null"}, {"$kind", row[2]}});
  }
}

// An address and its mask are one match: whichever changes, the other is read.
TEST_F(ProfileChangesTest, MacAddressAndMaskArePaired) {
  const std::string set_address = std::string("set $leaf = $value1") + kSetMatch;
  const std::string set_mask = std::string("set $leaf-mask = $value2") + kSetMatch;
  const std::string remove_address = std::string("deleted $leaf") + kRemoveMatch;
  const std::string remove_mask = std::string("deleted $leaf-mask") + kRemoveMatch;
  const std::string recreate = R"(
        model CreateMatch P 5 $kind $value1 null
        refused: HandleMatch - error recreating match after remove it)";
  for (const Lines& row : Rows("destination-mac-address | 0 \n source-mac-address | 1")) {
    const std::string address = kMatch + row[0];
    Names names = {
        {"$leaf", row[0]}, {"$kind", row[1]}, {"$value1", "0x020000000001"}, {"$value2", "null"}};
    platform_.cdb.clear();  // no partner
    RunChanges(kMatch, set_address + remove_address + remove_mask, names);
    platform_.cdb[address] = names["$value1"];
    RunChanges(kMatch, remove_mask + recreate, names);
    names["$value2"] = "0xffff00000000";
    RunChanges(kMatch, set_mask, names);
    platform_.cdb = {{address + "-mask", names["$value2"]}};
    RunChanges(kMatch, set_address + remove_address, names);
  }
}

TEST_F(ProfileChangesTest, MacPairingReadsBesideTheChangedLeaf) {
  const std::string leaf = std::string(kMatch) + "source-mac-address";
  platform_.cdb[leaf + "-mask"] = "0xffff00000000";
  platform_.On("cdb_get", CONFD_ERR);
  EXPECT_EQ(Change("set " + leaf + " = 0x020000000001"), ITER_CONTINUE);
  EXPECT_EQ(platform_.Take({"open", "cdb", "log", "close"}), Text(R"(
      open 101 1 true ; cdb_set_timeout 5 5 ; cdb_set_timeout 101 5
      log AclProfilesDiffIt - modified path: $leaf
      cdb_cd 101 $leaf ; cdb_cd 101 .. ; cdb_getcwd 101
      cdb_exists 101 $leaf-mask
      cdb_get 101 $leaf-mask
      log HandleMatch - error getting value from $leaf-mask
      close 101)",
                                                                  {{"$leaf", leaf}}));
}

TEST_F(ProfileChangesTest, TimeoutsAreTriedInOrderAndFailuresOnlyLogged) {
  for (const char* failing : {"cdb_set_timeout 101", "cdb_set_timeout 5"}) {
    platform_.On(failing, CONFD_ERR);
    EXPECT_EQ(Change("modified /config/access-list/acl-profile"), ITER_RECURSE);
    Lines expected = Text(R"(
        cdb_set_timeout 5 5 ; cdb_set_timeout 101 5
        log AclProfilesDiffIt - error setting timeout ()
        log AclProfilesDiffIt - modified path: /config/access-list/acl-profile)");
    if (StartsWith(expected[0], failing)) expected.erase(expected.begin() + 1);
    EXPECT_EQ(platform_.Take({"cdb_", "log"}), expected);
  }
}

TEST_F(ProfileChangesTest, MalformedKeypaths) {
  for (const Lines& row : Rows(R"(
      deny                  | 1 | AclProfilesDiffIt - wrong keypath
      $entry/set/pcp        | 3 | AclProfilesDiffIt - unknown match or action. cmltag 236583976
      $entry/action/deny    | 1 | HandleAction - wrong keypath
      $entry/action/set/tos | 1 | HandleAction - wrong keypath
      access-list           | 3 | HandleAcl - error parsing ACL keys
      priority              | 3 | HandleAclPrio - error parsing ACL name
      $short                | 3 | HandleEntry - error parsing ACL keys)",
                               {{"$entry", "access-list{0 P}/access-list-entry{5}"},
                                {"$short", "access-list{0 P}/access-list-entry"}})) {
    EXPECT_EQ(std::to_string(Change("created " + (kRoot + row[0]))), row[1]) << row[0];
    EXPECT_EQ(TakeChange(), Text("log " + row[2])) << row[0];
  }
  const KeyPath list(std::string(kRoot) + "access-list{0 P}/access-list-entry");
  EXPECT_EQ(manager_.HandleMatch(101, &list, MOP_CREATED, nullptr), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleAction(&list, MOP_CREATED, nullptr), ITER_CONTINUE);
  const KeyPath match(std::string(kRoot) + "access-list{0 P}/access-list-entry{5}/match");
  EXPECT_EQ(manager_.HandleMatch(101, &match, MOP_CREATED, nullptr), ITER_CONTINUE);
  EXPECT_EQ(TakeEffects(), Text(R"(
      log HandleMatch - error parsing ACL keys
      log HandleAction - error parsing ACL keys
      log HandleMatch - wrong keypath)"));
}

TEST_F(ProfileChangesTest, TagIsSearchedUpToTheElementAfterTheLast) {
  KeyPath path(std::string(kRoot) + "access-list{0 P}");
  for (int length : {-1, 0}) {
    path.len = length;
    acl_app::ConfDManagerTestPeer::Changed(manager_) = false;
    EXPECT_EQ(manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr), ITER_STOP);
    EXPECT_EQ(TakeChange(), Text("log AclProfilesDiffIt - wrong keypath"));
    EXPECT_TRUE(acl_app::ConfDManagerTestPeer::Changed(manager_)) << "set by every call";
  }
  path.v[0][0] = *TagOf("unknown").get();
  EXPECT_EQ(manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr), ITER_RECURSE);
}

TEST_F(ProfileChangesTest, UnknownMatchIsNoFailureOfTheGetter) {
  auto kind = acl_app::ACL_MATCH_TOS;
  KeyPath path(std::string(kMatch) + "unknown");
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), 0);
  EXPECT_EQ(kind, acl_app::ACL_MATCH_TOS) << "left unchanged";
  path.v[0][0].type = C_INT32;
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), -1);
}

TEST_F(ProfileChangesTest, KeysAndValuesOfAWrongTypeAreAssertions) {
  KeyPath path(std::string(kMatch) + "vlan");
  const Value wrong("u8 1");
  const auto with_wrong_key = [&](int position, int key) {
    path.FromTop(position)[key].type = C_UINT8;
    manager_.HandleAcl(&path, MOP_CREATED);
    manager_.HandleEntry(&path, MOP_CREATED);
    manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr);
  };
  const std::string key0 = "Assertion `\\(&kp->v\\[depth\\]\\[0\\]\\)->type == ";
  EXPECT_DEATH(with_wrong_key(6, 1), "Assertion `\\(&kp->v\\[depth\\]\\[1\\]\\)->type == C_BUF' ");
  EXPECT_DEATH(with_wrong_key(6, 0), key0 + "C_ENUM_VALUE' failed");
  EXPECT_DEATH(with_wrong_key(8, 0), key0 + "C_INT32' failed");
  EXPECT_DEATH(with_wrong_key(9, 0),
               "Assertion `\\(&\\(kp->v\\[depth\\]\\[0\\]\\)\\)->type == C_XMLTAG' failed");
  for (confd_iter_op operation : {MOP_VALUE_SET, MOP_MODIFIED}) {
    EXPECT_DEATH(manager_.HandleAclPrio(&path, operation, wrong.get()),
                 "Assertion `\\(newv\\)->type == C_INT32' failed");
  }
}

// The tags are part of the interface: other programs of the element know them.
TEST(TagsTest, AreThoseOfTheNamespace) {
  for (const Lines& row : Rows(R"(
      access-list          | 7144ce61 | priority                     | 503e91e6
      access-list-entry    | 2fee653f | match                        | 598628e6
      action               | 2216416f | destination-mac-address      | 20545f04
      source-mac-address   | 56ffb85b | destination-mac-address-mask | 49f0ce61
      vlan                 | 0442b85d | source-mac-address-mask      | 2668bcbc
      ethertype            | 6623e796 | pcp                          | 0e19fc28
      dscp                 | 42a50984 | tos                          | 71951d84
      source-ipv4-address  | 112d8cb2 | destination-ipv4-address     | 2ff6a7b6
      ip                   | 61fa2cdb | ip-protocol                  | 30a8400a
      destination-port     | 6475b955 | deny                         | 3d51e752
      permit               | 71588c03 | interface                    | 0d34ee32
      ingress              | 55e10b17 | unknown                      | 00012345)")) {
    for (size_t i : {0, 2}) {
      EXPECT_EQ(TagOf(row[i]).get()->val.xmltag.tag, std::stoul(row[i + 1], nullptr, 16)) << row[i];
    }
  }
  EXPECT_EQ(yang_tags::kNamespace, 1543965233);
}

}  // namespace
}  // namespace acl_test
