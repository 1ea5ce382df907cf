// The configuration manager's callbacks: subscriptions, the initial load as a whole, commits; and
// the submission that both end with.
#include <algorithm>

#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::AclFilter;

const std::string kProfile = "/config/access-list/acl-profile/ingress/access-list{0 P}";

// Steps that are always taken together; the opening of a status session stands for all that
// happens in it.
const Names kCommitSteps = {{"$apply", "trace 10 ApplyCommitConfig: Entry Point"},
                            {"$submit", R"(model SubmitConfiguration
                                     updateGroup 0 stage 1 type 6 priority 0
                                     updateGroup 1 stage 1 type 4 priority 1)"},
                            {"$status", "open 101 3 false"}};

class CommitCycleTest : public ManagerTest {
 protected:
  void ExpectSteps(const std::string& block) {
    EXPECT_EQ(platform_.Take({"trace", "log ", "fault", "model Submit", "updateGroup", "open",
                              "cdb_get_txid", "cdb_set_namespace"}),
              Text(block, kCommitSteps));
  }
};

TEST_F(CommitCycleTest, SubscribesToProfilesThenInterfaces) {
  const auto& points = manager_.GetSubscriptionPoints();
  EXPECT_EQ(platform_.Take(), Lines({"trace 10 GetSubscriptionPoints: Entry Point"}));
  ASSERT_EQ(points.size(), 2u);
  EXPECT_STREQ(points[0].path, "/config/access-list/acl-profile/");
  EXPECT_STREQ(points[1].path, "/config/access-list/interface/");
  for (int i : {0, 1}) {
    EXPECT_EQ(points[i].ordinal, i);
    EXPECT_EQ(points[i].namespace_hash, 1543965233);
    EXPECT_EQ(points[i].flags, 16);
  }
  EXPECT_EXIT(acl_app::ConfDManager(platform_.trace_category(), std::shared_ptr<AclFilter>()),
              testing::ExitedWithCode(1),
              "^backtrace\nfault 1 ConfDManager confd_manager: failed to initialize ACL Filter\n$");
}

TEST_F(CommitCycleTest, EveryPartOfTheTransactionIdCounts) {
  EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 0) << "zero at first";
  void (*const changes[])(cdb_txid&) = {
      [](cdb_txid& txid) { txid.s1 = 1; },
      [](cdb_txid& txid) { txid.s2 = 1; },
      [](cdb_txid& txid) { txid.s3 = -1; },
      [](cdb_txid& txid) { std::fill_n(txid.primary, 255, 'n'); },
      [](cdb_txid& txid) { txid.primary[254] = 'm'; },
      [](cdb_txid& txid) { txid = {}; },
  };
  for (const auto& change : changes) {
    change(platform_.txid);
    EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 1);
    EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 0);
  }
  platform_.txid.s1 = 5;
  platform_.On("cdb_get_txid", CONFD_ERR);
  EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 0) << "a failed read leaves zeros";
}

TEST_F(CommitCycleTest, InitialLoadTakesItsStepsInOrder) {
  platform_.txid.s1 = 1;
  manager_.LoadInitialConfig(kLoadSocket);
  manager_.LoadInitialConfig(kLoadSocket);  // the same transaction
  manager_.ApplyInitialConfig();
  ExpectSteps(R"(
      trace 10 LoadInitialConfig: Entry Point
      $status ; cdb_get_txid 7 ; log Received new configuration. Loading config...
      cdb_set_namespace 7 1543965233 ; $submit ; $status
      log All LoadConfdConfig executed successfully!
      trace 10 LoadInitialConfig: Entry Point
      $status ; cdb_get_txid 7 ; log All LoadConfdConfig executed successfully!
      trace 10 ApplyInitialConfig: Entry Point)");
}

TEST_F(CommitCycleTest, OnlyAChangedCommitIsSubmittedAndOnce) {
  Change("modified /config/access-list/acl-profile");
  platform_.Take();
  manager_.StartCommit();  // forgets the change
  manager_.ApplyCommitConfig();
  ExpectSteps("trace 10 StartCommit: Entry Point ; $apply");
  Change("modified /config/access-list/interface{eth0}");
  platform_.Take();
  manager_.ApplyCommitConfig();
  manager_.ApplyCommitConfig();
  ExpectSteps(R"(
      $apply ; $submit ; log ApplyCommitConfig: applied ACL configuration to Filter Manager
      $status ; $status
      $apply)");
}

TEST_F(CommitCycleTest, FailedSubmissionKeepsTheModelAndTheStatus) {
  EXPECT_EQ(Change("created " + kProfile), ITER_RECURSE);
  platform_.Take();
  manager_.ApplyCommitConfig();
  ExpectSteps(R"(
      $apply ; model SubmitConfiguration
      log SubmitConfiguration: error merging profiles and interfaces (aclErr -6)
      log ApplyCommitConfig - could not submit configuration to Filter Manager)");
  EXPECT_EQ(filter_->SubmitConfiguration(), -6);
  EXPECT_EQ(Dump(*filter_), Text("P pending type 6"));

  // What fails still makes a changed commit; without a clear there is no update.
  EXPECT_EQ(Change("created " + kProfile), ITER_CONTINUE);
  filter_->RemoveAclProfile("P");
  platform_.Take();
  platform_.On("fm_init", -1);
  manager_.ApplyCommitConfig();
  ExpectSteps(R"(
      $apply ; $submit ; log ApplyCommitConfig: applied ACL configuration to Filter Manager
      fault 0 ClearAclResources confd_manager: Failed initializing Feature Model on ConfDManager::ClearAclResources())");
}

TEST_F(CommitCycleTest, FilterCreatesBothGroupsAndToleratesRefusal) {
  platform_.On("createGroup 0", 17);
  AclFilter filter(&client_);
  EXPECT_EQ(platform_.Take(), Text(R"(
      createGroup 0 stage 1 type 6 priority 0
      log AclFilter: error creating group 0 of stage 1 on Filter Manager (filtMgrErr 17)
      createGroup 1 stage 1 type 4 priority 1)"));
  platform_.On("updateGroup", -9);
  EXPECT_EQ(filter.SubmitConfiguration(), acl_app::ACL_ERR_FILTER_MGR);
  EXPECT_EXIT(AclFilter(nullptr), testing::ExitedWithCode(1),
              "^backtrace\nfault 1 AclFilter filter: failed to initialize AclFilter - invalid "
              "Filter Manager Client\n$");
}

}  // namespace
}  // namespace acl_test
