// The model's profiles, entries and interface bindings.
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using namespace acl_app;
using testing::IsEmpty;

using ProfilesTest = ModelTest;

TEST_F(ProfilesTest, NameMustBeNewAndNotEmpty) {
  EXPECT_EQ(model_.CreateAclProfile(0, ""), ACL_ERR_INVALID_ARG);
  EXPECT_EQ(model_.CreateAclProfile(0, "P"), ACL_OK);
  EXPECT_EQ(model_.CreateAclProfile(1, "P"), ACL_ERR_EXISTS);
  EXPECT_EQ(model_.SetAclPrio("P", 3), ACL_OK);
  EXPECT_EQ(model_.CreateAclProfile(1, "P"), ACL_ERR_EXISTS);
  EXPECT_EQ(model_.CreateAclProfile(1, "p"), ACL_OK) << "names are case-sensitive";
  EXPECT_EQ(Dump(model_), Text(R"(
      p pending type 4
      P type 6 priority 3 id 3 stage 1)"));
}

TEST_F(ProfilesTest, UnknownTypeIsRefusedOnlyWithThePriority) {
  for (int type : {0, 1, 2, -1}) {
    const std::string name = "P" + std::to_string(type);
    AddProfile(name, type, -1, {4});
    EXPECT_EQ(Model::PreCreated(model_).at(name).type, model_.ConfdType2FilterCommon(type));
    EXPECT_EQ(model_.SetAclPrio(name, 1), type == 0 || type == 1 ? ACL_OK : ACL_ERR_FILTERS);
  }
  EXPECT_EQ(Dump(model_), Text(R"(
      P-1 pending type 0
      P-1 4/0 ->
      P2 pending type 0
      P2 4/0 ->
      P0 type 6 priority 1 id 1 stage 1
      P0 4/0 ->
      P1 type 4 priority 1 id 1 stage 1
      P1 4/0 ->)"));
}

TEST_F(ProfilesTest, PriorityIsGivenOnceAndCutTo16Bits) {
  EXPECT_EQ(model_.SetAclPrio("P", 3), ACL_ERR_NOT_FOUND);
  AddProfile("P", 0, 65536 + 7, {5, 1});
  EXPECT_EQ(model_.SetAclPrio("P", 8), ACL_ERR_PRIO_SET);
  AddProfile("Q", 1, 7);
  EXPECT_EQ(Dump(model_), Text(R"(
      P type 6 priority 7 id 7 stage 1
      P 1/0 ->
      P 5/0 ->
      Q type 4 priority 7 id 7 stage 1)"));
}

TEST_F(ProfilesTest, RemovalWorksInBothStagesAndKeepsBindings) {
  AddProfile("P", 0, 1, {1});
  AddProfile("Q", 0, -1, {1});
  Bind("eth0", {"P", "Q"});
  for (const char* name : {"P", "Q", "Q", "unknown"}) {
    EXPECT_EQ(model_.RemoveAclProfile(name), ACL_OK) << name;
  }
  EXPECT_EQ(Dump(model_), Text("eth0 binds P Q"));
}

// Entries are handled alike before (-1) and after a profile has its priority.
class EntriesTest : public ModelTest, public testing::WithParamInterface<int> {};
INSTANTIATE_TEST_SUITE_P(Stages, EntriesTest, testing::Values(-1, 10));

TEST_P(EntriesTest, IdIsTheLow16BitsOfThePriority) {
  AddProfile("P", 0, GetParam(), {65541, -1});
  const Lines before = Dump(model_);
  EXPECT_EQ(model_.CreateEntry("P", 5), ACL_ERR_EXISTS);
  EXPECT_EQ(model_.CreateEntry("unknown", 6), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveEntry("P", 6), GetParam() < 0 ? ACL_OK : ACL_ERR_FILTERS);
  EXPECT_EQ(model_.RemoveEntry("unknown", 5), ACL_OK);
  EXPECT_EQ(Dump(model_), before);
  EXPECT_EQ(model_.RemoveEntry("P", 5 + 2 * 65536), ACL_OK);
  EXPECT_EQ(EntryText("P", 5), "none");
  EXPECT_EQ(EntryText("P", 65535), "->");
}

TEST_P(EntriesTest, LookUpsGiveCopies) {
  AddProfile("P", 0, GetParam(), {5, 9});
  AddProfile("empty", 0, GetParam());
  std::map<unsigned short, FiltersCommon::FiltersEntry> entries;
  ASSERT_EQ(model_.GetEntriesMap("P", entries), ACL_OK);
  EXPECT_EQ(model_.GetEntriesMap("unknown", entries), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(entries.size(), 2u) << "left as it was";
  EXPECT_EQ(model_.GetEntriesMap("empty", entries), ACL_OK);
  EXPECT_THAT(entries, IsEmpty()) << "replaced, not added to";

  std::shared_ptr<FiltersCommon::FiltersEntry> entry;
  ASSERT_EQ(model_.GetEntry("P", 65536 + 9, entry), ACL_OK);
  entry->setAction(FiltersCommon::ActionDeny());
  EXPECT_EQ(EntryText("P", 9), "->") << "the copy is detached";
  EXPECT_EQ(model_.GetEntry("P", 6, entry), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.GetEntry("empty", 5, entry), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.GetEntry("unknown", 5, entry), ACL_ERR_NOT_FOUND);
}

using InterfacesTest = ModelTest;

TEST_F(InterfacesTest, BindingsAreASetInNameOrder) {
  Bind("eth0", {"b", "a", "b"});
  EXPECT_EQ(model_.CreateInterface("eth0"), ACL_ERR_EXISTS);
  EXPECT_EQ(model_.CreateInterface("Eth0"), ACL_OK);
  EXPECT_EQ(Dump(model_), Lines({"Eth0 binds", "eth0 binds a b"}));
  EXPECT_EQ(model_.RemoveAclFromInterface("eth0", "b"), ACL_OK);
  EXPECT_EQ(model_.RemoveAclFromInterface("eth0", "b"), ACL_OK) << "not bound is no error";
  EXPECT_EQ(Dump(model_), Lines({"Eth0 binds", "eth0 binds a"}));
  EXPECT_EQ(model_.ClearAclsFromInterface("eth0"), ACL_OK);
  EXPECT_EQ(model_.ClearAclsFromInterface("eth0"), ACL_OK);
  EXPECT_EQ(Dump(model_), Lines({"Eth0 binds", "eth0 binds"}));
}

TEST_F(InterfacesTest, OnlyRemovalAcceptsAnUnknownInterface) {
  Bind("eth0", {"a"});
  EXPECT_EQ(model_.RemoveInterface("eth1"), ACL_OK);
  EXPECT_EQ(model_.ClearAclsFromInterface("eth1"), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.AddAclIntoInterface("eth1", "a"), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.RemoveAclFromInterface("eth1", "a"), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(Dump(model_), Lines({"eth0 binds a"})) << "nothing was created";
  EXPECT_EQ(model_.RemoveInterface("eth0"), ACL_OK);
  EXPECT_EQ(model_.CreateInterface("eth0"), ACL_OK);
  EXPECT_EQ(Dump(model_), Lines({"eth0 binds"})) << "bindings went with the interface";
}

}  // namespace
}  // namespace acl_test
