// The merge of all bound profiles into two filter groups.
#include <algorithm>
#include <random>
#include <tuple>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ACL_ERR_FILTERS;
using acl_app::ACL_ERR_INVALID_VALUE;
using acl_app::ACL_ERR_NOT_FOUND;
using acl_app::ACL_ERR_PENDING_PROFILE;
using acl_app::ACL_OK;
using acl_app::AclCache;
using acl_app::aclErr_t;
using acl_app::OrderedProfiles;
using acl_app::ResourceMap;
using testing::IsEmpty;
using Groups = std::list<FiltersCommon::FiltersGroup>;

class MergeTest : public ModelTest {
 protected:
  // A profile with these entries, with a priority unless that is negative. The entries' marks are
  // matches by which they are known in the merged groups.
  void AddProfile(const std::string& name, int type, int priority,
                  const std::map<int, int>& marks = {}) {
    Names names = {{"$name", name}, {"$type", std::to_string(type)}};
    Run("CreateAclProfile $type $name | 0", names);
    for (const auto& [id, mark] : marks) {
      names["$id"] = std::to_string(id);
      names["$mark"] = std::to_string(mark);
      Run("CreateEntry $name $id | 0 \n CreateMatch $name $id 10 u16 $mark | 0", names);
    }
    if (priority >= 0) Run("SetAclPrio $name " + std::to_string(priority) + " | 0", names);
  }
  void Bind(const std::string& interface, const Lines& profiles) {
    Run("CreateInterface " + interface + " | 0");
    for (const std::string& name : profiles) {
      Run("AddAclIntoInterface " + interface + ' ' + name + " | 0");
    }
  }
  Groups Merge() {
    Groups groups;
    EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_OK);
    EXPECT_EQ(groups.size(), 2u);
    return groups;
  }
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
  Groups groups = Merge();
  EXPECT_EQ(Dump(model_), before) << "the model is only read";
  EXPECT_EQ(Describe(groups.front()), Text(R"(
      0/0 port 11 dst-port 29 ->
      1/1 port 11 dst-port 35 ->
      2/2 port 11 dst-port 37 ->
      3/3 port 22 dst-port 35 ->
      4/4 port 22 dst-port 37 ->)"));
  EXPECT_EQ(Describe(groups.back()), Text("0/0 port 22 dst-port 12 ->"));
  const ResourceMap l2 = {{"a", {{"early", 1}, {"late", 2}}}, {"b", {{"late", 2}}}};
  EXPECT_EQ(model_.getUsedL2Resources(), l2);
  EXPECT_EQ(model_.getUsedL3Resources(), (ResourceMap{{"b", {{"routed", 1}}}}));
  model_.RemoveInterface("a");
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_OK);
  EXPECT_EQ(groups.size(), 2u) << "earlier contents are replaced";
  EXPECT_EQ(model_.getUsedL2Resources(), (ResourceMap{{"b", {{"late", 2}}}})) << "counted anew";
}

TEST_F(MergeTest, EqualPrioritiesKeepTheFirstName) {
  AddProfile("x", 0, 3, {{1, 1}});
  AddProfile("y", 1, 65536 + 3, {{1, 1}, {2, 2}});
  AddProfile("z", 0, 4);
  Bind("a", {"y", "x", "z"});
  EXPECT_THAT(Describe(Merge().back()), IsEmpty());
  EXPECT_EQ(model_.getUsedL2Resources(), (ResourceMap{{"a", {{"x", 1}, {"z", 0}}}}));
  EXPECT_THAT(model_.getUsedL3Resources(), IsEmpty()) << "a dropped profile is not counted";
  OrderedProfiles ordered;
  EXPECT_EQ(model_.GetOrderedProfiles({"z", "zz"}, ordered), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(ordered.size(), 1u) << "keeps what was added";
  EXPECT_EQ(model_.GetOrderedProfiles({}, ordered), ACL_OK);
  EXPECT_THAT(ordered, IsEmpty());
}

TEST_F(MergeTest, FailureLeavesAllResultsAsTheyWere) {
  AddProfile("P", 0, 10, {{1, 1}, {2, 2}});
  AddProfile("Q", 1, 11, {{1, 3}});
  Bind("a", {"P", "Q"});
  Groups groups = Merge();
  const auto results = [&] {
    return std::tuple(groups.size(), Describe(groups.front()), Describe(groups.back()),
                      model_.getUsedL2Resources(), model_.getUsedL3Resources());
  };
  const auto merged = results();
  const auto expect_failure = [&](aclErr_t result, const char* what) {
    EXPECT_EQ(model_.MergeFilterEnvironment(groups), result) << what;
    EXPECT_EQ(results(), merged) << what;
  };
  Bind("b", {"P", "removed"});
  expect_failure(ACL_ERR_NOT_FOUND, "bound to no profile");
  AddProfile("pending", 0, -1);
  expect_failure(ACL_ERR_PENDING_PROFILE, "a profile without priority, though bound to nothing");
  model_.RemoveAclProfile("pending");
  FiltersCommon::FiltersGroup group(12);  // which the library would not have let through
  group.setStage(FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS);
  Model::Profiles(model_).insert_or_assign("removed", group);
  expect_failure(ACL_ERR_INVALID_VALUE, "neither L2 nor L3");
  group = FiltersCommon::FiltersGroup(12);
  group.setType(FiltersCommon::FILTERS_GROUP_TYPE_L3);
  Model::Profiles(model_).insert_or_assign("removed", group);
  expect_failure(ACL_ERR_INVALID_VALUE, "another stage");
}

TEST_F(MergeTest, GroupHolds65536Entries) {
  AddProfile("P", 0, 1);
  for (int entry = 0; entry < 32768; ++entry) ASSERT_EQ(model_.CreateEntry("P", entry), ACL_OK);
  AddProfile("one", 0, 2, {{1, 1}});
  Bind("a", {"P"});
  Bind("b", {"P"});
  Groups groups = Merge();
  EXPECT_EQ(groups.front().getEntriesRef().size(), 65536u);
  EXPECT_EQ(Describe(groups.front().getEntriesRef().at(65535)), "65535/65535 port 1002 ->");
  Bind("c", {"one"});
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_ERR_FILTERS) << "the next id wraps to 0";
  EXPECT_EQ(groups.front().getEntriesRef().size(), 65536u);
}

// A random model beside what a naive merge makes of it.
class RandomMergeTest : public MergeTest, public testing::WithParamInterface<int> {
 protected:
  struct Profile {
    std::string name;
    int type;
    int priority;                // negative: none
    std::map<int, int> entries;  // mark by id
  };

  int Random(int below) { return static_cast<int>(random_() % below); }

  void Generate() {
    model_ = AclCache();
    profiles_.clear();
    bindings_.clear();
    int mark = 0;
    for (int i = Random(7); i > 0; --i) {
      Profile profile{
          std::string(1, "dbafce"[i - 1]), Random(2), Random(30) == 0 ? -1 : Random(5), {}};
      for (int n = Random(5); n > 0; --n) profile.entries[Random(10)] = ++mark;
      AddProfile(profile.name, profile.type, profile.priority, profile.entries);
      profiles_.push_back(profile);
    }
    for (int i = Random(5); i > 0; --i) {
      Lines& bound = bindings_["if" + std::to_string(Random(1000))];
      for (const Profile& profile : profiles_) {
        if (Random(2) == 0) bound.push_back(profile.name);
      }
      if (Random(30) == 0) bound.push_back("unknown");
    }
    for (const auto& [interface, bound] : bindings_) Bind(interface, bound);
  }

  // The two groups as lines, or a failure.
  aclErr_t NaiveMerge(Lines (&groups)[2]) {
    for (const Profile& profile : profiles_) {
      if (profile.priority < 0) return ACL_ERR_PENDING_PROFILE;
    }
    for (auto& [interface, bound] : bindings_) {
      std::vector<std::tuple<int, std::string, const Profile*>> chosen;
      for (const std::string& name : bound) {
        if (name == "unknown") return ACL_ERR_NOT_FOUND;
        for (const Profile& profile : profiles_) {
          if (profile.name == name) chosen.emplace_back(profile.priority, name, &profile);
        }
      }
      std::sort(chosen.begin(), chosen.end());
      int last_priority = -1;
      for (const auto& [priority, name, profile] : chosen) {
        if (priority == last_priority) continue;
        last_priority = priority;
        Lines& group = groups[profile->type];
        for (const auto& entry : profile->entries) {
          const std::string number = std::to_string(group.size());
          group.push_back(number + '/' + number + " port " +
                          std::to_string(platform_.limids[interface]) + " dst-port " +
                          std::to_string(entry.second) + " ->");
        }
      }
    }
    return ACL_OK;
  }

  static size_t Count(const ResourceMap& used) {
    size_t count = 0;
    for (const auto& interface : used) {
      for (const auto& profile : interface.second) count += profile.second;
    }
    return count;
  }

  std::mt19937 random_{static_cast<unsigned int>(GetParam())};
  std::vector<Profile> profiles_;
  std::map<std::string, Lines> bindings_;
};
INSTANTIATE_TEST_SUITE_P(Seeds, RandomMergeTest, testing::Range(0, 8));

TEST_P(RandomMergeTest, AgreesWithANaiveMerge) {
  size_t merged_entries = 0;
  for (int round = 0; round < 50; ++round) {
    Generate();
    Groups groups;
    const aclErr_t result = model_.MergeFilterEnvironment(groups);
    Lines expected[2];
    ASSERT_EQ(result, NaiveMerge(expected)) << "round " << round;
    if (result != ACL_OK) continue;
    EXPECT_EQ(Describe(groups.front()), expected[0]) << "round " << round;
    EXPECT_EQ(Describe(groups.back()), expected[1]) << "round " << round;
    EXPECT_EQ(Count(model_.getUsedL2Resources()), expected[0].size()) << "round " << round;
    EXPECT_EQ(Count(model_.getUsedL3Resources()), expected[1].size()) << "round " << round;
    merged_entries += expected[0].size() + expected[1].size();
  }
  EXPECT_GT(merged_entries, 100u) << "the models are too small to tell anything";
}

}  // namespace
}  // namespace acl_test
