// The merge of all bound profiles into two filter groups.
#include <random>
#include <tuple>

#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ResourceMap;
using testing::IsEmpty;

class MergeTest : public ModelTest {
 protected:
  // A profile with these entries, with a priority unless that is negative. The entries' marks are
  // matches by which they are known in the merged groups.
  void AddProfile(const std::string& name, int type, int priority,
                  const std::map<int, int>& marks = {}) {
    EXPECT_EQ(model_.CreateAclProfile(type, name), 0);
    for (const auto& [id, mark] : marks) {
      EXPECT_EQ(model_.CreateEntry(name, id), 0);
      EXPECT_EQ(CreateMatch(name, id, acl_app::ACL_MATCH_DST_PORT, Line("u16", mark)), 0);
    }
    if (priority >= 0) model_.SetAclPrio(name, priority);
  }
  void Bind(const std::string& interface, const Lines& profiles) {
    EXPECT_EQ(model_.CreateInterface(interface), 0);
    for (const std::string& name : profiles) model_.AddAclIntoInterface(interface, name);
  }
  int Merge() { return model_.MergeFilterEnvironment(groups_); }
  // All that a merge leaves.
  auto Results() {
    return std::tuple(groups_.size(), Describe(groups_.front()), Describe(groups_.back()),
                      model_.getUsedL2Resources(), model_.getUsedL3Resources());
  }

  std::list<FiltersCommon::FiltersGroup> groups_;
};

TEST_F(MergeTest, OrderIsInterfaceThenPriorityThenEntry) {
  AddProfile("late", 0, 300, {{7, 37}, {5, 35}});
  AddProfile("early", 0, 20, {{9, 29}});
  AddProfile("routed", 1, 1, {{2, 12}});
  Bind("b", {"late", "routed"});
  Bind("a", {"early", "late"});
  Bind("c", {});
  platform_.limids = {{"a", 11}, {"b", 22}};
  platform_.On("limid_from_intfname", -1);  // the id counts, not the result
  const Lines before = Dump(model_);
  EXPECT_EQ(Merge(), 0);
  EXPECT_EQ(Dump(model_), before) << "the model is only read";
  const Lines l2 = Text(R"(
      0/0 port 11 dst-port 29 -> ; 1/1 port 11 dst-port 35 -> ; 2/2 port 11 dst-port 37 ->
      3/3 port 22 dst-port 35 -> ; 4/4 port 22 dst-port 37 ->)");
  EXPECT_EQ(Results(),
            std::tuple(2, l2, Lines({"0/0 port 22 dst-port 12 ->"}),
                       ResourceMap{{"a", {{"early", 1}, {"late", 2}}}, {"b", {{"late", 2}}}},
                       ResourceMap{{"b", {{"routed", 1}}}}));
  model_.RemoveInterface("a");
  EXPECT_EQ(Merge(), 0);
  EXPECT_EQ(groups_.size(), 2u) << "earlier contents are replaced";
  EXPECT_EQ(model_.getUsedL2Resources(), (ResourceMap{{"b", {{"late", 2}}}})) << "counted anew";
}

TEST_F(MergeTest, EqualPrioritiesKeepTheFirstName) {
  AddProfile("x", 0, 3, {{1, 1}});
  AddProfile("y", 1, 65536 + 3, {{1, 1}, {2, 2}});
  AddProfile("z", 0, 4);
  Bind("a", {"y", "x", "z"});
  EXPECT_EQ(Merge(), 0);
  EXPECT_EQ(Results(), std::tuple(2, Lines({"0/0 port 1001 dst-port 1 ->"}), Lines(),
                                  ResourceMap{{"a", {{"x", 1}, {"z", 0}}}}, ResourceMap()));
  acl_app::OrderedProfiles ordered;
  EXPECT_EQ(model_.GetOrderedProfiles({"z", "zz"}, ordered), -3);
  EXPECT_EQ(ordered.size(), 1u) << "keeps what was added";
  FiltersCommon::FiltersGroup late(1);  // which no profile has as its priority
  late.setPriority(9);
  Model::Profiles(model_).emplace("late", late);
  EXPECT_EQ(model_.GetOrderedProfiles({"late", "x"}, ordered), 0);
  EXPECT_EQ(ordered.begin()->second.first, "x") << "the id does not count";
  EXPECT_EQ(model_.GetOrderedProfiles({}, ordered), 0);
  EXPECT_THAT(ordered, IsEmpty());
}

TEST_F(MergeTest, FailureLeavesAllResultsAsTheyWere) {
  AddProfile("P", 0, 10, {{1, 1}, {2, 2}});
  AddProfile("Q", 1, 11, {{1, 3}});
  Bind("a", {"P", "Q"});
  EXPECT_EQ(Merge(), 0);
  const auto merged = Results();
  Bind("b", {"P", "removed"});
  EXPECT_EQ(Merge(), -3) << "bound to no profile";
  AddProfile("pending", 0, -1);
  EXPECT_EQ(Merge(), -6) << "a profile without priority, though bound to nothing";
  model_.RemoveAclProfile("pending");
  // Groups that the library would not have let through.
  FiltersCommon::FiltersGroup no_type(12), no_stage(12);
  no_type.setStage(FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS);
  no_stage.setType(FiltersCommon::FILTERS_GROUP_TYPE_L3);
  for (const auto& group : {no_type, no_stage}) {
    Model::Profiles(model_).insert_or_assign("removed", group);
    EXPECT_EQ(Merge(), -7);
  }
  EXPECT_EQ(Results(), merged);
}

TEST_F(MergeTest, GroupHolds65536Entries) {
  AddProfile("P", 0, 1);
  for (int entry = 0; entry < 32768; ++entry) ASSERT_EQ(model_.CreateEntry("P", entry), 0);
  AddProfile("one", 0, 2, {{1, 1}});
  for (const char* interface : {"a", "b"}) Bind(interface, {"P"});
  EXPECT_EQ(Merge(), 0);
  EXPECT_EQ(groups_.front().getEntriesRef().size(), 65536u);
  EXPECT_EQ(Describe(groups_.front().getEntriesRef().at(65535)), "65535/65535 port 1002 ->");
  Bind("c", {"one"});
  EXPECT_EQ(Merge(), -4) << "the next id wraps to 0";
}

TEST_F(MergeTest, RandomModelsAgreeWithANaiveMerge) {
  struct Profile {
    int priority, type;
    std::map<int, int> marks;  // by entry
  };
  std::mt19937 random(1);
  const auto below = [&](int limit) { return static_cast<int>(random() % limit); };
  for (int mark = 0, round = 0; round < 200; ++round) {
    model_ = acl_app::AclCache();
    std::map<std::string, Profile> profiles;
    for (const char* name : {"d", "b", "a", "f", "c"}) {
      Profile& profile = profiles[name] = {below(4), below(2), {}};
      for (int n = below(5); n > 0; --n) profile.marks[below(10)] = ++mark;
      AddProfile(name, profile.type, profile.priority, profile.marks);
    }
    Lines expected[2];
    for (const char* interface : {"e1", "e10", "e2"}) {
      std::map<int, std::string> chosen;  // by priority: the first name
      Lines bound;
      for (const auto& [name, profile] : profiles) {
        if (below(2) == 0) continue;
        bound.insert(bound.begin(), name);
        chosen.emplace(profile.priority, name);
      }
      Bind(interface, bound);
      const int port = platform_.limids[interface] = below(9);
      for (const auto& choice : chosen) {
        const Profile& profile = profiles[choice.second];
        for (const auto& entry : profile.marks) {
          const std::string id = std::to_string(expected[profile.type].size());
          expected[profile.type].push_back(
              Line(id + '/' + id, "port", port, "dst-port", entry.second, "->"));
        }
      }
    }
    EXPECT_EQ(Merge(), 0);
    ASSERT_EQ(Describe(groups_.front()), expected[0]) << "round " << round;
    ASSERT_EQ(Describe(groups_.back()), expected[1]) << "round " << round;
  }
}

}  // namespace
}  // namespace acl_test
