// The model's profiles, entries and interface bindings.
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ACL_ERR_FILTERS;
using acl_app::ACL_ERR_NOT_FOUND;
using acl_app::ACL_OK;
using testing::IsEmpty;

using ProfilesTest = ModelTest;

TEST_F(ProfilesTest, ProfilesAreCreatedThenGivenTheirPriority) {
  Run(R"(
      CreateAclProfile 0 ''      | -5
      SetAclPrio P 3             | -3
      CreateAclProfile 0 P       | 0
      CreateAclProfile 1 P       | -1
      SetAclPrio P 65543         | 0
      SetAclPrio P 8             | -2
      CreateAclProfile 1 P       | -1
      CreateAclProfile 1 p       | 0
      CreateEntry p 5            | 0
      CreateEntry p 1            | 0
      Model                      | p pending type 4 ; p 1/0 -> ; p 5/0 -> ; P type 6 priority 7 id 7 stage 1
      SetAclPrio p -1            | 0
      RemoveAclProfile P         | 0
      RemoveAclProfile unknown   | 0
      Model                      | p type 4 priority 65535 id 65535 stage 1 ; p 1/0 -> ; p 5/0 ->
      CreateAclProfile 0 Q       | 0
      CreateInterface e          | 0
      AddAclIntoInterface e Q    | 0
      AddAclIntoInterface e p    | 0
      RemoveAclProfile Q         | 0
      RemoveAclProfile p         | 0
      Model                      | e binds Q p)");
}

TEST_F(ProfilesTest, UnknownTypeIsRefusedOnlyWithThePriority) {
  Run(R"(
      CreateAclProfile 2 P       | 0
      CreateEntry P 4            | 0
      SetAclPrio P 1             | -4
      CreateAclProfile -1 Q      | 0
      SetAclPrio Q 1             | -4
      Model                      | P pending type 0 ; P 4/0 -> ; Q pending type 0)");
  EXPECT_EQ(model_.ConfdType2FilterCommon(0), FiltersCommon::FILTERS_GROUP_TYPE_L2);
  EXPECT_EQ(model_.ConfdType2FilterCommon(1), FiltersCommon::FILTERS_GROUP_TYPE_L3);
  EXPECT_EQ(model_.ConfdType2FilterCommon(2), FiltersCommon::FILTERS_GROUP_TYPE_NONE);
}

// Entries are handled alike before and after a profile has its priority, but for one result.
class EntriesTest : public ModelTest, public testing::WithParamInterface<const char*> {
 protected:
  EntriesTest() {
    Run(R"(
      CreateAclProfile 0 A       | 0
      CreateAclProfile 0 P       | 0
      $stage                     | 0)",
        {{"$stage", GetParam()}});
  }
};
INSTANTIATE_TEST_SUITE_P(Stages, EntriesTest,
                         testing::Values("RemoveEntry unknown 5", "SetAclPrio P 1"));

TEST_P(EntriesTest, IdIsTheLow16BitsOfThePriority) {
  Run(R"(
      CreateEntry P 65541        | 0
      CreateEntry P 5            | -1
      CreateEntry P -1           | 0
      CreateEntry unknown 6      | -3
      RemoveEntry unknown 5      | 0
      RemoveEntry P 6            | $absent
      RemoveEntry P 131077       | 0
      RemoveEntry P 5            | $absent)",
      {{"$absent", Model::Profiles(model_).empty() ? "0" : "-4"}});
  EXPECT_EQ(Dump(model_).back(), "P 65535/0 ->");
}

TEST_P(EntriesTest, LookUpsGiveCopies) {
  Run("CreateEntry P 5 | 0 \n CreateEntry P 9 | 0");
  std::map<unsigned short, FiltersCommon::FiltersEntry> entries;
  ASSERT_EQ(model_.GetEntriesMap("P", entries), ACL_OK);
  EXPECT_EQ(model_.GetEntriesMap("unknown", entries), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(entries.size(), 2u) << "left as it was";
  EXPECT_EQ(model_.GetEntriesMap("A", entries), ACL_OK);
  EXPECT_THAT(entries, IsEmpty()) << "replaced, not added to";

  std::shared_ptr<FiltersCommon::FiltersEntry> entry;
  const Lines before = Dump(model_);
  ASSERT_EQ(model_.GetEntry("P", 65536 + 9, entry), ACL_OK);
  EXPECT_EQ(entry->getId(), 9);
  entry->setAction(FiltersCommon::ActionDeny());
  EXPECT_EQ(Dump(model_), before) << "the copy is detached";
  EXPECT_EQ(model_.GetEntry("P", 6, entry), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.GetEntry("A", 5, entry), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(model_.GetEntry("unknown", 5, entry), ACL_ERR_NOT_FOUND);
}

// Operations that insert into a group, each refused by the library.
TEST_F(ProfilesTest, RefusedInsertions) {
  Run("CreateAclProfile 0 P | 0 \n CreateEntry P 5 | 0 \n CreateInterface e | 0");
  const std::string group = "P type 6 priority 1 id 1 stage 1";
  for (const Lines& row : Rows(R"(
      SetAclPrio P 1         | -4 | P pending type 6 ; P 5/0 -> | SetAclPrio P 1
      CreateEntry P 6        | -4 | $P ; P 5/0 ->      | AddAclIntoInterface e P
      CreateMatch P 5 4 u8 1 | -4 | $P ; P 5/0 ->      | CreateMatch P 5 4 u8 1
      RemoveMatch P 5 4      | 0  | $P                 | CreateEntry P 5
      CreateAction P 5 1     | 0  | $P                 | CreateEntry P 5
      RemoveAction P 5 1     | 0  | $P                 | CreateEntry P 5)",
                               {{"$P", group}})) {
    platform_.RefuseInsert();
    EXPECT_EQ(Do(row[0]), row[1]) << row[0];
    Lines model = Dump(model_);
    model.pop_back();  // the interface
    EXPECT_EQ(model, Text(row[2])) << row[0];
    EXPECT_EQ(Do(row[3]), "0") << row[3];
  }
  std::list<FiltersCommon::FiltersGroup> groups;
  platform_.RefuseInsert();
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_ERR_FILTERS);
  EXPECT_THAT(groups, IsEmpty());
}

TEST_F(ModelTest, InterfacesHoldSetsOfNames) {
  Run(R"(
      RemoveInterface e          | 0
      ClearAclsFromInterface e   | -3
      AddAclIntoInterface e a    | -3
      RemoveAclFromInterface e a | -3
      Model                      |
      CreateInterface e          | 0
      AddAclIntoInterface e b    | 0
      AddAclIntoInterface e a    | 0
      AddAclIntoInterface e b    | 0
      CreateInterface e          | -1
      CreateInterface E          | 0
      Model                      | E binds ; e binds a b
      RemoveAclFromInterface e b | 0
      RemoveAclFromInterface e b | 0
      Model                      | E binds ; e binds a
      ClearAclsFromInterface e   | 0
      ClearAclsFromInterface e   | 0
      Model                      | E binds ; e binds
      AddAclIntoInterface e b    | 0
      RemoveInterface e          | 0
      CreateInterface e          | 0
      Model                      | E binds ; e binds)");
}

}  // namespace
}  // namespace acl_test
