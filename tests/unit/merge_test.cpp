// The merge of all bound profiles into two filter groups, and their submission.
#include <algorithm>
#include <random>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using namespace acl_app;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Pair;
using Groups = std::list<FiltersCommon::FiltersGroup>;

class MergeTest : public ModelTest {
 protected:
  // Gives an entry a match by which it is known in the merged groups.
  void Mark(const std::string& profile, int entry, uint16_t mark) {
    ASSERT_EQ(model_.CreateMatch(profile, entry, ACL_MATCH_DST_PORT, U16(mark).get(), nullptr),
              ACL_OK);
  }
  Groups Merge() {
    Groups groups;
    EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_OK);
    EXPECT_EQ(groups.size(), 2u);
    return groups;
  }
};

TEST_F(MergeTest, NothingBoundGivesTwoEmptyGroups) {
  AddProfile("P", 0, 10, {1});
  Bind("eth0", {});
  const Groups groups = Merge();
  EXPECT_EQ(groups.front().getId(), 0);
  EXPECT_EQ(groups.front().getType(), FiltersCommon::FILTERS_GROUP_TYPE_L2);
  EXPECT_EQ(groups.back().getId(), 1);
  EXPECT_EQ(groups.back().getType(), FiltersCommon::FILTERS_GROUP_TYPE_L3);
  EXPECT_THAT(Describe(groups.front()), IsEmpty());
  EXPECT_THAT(Describe(groups.back()), IsEmpty());
  EXPECT_THAT(model_.getUsedL2Resources(), IsEmpty());
  EXPECT_THAT(model_.getUsedL3Resources(), IsEmpty());
}

TEST_F(MergeTest, OrderIsInterfaceThenPriorityThenEntry) {
  AddProfile("late", 0, 300, {7, 5});
  AddProfile("early", 0, 20, {9});
  AddProfile("routed", 1, 1, {2});
  Mark("late", 5, 5);
  Mark("late", 7, 7);
  Bind("b", {"late", "routed"});
  Bind("a", {"early", "late"});
  platform_.limids = {{"a", 11}, {"b", 22}};
  platform_.On("limid_from_intfname", -1);  // the id counts, not the result
  const Lines before = Dump();
  Groups groups = Merge();
  EXPECT_EQ(Dump(), before) << "the model is only read";
  EXPECT_THAT(
      Describe(groups.front()),
      ElementsAre("0/0 port 11 ->", "1/1 port 11 dst-port 5 ->", "2/2 port 11 dst-port 7 ->",
                  "3/3 port 22 dst-port 5 ->", "4/4 port 22 dst-port 7 ->"));
  EXPECT_THAT(Describe(groups.back()), ElementsAre("0/0 port 22 ->"));
  const ResourceMap l2 = {{"a", {{"early", 1}, {"late", 2}}}, {"b", {{"late", 2}}}};
  EXPECT_EQ(model_.getUsedL2Resources(), l2);
  EXPECT_EQ(model_.getUsedL3Resources(), (ResourceMap{{"b", {{"routed", 1}}}}));

  ASSERT_EQ(model_.RemoveInterface("a"), ACL_OK);
  ASSERT_EQ(model_.MergeFilterEnvironment(groups), ACL_OK);
  EXPECT_EQ(groups.size(), 2u) << "earlier contents are replaced";
  EXPECT_EQ(model_.getUsedL2Resources(), (ResourceMap{{"b", {{"late", 2}}}})) << "counted anew";
}

TEST_F(MergeTest, EqualPrioritiesKeepTheFirstName) {
  AddProfile("x", 0, 3, {1});
  AddProfile("y", 1, 65536 + 3, {1, 2});
  AddProfile("z", 0, 4);
  OrderedProfiles ordered;
  EXPECT_EQ(model_.GetOrderedProfiles({"z", "y", "x"}, ordered), ACL_OK);
  EXPECT_THAT(ordered,
              ElementsAre(Pair(3, testing::Field(&OrderedProfiles::mapped_type::first, "x")),
                          Pair(4, testing::Field(&OrderedProfiles::mapped_type::first, "z"))));
  EXPECT_EQ(model_.GetOrderedProfiles({"y", "unknown", "x"}, ordered), ACL_ERR_NOT_FOUND);
  EXPECT_THAT(ordered, IsEmpty()) << "cleared; \"unknown\" sorts first";
  EXPECT_EQ(model_.GetOrderedProfiles({"z", "zz"}, ordered), ACL_ERR_NOT_FOUND);
  EXPECT_EQ(ordered.size(), 1u) << "keeps what was added";
  EXPECT_EQ(model_.GetOrderedProfiles({}, ordered), ACL_OK);
  EXPECT_THAT(ordered, IsEmpty());

  Bind("a", {"y", "x", "z"});
  EXPECT_THAT(Describe(Merge().back()), IsEmpty());
  EXPECT_EQ(model_.getUsedL2Resources(), (ResourceMap{{"a", {{"x", 1}, {"z", 0}}}}));
  EXPECT_THAT(model_.getUsedL3Resources(), IsEmpty()) << "a dropped profile is not counted";
}

TEST_F(MergeTest, FailureLeavesAllResultsAsTheyWere) {
  AddProfile("P", 0, 10, {1, 2});
  AddProfile("Q", 1, 11, {1});
  Bind("a", {"P", "Q"});
  Groups groups = Merge();
  const ResourceMap l2 = model_.getUsedL2Resources();
  const ResourceMap l3 = model_.getUsedL3Resources();
  const auto expect_failure = [&](aclErr_t result, const char* what) {
    EXPECT_EQ(model_.MergeFilterEnvironment(groups), result) << what;
    ASSERT_EQ(groups.size(), 2u) << what;
    EXPECT_EQ(Describe(groups.front()).size(), 2u) << what;
    EXPECT_EQ(model_.getUsedL2Resources(), l2) << what;
    EXPECT_EQ(model_.getUsedL3Resources(), l3) << what;
  };
  Bind("b", {"P", "removed"});
  expect_failure(ACL_ERR_NOT_FOUND, "bound to no profile");
  AddProfile("pending", 0, -1);
  expect_failure(ACL_ERR_PENDING_PROFILE, "a profile without priority, though bound to nothing");
  model_.RemoveAclProfile("pending");

  // Groups that the library would not have let through.
  FiltersCommon::FiltersGroup odd(5);
  odd.setStage(FiltersCommon::FILTERS_GROUP_STAGE_PRE_INGRESS);
  Model::Profiles(model_).emplace("removed", odd);
  expect_failure(ACL_ERR_INVALID_VALUE, "neither L2 nor L3");
  Model::Profiles(model_).erase("removed");
  FiltersCommon::FiltersGroup stageless(5);
  stageless.setType(FiltersCommon::FILTERS_GROUP_TYPE_L3);
  Model::Profiles(model_).emplace("removed", stageless);
  expect_failure(ACL_ERR_INVALID_VALUE, "another stage");

  model_.RemoveInterface("b");
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_OK);
}

TEST_F(MergeTest, GroupHolds65536Entries) {
  AddProfile("P", 0, 1);
  for (int entry = 0; entry < 32768; ++entry) ASSERT_EQ(model_.CreateEntry("P", entry), ACL_OK);
  AddProfile("one", 0, 2, {1});
  Bind("a", {"P"});
  Bind("b", {"P"});
  Groups groups = Merge();
  EXPECT_EQ(groups.front().getEntriesRef().size(), 65536u);
  EXPECT_EQ(Describe(groups.front().getEntriesRef().at(65535)), "65535/65535 port 1002 ->");
  Bind("c", {"one"});
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), ACL_ERR_FILTERS) << "the next id wraps to 0";
  EXPECT_EQ(groups.front().getEntriesRef().size(), 65536u);
  EXPECT_EQ(model_.getUsedL2Resources().count("c"), 0u);
}

// A random model beside what a naive merge makes of it.
class RandomMergeTest : public MergeTest, public testing::WithParamInterface<int> {
 protected:
  struct Profile {
    std::string name;
    int type;
    int priority;                     // negative: none
    std::map<int, uint16_t> entries;  // mark by id
  };

  int Random(int below) { return static_cast<int>(random_() % below); }

  void Generate() {
    uint16_t mark = 0;
    for (int i = Random(7); i > 0; --i) {
      Profile profile{
          std::string(1, "dbafce"[i - 1]), Random(2), Random(20) == 0 ? -1 : Random(5), {}};
      for (int n = Random(5); n > 0; --n) profile.entries.emplace(Random(10), ++mark);
      std::vector<int> ids;
      for (const auto& entry : profile.entries) ids.push_back(entry.first);
      std::shuffle(ids.begin(), ids.end(), random_);
      AddProfile(profile.name, profile.type, profile.priority, ids);
      for (const auto& [id, value] : profile.entries) Mark(profile.name, id, value);
      profiles_.push_back(profile);
    }
    for (int i = Random(5); i > 0; --i) {
      auto& [interface, bound] =
          bindings_.emplace_back("if" + std::to_string(Random(1000)), std::vector<std::string>());
      for (const Profile& profile : profiles_) {
        if (Random(2) == 0) bound.push_back(profile.name);
      }
      if (Random(25) == 0) bound.push_back("unknown");
      if (model_.CreateInterface(interface) != ACL_OK) {
        bindings_.pop_back();
        continue;
      }
      for (const std::string& name : bound) model_.AddAclIntoInterface(interface, name);
    }
  }

  // The two groups as lines, or a failure.
  aclErr_t NaiveMerge(Lines (&groups)[2]) {
    for (const Profile& profile : profiles_) {
      if (profile.priority < 0) return ACL_ERR_PENDING_PROFILE;
    }
    std::sort(bindings_.begin(), bindings_.end());
    for (auto& [interface, bound] : bindings_) {
      std::vector<const Profile*> chosen;
      std::sort(bound.begin(), bound.end());
      for (const std::string& name : bound) {
        const auto profile = std::find_if(profiles_.begin(), profiles_.end(),
                                          [&](const Profile& p) { return p.name == name; });
        if (profile == profiles_.end()) return ACL_ERR_NOT_FOUND;
        const bool taken = std::any_of(chosen.begin(), chosen.end(), [&](const Profile* p) {
          return p->priority == profile->priority;
        });
        if (!taken) chosen.push_back(&*profile);
      }
      std::sort(chosen.begin(), chosen.end(), [](const Profile* one, const Profile* other) {
        return one->priority < other->priority;
      });
      for (const Profile* profile : chosen) {
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

  std::mt19937 random_{static_cast<unsigned int>(GetParam())};
  std::vector<Profile> profiles_;
  std::vector<std::pair<std::string, std::vector<std::string>>> bindings_;
};
INSTANTIATE_TEST_SUITE_P(Seeds, RandomMergeTest, testing::Range(0, 8));

TEST_P(RandomMergeTest, AgreesWithANaiveMerge) {
  int merged_entries = 0;
  for (int round = 0; round < 50; ++round) {
    model_ = AclCache();
    profiles_.clear();
    bindings_.clear();
    Generate();
    Groups groups;
    const aclErr_t result = model_.MergeFilterEnvironment(groups);
    Lines expected[2];
    ASSERT_EQ(result, NaiveMerge(expected)) << "round " << round;
    if (result != ACL_OK) continue;
    EXPECT_EQ(Describe(groups.front()), expected[0]) << "round " << round;
    EXPECT_EQ(Describe(groups.back()), expected[1]) << "round " << round;
    const ResourceMap* used[] = {&model_.getUsedL2Resources(), &model_.getUsedL3Resources()};
    for (int type : {0, 1}) {
      size_t count = 0;
      for (const auto& interface : *used[type]) {
        for (const auto& profile : interface.second) count += profile.second;
      }
      EXPECT_EQ(count, expected[type].size()) << "round " << round;
      merged_entries += static_cast<int>(count);
    }
  }
  EXPECT_GT(merged_entries, 100) << "the models are too small to tell anything";
}

// ---- Submission ----

class SubmissionTest : public testing::Test {
 protected:
  static constexpr char kL2[] = "updateGroup 0 stage 1 type 6 priority 0 entries 0";
  static constexpr char kL3[] = "updateGroup 1 stage 1 type 4 priority 1 entries 0";

  ScriptedPlatform platform_;
  AclLog log_{platform_.middleware()};
  FilterMgrClientApi::FilterMgrClient client_{platform_.middleware(), "acl"};
};

TEST_F(SubmissionTest, ConstructionCreatesBothGroupsAndToleratesRefusal) {
  platform_.On("createGroup 0", 17);
  platform_.Take();
  AclFilter filter(&client_);
  EXPECT_THAT(platform_.Take(),
              ElementsAre("createGroup 0 stage 1 type 6 priority 0 entries 0",
                          "log AclFilter: error creating group 0 of stage 1 on Filter Manager "
                          "(filtMgrErr 17)",
                          "createGroup 1 stage 1 type 4 priority 1 entries 0"));
  EXPECT_EQ(filter.SubmitConfiguration(), ACL_OK);
  EXPECT_THAT(platform_.Take(), ElementsAre(kL2, kL3));
}

TEST_F(SubmissionTest, MergeFailureSendsNothing) {
  AclFilter filter(&client_);
  platform_.Take();
  filter.CreateAclProfile(0, "P");
  EXPECT_EQ(filter.SubmitConfiguration(), ACL_ERR_PENDING_PROFILE);
  EXPECT_THAT(platform_.Take(),
              ElementsAre("log SubmitConfiguration: error merging profiles and interfaces "
                          "(aclErr -6)"));
  filter.SetAclPrio("P", 1);
  filter.CreateEntry("P", 1);
  filter.CreateInterface("eth0");
  filter.AddAclIntoInterface("eth0", "P");
  EXPECT_EQ(filter.SubmitConfiguration(), ACL_OK);
  EXPECT_THAT(Describe(platform_.groups.at(0)), ElementsAre("0/0 port 1001 ->"));
}

TEST_F(SubmissionTest, FirstRefusedUpdateEndsIt) {
  AclFilter filter(&client_);
  platform_.Take();
  platform_.On("updateGroup 1", 3);
  EXPECT_EQ(filter.SubmitConfiguration(), ACL_ERR_FILTER_MGR);
  EXPECT_THAT(platform_.Take(),
              ElementsAre(kL2, kL3,
                          "log SubmitConfiguration: error updating group 1 of stage 1 on Filter "
                          "Manager (filtMgrErr 3)"));
  platform_.On("updateGroup 0", -9);
  EXPECT_EQ(filter.SubmitConfiguration(), ACL_ERR_FILTER_MGR);
  EXPECT_THAT(platform_.Take(),
              ElementsAre(kL2,
                          "log SubmitConfiguration: error updating group 0 of stage 1 on Filter "
                          "Manager (filtMgrErr -9)"));
}

TEST_F(SubmissionTest, NoClientEndsTheProcess) {
  EXPECT_EXIT(AclFilter(nullptr), testing::ExitedWithCode(1),
              "^backtrace\nfault 1 AclFilter filter: failed to initialize AclFilter - invalid "
              "Filter Manager Client\n$");
}

}  // namespace
}  // namespace acl_test
