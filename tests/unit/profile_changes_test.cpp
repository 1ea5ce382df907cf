// Changes of profiles, entries, matches and actions that a commit makes.
#include "tests/support/change_test.h"
#include "yang_tags.h"

namespace acl_test {
namespace {

using acl_app::aclFiltersMatch_t;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kRoot[] = "/config/access-list/acl-profile/ingress/";
constexpr char kEntry[] = "access-list{0 P}/access-list-entry{5}";
const Value kAddress = Binary({2, 0, 0, 0, 0, 1});
const Value kMask = Binary({255, 255, 0, 0, 0, 0});
constexpr char kAddressText[] = "0x020000000001";
constexpr char kMaskText[] = "0xffff00000000";

class ProfileChangesTest : public ChangeTest {
 protected:
  ProfileChangesTest() : ChangeTest(0, kRoot) {
    filter_->CreateAclProfile(0, "P");
    filter_->SetAclPrio("P", 10);
    filter_->CreateEntry("P", 5);
    platform_.Take();
  }
};

TEST_F(ProfileChangesTest, ProfilesPrioritiesAndEntries) {
  Run({
      {"access-list{1 a%s b}",
       MOP_CREATED,
       {},
       {"log HandleAcl - creating ACL profile a%s b of type 1", "model CreateAclProfile 1 a%s b"},
       {""}},
      {"access-list{1 a%s b}",
       MOP_DELETED,
       {},
       {"log HandleAcl - removing ACL profile a%s b of type 1", "model RemoveAclProfile a%s b"},
       {""}},
      {"access-list{0 P}", MOP_MODIFIED, {}, {"log HandleAcl - nothing to do (operation 3)"}},
      {"access-list{0 P}", MOP_VALUE_SET, {}, {"log HandleAcl - nothing to do (operation 4)"}},
      {"access-list{0 Q}",
       MOP_CREATED,
       {},
       {"log HandleAcl - creating ACL profile Q of type 0", "model CreateAclProfile 0 Q"},
       {""}},
      {"access-list{0 Q}/acl-priority-l2/priority",
       MOP_VALUE_SET,
       Int32(65537),
       {"log HandleAclPrio - setting prio 65537 on ACL profile Q", "model SetAclPrio Q 65537"},
       {""}},
      {"access-list{0 Q}/acl-priority-l2/priority",
       MOP_CREATED,
       Int32(1),
       {"log HandleAclPrio - nothing to do (operation 1)"}},
      {"access-list{0 Q}/acl-priority-l3/priority",
       MOP_DELETED,
       {},
       {"log HandleAclPrio - removing prio of ACL profile Q", "model RemoveAclProfile Q"},
       {""}},
      {"access-list{0 P}/access-list-entry{7}",
       MOP_CREATED,
       {},
       {"log HandleEntry - creating entry 7 on ACL profile P", "model CreateEntry P 7"},
       {""}},
      {"access-list{0 P}/access-list-entry{7}",
       MOP_DELETED,
       {},
       {"log HandleEntry - removing entry 7 from ACL profile P", "model RemoveEntry P 7"},
       {""}},
      {kEntry, MOP_MODIFIED, {}, {"log HandleEntry - nothing to do (operation 3)"}},
      {kEntry, 7, {}, {"log HandleEntry - nothing to do (operation 7)"}},
      // Nodes that nobody tracks.
      {"access-list{0 P}/acl-name", MOP_VALUE_SET, Buf("P"), {}},
      {"access-list{0 P}/acl-type", MOP_VALUE_SET, Enum(0), {}},
      {"access-list{0 P}/acl-priority-l2", MOP_MODIFIED, {}, {}},
      {std::string(kEntry) + "/ace-priority", MOP_VALUE_SET, Int32(5), {}},
      {std::string(kEntry) + "/match", MOP_MODIFIED, {}, {}},
      {std::string(kEntry) + "/match/source-ipv4-address/mask", MOP_MODIFIED, {}, {}},
      {std::string(kEntry) + "/action/set", MOP_MODIFIED, {}, {}},
  });
}

TEST_F(ProfileChangesTest, PriorityIsAlsoSetByModification) {
  EXPECT_EQ(Change("access-list{0 P}/acl-priority-l2/priority", MOP_MODIFIED, Int32(11)),
            ITER_CONTINUE)
      << "a profile has its priority once";
  EXPECT_THAT(TakeChange(), ElementsAre("log HandleAclPrio - setting prio 11 on ACL profile P",
                                        "model SetAclPrio P 11"));
}

TEST_F(ProfileChangesTest, Actions) {
  const std::string remove = "log HandleAction - removing action from entry 5 from ACL profile P";
  const std::string set = "log HandleAction - setting action on entry 5 on ACL profile P";
  const std::string deny = std::string(kEntry) + "/action/packet-handling/deny";
  const std::string permit = std::string(kEntry) + "/action/packet-handling/permit";
  const std::string pcp = std::string(kEntry) + "/action/set/pcp";
  Run({
      {deny,
       MOP_CREATED,
       {},
       {set, "model RemoveAction P 5 1", "model CreateAction P 5 1 null"},
       {"", ""}},
      {permit,
       MOP_MODIFIED,
       {},
       {set, "model RemoveAction P 5 0", "model CreateAction P 5 0 null"},
       {"", ""}},
      {pcp,
       MOP_VALUE_SET,
       U8(3),
       {set, "model RemoveAction P 5 6", "model CreateAction P 5 6 u8 3"},
       {"", ""}},
      {pcp,
       MOP_VALUE_SET,
       U8(4),
       {set, "model RemoveAction P 5 6", "model CreateAction P 5 6 u8 4"},
       {"", ""}},
      {deny, MOP_DELETED, {}, {remove, "model RemoveAction P 5 1"}, {""}},
      {permit, MOP_DELETED, {}, {remove, "model RemoveAction P 5 0"}, {""}},
      {deny, 7, {}, {"log HandleAction - nothing to do (operation 7)"}},
  });
  EXPECT_THAT(Describe(Model::Profiles(*filter_).at("P")), ElementsAre("5/0 -> set-pcp 4"));
}

TEST_F(ProfileChangesTest, PlainMatches) {
  const std::string match = std::string(kEntry) + "/match/";
  const struct {
    const char* leaf;
    Value value;
    int kind;
  } rows[] = {
      {"vlan", U16(100), 2},
      {"ethertype", Buf("8100"), 3},
      {"pcp", U8(1), 4},
      {"dscp", U8(10), 5},
      {"tos", U8(9), 6},
      {"source-ipv4-address/no-mask/ip", Ipv4("10.0.0.1"), 7},
      {"source-ipv4-address/mask/ip", Prefix("10.0.0.1", 8), 7},
      {"destination-ipv4-address/no-mask/ip", Ipv4("10.0.0.1"), 8},
      {"destination-ipv4-address/mask/ip", Prefix("10.0.0.1", 8), 8},
      {"ip-protocol", Enum(6), 9},
      {"destination-port", U16(80), 10},
  };
  for (const auto& row : rows) {
    const std::string kind = std::to_string(row.kind);
    const std::string set = "log HandleMatch - setting match on entry 5 on ACL profile P";
    const Lines effects = {
        set, "model RemoveMatch P 5 " + kind,
        "model CreateMatch P 5 " + kind + ' ' + ToText(row.value.get()) + " null"};
    const Lines on_refusal = {"log HandleMatch - error removing match before recreate it",
                              "log HandleMatch - error creating match"};
    Run({{match + row.leaf, MOP_CREATED, row.value, effects, on_refusal},
         {match + row.leaf, MOP_VALUE_SET, row.value, effects, on_refusal},
         {match + row.leaf, MOP_MODIFIED, row.value, effects, on_refusal},
         {match + row.leaf, 7, {}, {"log HandleMatch - nothing to do (operation 7)"}},
         {match + row.leaf,
          MOP_DELETED,
          {},
          {"log HandleMatch - removing match from entry 5 from ACL profile P",
           "model RemoveMatch P 5 " + kind},
          {"log HandleMatch - error removing match"}}});
  }
}

// An address and its mask are one match: whichever changes, the other is read.
TEST_F(ProfileChangesTest, MacAddressAndMaskArePaired) {
  const std::string set = "log HandleMatch - setting match on entry 5 on ACL profile P";
  const std::string remove = "log HandleMatch - removing match from entry 5 from ACL profile P";
  const Lines on_set_refusal = {"log HandleMatch - error removing match before recreate it",
                                "log HandleMatch - error creating match"};
  const std::string match = std::string(kEntry) + "/match/";
  for (const auto& [leaf, kind] :
       {std::pair("destination-mac-address", "0"), std::pair("source-mac-address", "1")}) {
    SCOPED_TRACE(leaf);
    const std::string address = match + leaf;
    const std::string mask = address + "-mask";
    const std::string removed = std::string("model RemoveMatch P 5 ") + kind;
    const std::string created = std::string("model CreateMatch P 5 ") + kind + ' ';
    const std::string pair = created + kAddressText + ' ' + kMaskText;
    const std::string alone = created + kAddressText + " null";

    platform_.cdb.clear();
    Run({{address, MOP_VALUE_SET, kAddress, {set, removed, alone}, on_set_refusal},
         {address,
          MOP_DELETED,
          {},
          {remove, removed},
          {"log HandleMatch - error removing match"}}});
    platform_.cdb[kRoot + mask] = kMask;
    Run({{address, MOP_VALUE_SET, kAddress, {set, removed, pair}, on_set_refusal},
         {address,
          MOP_DELETED,
          {},
          {remove, removed},
          {"log HandleMatch - error removing match"}}});
    platform_.cdb.clear();
    platform_.cdb[kRoot + address] = kAddress;
    Run({{mask, MOP_VALUE_SET, kMask, {set, removed, pair}, on_set_refusal},
         {mask,
          MOP_DELETED,
          {},
          {remove, removed, alone},
          {"log HandleMatch - error removing match",
           "log HandleMatch - error recreating match after remove it"}}});
    platform_.cdb.clear();  // the address went in the same commit
    Run({{mask, MOP_DELETED, {}, {remove, removed}, {"log HandleMatch - error removing match"}}});
  }
}

TEST_F(ProfileChangesTest, MacPairingReadsBesideTheChangedLeaf) {
  const std::string address = std::string(kEntry) + "/match/source-mac-address";
  const std::string path = kRoot + address;
  platform_.cdb[path + "-mask"] = kMask;
  platform_.On("cdb_get", CONFD_ERR);
  EXPECT_EQ(Change(address, MOP_VALUE_SET, kAddress), ITER_CONTINUE);
  EXPECT_THAT(
      platform_.Take(),
      ElementsAre("open 101 1 true", "cdb_set_timeout 5 5", "cdb_set_timeout 101 5",
                  "log AclProfilesDiffIt - modified path: " + path, "cdb_cd 101 " + path,
                  "cdb_cd 101 ..", "cdb_getcwd 101", "cdb_exists 101 " + path + "-mask",
                  "cdb_get 101 " + path + "-mask",
                  "log HandleMatch - error getting value from " + path + "-mask", "close 101"));
}

TEST_F(ProfileChangesTest, TimeoutsAreTriedInOrderAndFailuresOnlyLogged) {
  for (const char* failing : {"cdb_set_timeout 5", "cdb_set_timeout 101"}) {
    platform_.EndRules();
    platform_.On(failing, CONFD_ERR);
    EXPECT_EQ(Change("access-list{0 P}/acl-name", MOP_VALUE_SET), ITER_RECURSE);
    Lines expected = {"cdb_set_timeout 5 5", "cdb_set_timeout 101 5",
                      "log AclProfilesDiffIt - error setting timeout ()",
                      std::string("log AclProfilesDiffIt - modified path: ") + kRoot +
                          "access-list{0 P}/acl-name"};
    if (std::string(failing) == "cdb_set_timeout 5") expected.erase(expected.begin() + 1);
    EXPECT_EQ(platform_.Take({"cdb_", "log"}), expected);
  }
}

TEST_F(ProfileChangesTest, MalformedKeypaths) {
  const std::string action = std::string(kEntry) + "/action";
  const struct {
    std::string path;
    std::string logged;
    confd_iter_ret result;
  } rows[] = {
      {"deny-all", "", ITER_RECURSE},
      {std::string(kEntry) + "/set/pcp",
       "log AclProfilesDiffIt - unknown match or action. cmltag " + TagNumber("pcp"),
       ITER_CONTINUE},
      {action + "/deny", "log HandleAction - wrong keypath", ITER_STOP},
      {action + "/set/vlan", "log HandleAction - wrong keypath", ITER_STOP},
  };
  for (const auto& row : rows) {
    EXPECT_EQ(Change(row.path, MOP_CREATED, U8(1)), row.result) << row.path;
    EXPECT_EQ(TakeChange(), row.logged.empty() ? Lines() : Lines{row.logged}) << row.path;
  }
  KeyPath tagless(std::string(kRoot) + "access-list{0 P}");
  for (int length : {-1, 0}) {
    tagless.len = length;
    EXPECT_EQ(manager_.AclProfilesDiffIt(&tagless, MOP_CREATED, nullptr, nullptr), ITER_STOP);
    EXPECT_THAT(TakeChange(), ElementsAre("log AclProfilesDiffIt - wrong keypath"));
  }
  KeyPath at_len("/config");  // the search includes the element after the last
  at_len.len = 0;
  EXPECT_EQ(manager_.AclProfilesDiffIt(&at_len, MOP_CREATED, nullptr, nullptr), ITER_RECURSE);
  EXPECT_TRUE(acl_app::ConfDManagerTestPeer::Changed(manager_)) << "set by every call";
}

TEST_F(ProfileChangesTest, TooShortKeypathsOfTheHandlers) {
  const KeyPath list("/config/access-list/acl-profile/ingress/access-list");
  const KeyPath name("/config/access-list/acl-profile/ingress/access-list{0 P}");
  const Value value = Int32(1);
  TakeEffects();
  EXPECT_EQ(manager_.HandleAcl(&list, MOP_CREATED), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleAclPrio(&list, MOP_DELETED, nullptr), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleEntry(&list, MOP_CREATED), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleEntry(&name, MOP_CREATED), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleAction(&name, MOP_CREATED, value.get()), ITER_CONTINUE);
  EXPECT_EQ(manager_.HandleMatch(101, &name, MOP_CREATED, value.get()), ITER_CONTINUE);
  EXPECT_THAT(TakeEffects(), ElementsAre("log HandleAcl - error parsing ACL keys",
                                         "log HandleAclPrio - error parsing ACL name",
                                         "log HandleEntry - error parsing ACL keys",
                                         "log HandleEntry - error parsing ACL keys",
                                         "log HandleAction - error parsing ACL keys",
                                         "log HandleMatch - error parsing ACL keys"));
  const KeyPath match(std::string(kRoot) + kEntry + "/match");
  EXPECT_EQ(manager_.HandleMatch(101, &match, MOP_CREATED, value.get()), ITER_CONTINUE);
  EXPECT_THAT(TakeEffects(), ElementsAre("log HandleMatch - wrong keypath"));
}

TEST_F(ProfileChangesTest, Getters) {
  KeyPath path(std::string(kRoot) + kEntry + "/match/vlan");
  std::string name;
  int number = -7;
  auto kind = static_cast<aclFiltersMatch_t>(99);
  FiltersCommon::filtersAction_t action;
  EXPECT_EQ(manager_.GetAclNameFromKeypath(&path, name), 0);
  EXPECT_EQ(name, "P");
  EXPECT_EQ(manager_.GetAclTypeFromKeypath(&path, number), 0);
  EXPECT_EQ(number, 0);
  EXPECT_EQ(manager_.GetEntryPrioFromKeypath(&path, number), 0);
  EXPECT_EQ(number, 5);
  EXPECT_EQ(manager_.GetMatchXmltagFromKeypath(&path, number), 0);
  EXPECT_EQ(std::to_string(number), TagNumber("vlan"));
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), 0);
  EXPECT_EQ(kind, acl_app::ACL_MATCH_VLAN);
  EXPECT_EQ(manager_.GetActionTypeFromKeypath(&path, action), -1) << "too short";
  confd_value_t node{};
  EXPECT_EQ(manager_.GetModifiedNodeFromKeypath(&path, &node), 0);
  EXPECT_EQ(std::to_string(node.val.xmltag.tag), TagNumber("vlan"));

  path.v[0][0] = *Tag("unknown").get();
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), 0) << "no failure";
  EXPECT_EQ(kind, acl_app::ACL_MATCH_VLAN) << "left unchanged";
  path.v[0][0] = *Int32(1).get();
  EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), -1);
  EXPECT_EQ(manager_.GetMatchXmltagFromKeypath(&path, number), -1);
  EXPECT_EQ(manager_.GetModifiedNodeFromKeypath(&path, &node), 0);
  EXPECT_EQ(std::to_string(node.val.xmltag.tag), TagNumber("match")) << "the deepest tag";
  for (path.len = 9; path.len > 0; --path.len) {
    EXPECT_EQ(manager_.GetMatchTypeFromKeypath(&path, kind), -1) << path.len;
    EXPECT_EQ(manager_.GetActionTypeFromKeypath(&path, action), -1) << path.len;
    if (path.len >= 8) continue;
    EXPECT_EQ(manager_.GetEntryPrioFromKeypath(&path, number), -1) << path.len;
    if (path.len >= 6) continue;
    EXPECT_EQ(manager_.GetAclTypeFromKeypath(&path, number), -1) << path.len;
    EXPECT_EQ(manager_.GetAclNameFromKeypath(&path, name), -1) << path.len;
  }
}

TEST_F(ProfileChangesTest, KeysAndValuesOfAWrongTypeAreAssertions) {
  const std::string depth0 = "Assertion `\\(&kp->v\\[depth\\]\\[0\\]\\)->type == ";
  KeyPath path(std::string(kRoot) + kEntry + "/match/vlan");
  const auto with = [&](int from_top, int key, auto call) {
    path.v[path.len - from_top][key].type = C_UINT8;
    call();
  };
  EXPECT_DEATH(with(6, 1, [&] { manager_.HandleAcl(&path, MOP_CREATED); }),
               "Assertion `\\(&kp->v\\[depth\\]\\[1\\]\\)->type == C_BUF' failed");
  EXPECT_DEATH(with(6, 0, [&] { manager_.HandleAcl(&path, MOP_CREATED); }),
               depth0 + "C_ENUM_VALUE' failed");
  EXPECT_DEATH(with(8, 0, [&] { manager_.HandleEntry(&path, MOP_CREATED); }),
               depth0 + "C_INT32' failed");
  EXPECT_DEATH(
      with(9, 0, [&] { manager_.AclProfilesDiffIt(&path, MOP_CREATED, nullptr, nullptr); }),
      "Assertion `\\(&\\(kp->v\\[depth\\]\\[0\\]\\)\\)->type == C_XMLTAG' failed");
  const Value wrong = U8(1);
  for (confd_iter_op operation : {MOP_VALUE_SET, MOP_MODIFIED}) {
    EXPECT_DEATH(manager_.HandleAclPrio(&path, operation, wrong.get()),
                 "Assertion `\\(newv\\)->type == C_INT32' failed");
  }
}

// The tags are part of the interface: other programs of the element know them.
TEST(TagsTest, AreThoseOfTheNamespace) {
  const std::map<std::string, uint32_t> known = {
      {"access-list", 0x7144ce61},
      {"priority", 0x503e91e6},
      {"access-list-entry", 0x2fee653f},
      {"match", 0x598628e6},
      {"action", 0x2216416f},
      {"destination-mac-address", 0x20545f04},
      {"destination-mac-address-mask", 0x49f0ce61},
      {"source-mac-address", 0x56ffb85b},
      {"source-mac-address-mask", 0x2668bcbc},
      {"vlan", 0x0442b85d},
      {"ethertype", 0x6623e796},
      {"pcp", 0x0e19fc28},
      {"dscp", 0x42a50984},
      {"tos", 0x71951d84},
      {"source-ipv4-address", 0x112d8cb2},
      {"destination-ipv4-address", 0x2ff6a7b6},
      {"ip", 0x61fa2cdb},
      {"ip-protocol", 0x30a8400a},
      {"destination-port", 0x6475b955},
      {"deny", 0x3d51e752},
      {"permit", 0x71588c03},
      {"interface", 0x0d34ee32},
      {"ingress", 0x55e10b17},
  };
  std::map<std::string, uint32_t> generated;
  for (const auto& row : yang_tags::kAll) {
    if (known.count(row.name) != 0) generated[row.name] = row.tag;
  }
  EXPECT_EQ(generated, known);
  EXPECT_EQ(yang_tags::kNamespace, 1543965233);
}

}  // namespace
}  // namespace acl_test
