// The model's profiles, entries and interface bindings.
#include <functional>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using testing::IsEmpty;

TEST_F(ModelTest, ProfilesAreCreatedThenGivenTheirPriority) {
  EXPECT_EQ(model_.CreateAclProfile(0, ""), -5);
  EXPECT_EQ(model_.SetAclPrio("P", 3), -3);
  EXPECT_EQ(model_.CreateAclProfile(0, "P"), 0);
  EXPECT_EQ(model_.CreateAclProfile(1, "P"), -1);
  EXPECT_EQ(model_.SetAclPrio("P", 65543), 0);
  EXPECT_EQ(model_.SetAclPrio("P", 8), -2);
  EXPECT_EQ(model_.CreateAclProfile(1, "P"), -1);
  EXPECT_EQ(model_.CreateAclProfile(1, "p"), 0);
  for (int entry : {5, 1}) EXPECT_EQ(model_.CreateEntry("p", entry), 0);
  EXPECT_EQ(Dump(model_),
            Text("p pending type 4 ; p 1/0 -> ; p 5/0 -> ; P type 6 priority 7 id 7 stage 1"));
  EXPECT_EQ(model_.SetAclPrio("p", -1), 0);
  EXPECT_EQ(model_.CreateAclProfile(0, "Q"), 0);
  model_.CreateInterface("e");
  for (const char* name : {"Q", "P"}) {
    model_.AddAclIntoInterface("e", name);
    EXPECT_EQ(model_.RemoveAclProfile(name), 0);
    EXPECT_EQ(model_.RemoveAclProfile(name), 0) << "unknown now";
  }
  EXPECT_EQ(Dump(model_), Text(R"(
      p type 4 priority 65535 id 65535 stage 1 ; p 1/0 -> ; p 5/0 -> ; e binds P Q)"));
}

TEST_F(ModelTest, UnknownTypeIsRefusedOnlyWithThePriority) {
  EXPECT_EQ(model_.CreateAclProfile(2, "P"), 0);
  EXPECT_EQ(model_.CreateEntry("P", 4), 0);
  EXPECT_EQ(model_.SetAclPrio("P", 1), -4);
  EXPECT_EQ(Dump(model_), Text("P pending type 0 ; P 4/0 ->"));
  EXPECT_EQ(model_.ConfdType2FilterCommon(0), 6);
  EXPECT_EQ(model_.ConfdType2FilterCommon(1), 4);
  EXPECT_EQ(model_.ConfdType2FilterCommon(-1), 0);
}

// Entries are handled alike before and after a profile has its priority, but for one result.
TEST_F(ModelTest, EntriesInBothStages) {
  model_.CreateAclProfile(0, "E");
  for (const bool grouped : {false, true}) {
    model_.CreateAclProfile(0, "P");
    if (grouped) model_.SetAclPrio("P", 1);
    EXPECT_EQ(model_.CreateEntry("P", 65541), 0);
    EXPECT_EQ(model_.CreateEntry("P", 5), -1) << "the low 16 bits are the id";
    EXPECT_EQ(model_.CreateEntry("P", -1), 0);
    EXPECT_EQ(model_.CreateEntry("unknown", 6), -3);

    // Look-ups give copies.
    std::map<unsigned short, FiltersCommon::FiltersEntry> entries;
    EXPECT_EQ(model_.GetEntriesMap("P", entries), 0);
    EXPECT_EQ(model_.GetEntriesMap("unknown", entries), -3);
    EXPECT_EQ(entries.size(), 2u) << "left as it was";
    EXPECT_EQ(model_.GetEntriesMap("E", entries), 0);
    EXPECT_THAT(entries, IsEmpty()) << "replaced, not added to";
    std::shared_ptr<FiltersCommon::FiltersEntry> entry;
    EXPECT_EQ(model_.GetEntry("P", 65536 + 5, entry), 0);
    EXPECT_EQ(entry->getId(), 5);
    entry->setAction(FiltersCommon::ActionDeny());
    EXPECT_EQ(model_.GetEntry("P", 6, entry), -3);
    EXPECT_EQ(model_.GetEntry("E", 5, entry), -3);
    EXPECT_EQ(model_.GetEntry("unknown", 5, entry), -3);
    EXPECT_EQ(Dump(model_).end()[-2], "P 5/0 ->");

    EXPECT_EQ(model_.RemoveEntry("unknown", 5), 0);
    EXPECT_EQ(model_.RemoveEntry("P", 6), grouped ? -4 : 0);
    EXPECT_EQ(model_.RemoveEntry("P", 131077), 0);
    EXPECT_EQ(Dump(model_).end()[-2],
              grouped ? "P type 6 priority 1 id 1 stage 1" : "P pending type 6");
    EXPECT_EQ(Dump(model_).back(), "P 65535/0 ->");
    model_.RemoveAclProfile("P");
  }
}

// Operations that insert into a group, each refused by the library.
TEST_F(ModelTest, RefusedInsertions) {
  model_.CreateAclProfile(0, "P");
  model_.CreateEntry("P", 5);
  const auto kPcp = acl_app::ACL_MATCH_PCP;
  const auto kDeny = FiltersCommon::FILTERS_ACTION_DENY;
  const struct {
    std::function<int()> operation;
    int result;
    const char* model;
  } rows[] = {
      {[&] { return model_.SetAclPrio("P", 1); }, -4, "P pending type 6 ; P 5/0 ->"},
      {[&] { return model_.CreateEntry("P", 6); }, -4, "$P ; P 5/0 ->"},
      {[&] { return CreateMatch("P", 5, kPcp, "u8 1"); }, -4, "$P ; P 5/0 ->"},
      {[&] { return model_.RemoveMatch("P", 5, kPcp); }, 0, "$P"},
      {[&] { return model_.CreateAction("P", 5, kDeny, nullptr); }, 0, "$P"},
      {[&] { return model_.RemoveAction("P", 5, kDeny); }, 0, "$P"},
  };
  for (const auto& row : rows) {
    platform_.refuse_insert = true;
    EXPECT_EQ(row.operation(), row.result);
    EXPECT_EQ(Dump(model_), Text(row.model, {{"$P", "P type 6 priority 1 id 1 stage 1"}}));
    model_.SetAclPrio("P", 1);
    model_.CreateEntry("P", 5);
  }
  model_.CreateInterface("e");
  model_.AddAclIntoInterface("e", "P");
  std::list<FiltersCommon::FiltersGroup> groups;
  platform_.refuse_insert = true;
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), -4);
  EXPECT_THAT(groups, IsEmpty());
}

TEST_F(ModelTest, InterfacesHoldSetsOfNames) {
  EXPECT_EQ(model_.RemoveInterface("e"), 0);
  EXPECT_EQ(model_.ClearAclsFromInterface("e"), -3);
  EXPECT_EQ(model_.AddAclIntoInterface("e", "a"), -3);
  EXPECT_EQ(model_.RemoveAclFromInterface("e", "a"), -3);
  EXPECT_THAT(Dump(model_), IsEmpty());
  EXPECT_EQ(model_.CreateInterface("e"), 0);
  for (const char* name : {"b", "a", "b"}) EXPECT_EQ(model_.AddAclIntoInterface("e", name), 0);
  EXPECT_EQ(model_.CreateInterface("e"), -1);
  EXPECT_EQ(model_.CreateInterface("E"), 0);
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds a b"));
  for (int i : {1, 2}) EXPECT_EQ(model_.RemoveAclFromInterface("e", "b"), 0) << i;
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds a"));
  for (int i : {1, 2}) EXPECT_EQ(model_.ClearAclsFromInterface("e"), 0) << i;
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds"));
  model_.AddAclIntoInterface("e", "b");
  EXPECT_EQ(model_.RemoveInterface("e"), 0);
  EXPECT_EQ(model_.CreateInterface("e"), 0);
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds"));
}

}  // namespace
}  // namespace acl_test
