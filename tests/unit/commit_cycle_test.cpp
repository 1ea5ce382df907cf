// The configuration manager's callbacks: subscriptions, the initial load as a whole, commits; and
// the submission that both end with.
#include <stdexcept>

#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ACL_ERR_FILTER_MGR;
using acl_app::ACL_OK;
using acl_app::AclFilter;
using acl_app::ConfDManager;

constexpr char kProfile[] = "/config/access-list/acl-profile/ingress/access-list{0 P}";
constexpr char kChange[] = "modified /config/access-list/acl-profile";

// Steps that are always taken together.
const Names kSteps = {{"$submit", R"(model SubmitConfiguration
                                     updateGroup 0 stage 1 type 6 priority 0
                                     updateGroup 1 stage 1 type 4 priority 1)"},
                      {"$status-session", "open 101 3 false"}};

class CommitCycleTest : public ManagerTest {
 protected:
  // The part of the record that tells what a callback did; the opening of a status session stands
  // for all that happens in it.
  Lines TakeSteps() {
    return platform_.Take({"trace", "log ", "fault", "model Submit", "updateGroup", "open",
                           "cdb_get_txid", "cdb_set_namespace"});
  }
};

TEST_F(CommitCycleTest, SubscribesToProfilesThenInterfaces) {
  const auto& points = manager_.GetSubscriptionPoints();
  EXPECT_EQ(platform_.Take(), Text("trace 10 GetSubscriptionPoints: Entry Point"));
  ASSERT_EQ(points.size(), 2u);
  EXPECT_STREQ(points[0].path, "/config/access-list/acl-profile/");
  EXPECT_STREQ(points[1].path, "/config/access-list/interface/");
  for (int i : {0, 1}) {
    EXPECT_EQ(points[i].ordinal, i);
    EXPECT_EQ(points[i].namespace_hash, 1543965233);
    EXPECT_EQ(points[i].flags, 16);
  }
  EXPECT_EXIT(ConfDManager(platform_.trace_category(), std::shared_ptr<AclFilter>()),
              testing::ExitedWithCode(1),
              "^backtrace\nfault 1 ConfDManager confd_manager: failed to initialize ACL Filter\n$");
}

TEST_F(CommitCycleTest, EveryPartOfTheTransactionIdCounts) {
  EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 0) << "zero at first";
  const std::vector<void (*)(cdb_txid&)> changes = {
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
  platform_.txid.s2 = 1;
  platform_.On("fm_init", -1);
  platform_.On("updateGroup 1", 77);
  manager_.LoadInitialConfig(kLoadSocket);
  manager_.ApplyInitialConfig();
  EXPECT_EQ(TakeSteps(), Text(R"(
      trace 10 LoadInitialConfig: Entry Point
      $status-session
      cdb_get_txid 7
      log Received new configuration. Loading config...
      cdb_set_namespace 7 1543965233
      $submit
      $status-session
      log All LoadConfdConfig executed successfully!

      trace 10 LoadInitialConfig: Entry Point
      $status-session
      cdb_get_txid 7
      log All LoadConfdConfig executed successfully!

      trace 10 LoadInitialConfig: Entry Point
      fault 0 ClearAclResources confd_manager: Failed initializing Feature Model on ConfDManager::ClearAclResources()
      cdb_get_txid 7
      log Received new configuration. Loading config...
      cdb_set_namespace 7 1543965233
      $submit
      log SubmitConfiguration: error updating group 1 of stage 1 on Filter Manager (filtMgrErr 77)
      $status-session
      fault 0 UpdateAclResources confd_manager: Failed initializing Feature Model on ConfDManager::UpdateAclResources()
      fault 0 LoadConfdAcl confd_manager: Filter Manager failed to apply ACL initial configuration
      log Could not load acl_app from CDB configuration.

      trace 10 ApplyInitialConfig: Entry Point)",
                              kSteps));
}

TEST_F(CommitCycleTest, FailedLoadStopsAndIsNotTriedAgain) {
  platform_.AddProfile("P", 0, 10);
  platform_.AddInterface("eth0", {"P"});
  for (const auto& [call, reported] :
       {std::pair<const char*, Lines>("cdb_set_namespace",
                                      {"log Cannot set namespace to acl_app on loadCfg"}),
        {"model SetAclPrio",
         {"log Error setting priority 10 to ACL profile P", "log Error loading ACL profiles"}},
        {"model CreateInterface",
         {"log Error creating interface eth0", "log Error loading ACL interfaces"}}}) {
    filter_->RemoveAclProfile("P");
    ++platform_.txid.s3;
    platform_.EndRules();
    platform_.On(call, -4);
    platform_.Take();
    manager_.LoadInitialConfig(kLoadSocket);
    Lines expected = reported;
    expected.insert(expected.begin(), "open 101 3 false");  // nothing is submitted or published
    expected.push_back("log Could not load acl_app from CDB configuration.");
    EXPECT_EQ(platform_.Take({"log Could", "log Cannot", "log Error", "updateGroup", "open"}),
              expected);
    EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 0) << "this transaction had its turn";
  }
}

TEST_F(CommitCycleTest, OnlyAChangedCommitIsSubmittedAndOnce) {
  Change(kChange);
  platform_.Take();
  manager_.StartCommit();  // forgets the change
  manager_.ApplyCommitConfig();
  EXPECT_EQ(platform_.Take(), Text(R"(
      trace 10 StartCommit: Entry Point
      trace 10 ApplyCommitConfig: Entry Point)"));
  Change("modified /config/access-list/interface{eth0}");
  platform_.Take();
  manager_.ApplyCommitConfig();
  manager_.ApplyCommitConfig();
  EXPECT_EQ(TakeSteps(), Text(R"(
      trace 10 ApplyCommitConfig: Entry Point
      $submit
      log ApplyCommitConfig: applied ACL configuration to Filter Manager
      $status-session
      $status-session
      trace 10 ApplyCommitConfig: Entry Point)",
                              kSteps));
}

TEST_F(CommitCycleTest, FailedSubmissionKeepsTheModelAndTheStatus) {
  EXPECT_EQ(Change(std::string("created ") + kProfile), ITER_RECURSE);
  platform_.Take();
  manager_.ApplyCommitConfig();
  EXPECT_EQ(TakeSteps(), Text(R"(
      trace 10 ApplyCommitConfig: Entry Point
      model SubmitConfiguration
      log SubmitConfiguration: error merging profiles and interfaces (aclErr -6)
      log ApplyCommitConfig - could not submit configuration to Filter Manager)"));
  EXPECT_EQ(Dump(*filter_), Text("P pending type 6"));

  // What fails still makes a changed commit; without a clear there is no update.
  EXPECT_EQ(Change(std::string("created ") + kProfile), ITER_CONTINUE);
  filter_->RemoveAclProfile("P");
  platform_.Take();
  platform_.On("fm_init", -1);
  manager_.ApplyCommitConfig();
  EXPECT_EQ(TakeSteps(), Text(R"(
      trace 10 ApplyCommitConfig: Entry Point
      $submit
      log ApplyCommitConfig: applied ACL configuration to Filter Manager
      fault 0 ClearAclResources confd_manager: Failed initializing Feature Model on ConfDManager::ClearAclResources())",
                              kSteps));
}

// ---- Submission ----

TEST_F(CommitCycleTest, FilterCreatesBothGroupsAndToleratesRefusal) {
  platform_.On("createGroup 0", 17);
  AclFilter filter(&client_);
  EXPECT_EQ(platform_.Take(), Text(R"(
      createGroup 0 stage 1 type 6 priority 0
      log AclFilter: error creating group 0 of stage 1 on Filter Manager (filtMgrErr 17)
      createGroup 1 stage 1 type 4 priority 1)"));
  EXPECT_EXIT(AclFilter(nullptr), testing::ExitedWithCode(1),
              "^backtrace\nfault 1 AclFilter filter: failed to initialize AclFilter - invalid "
              "Filter Manager Client\n$");
}

TEST_F(CommitCycleTest, SubmissionEndsWithTheFirstRefusal) {
  filter_->CreateAclProfile(0, "P");
  filter_->SetAclPrio("P", 1);
  filter_->CreateEntry("P", 3);
  filter_->CreateInterface("eth0");
  filter_->AddAclIntoInterface("eth0", "P");
  platform_.Take();
  EXPECT_EQ(filter_->AclFilter::SubmitConfiguration(), ACL_OK);
  platform_.On("updateGroup 0", -9);
  EXPECT_EQ(filter_->AclFilter::SubmitConfiguration(), ACL_ERR_FILTER_MGR);
  EXPECT_EQ(platform_.Take({"updateGroup", "log"}), Text(R"(
      updateGroup 0 stage 1 type 6 priority 0 {0/0 port 1001 ->}
      updateGroup 1 stage 1 type 4 priority 1
      updateGroup 0 stage 1 type 6 priority 0 {0/0 port 1001 ->}
      log SubmitConfiguration: error updating group 0 of stage 1 on Filter Manager (filtMgrErr -9))"));
}

// ---- A failing call at every place ----

// Calls whose failure means nothing to the core. All others must be reported.
bool FailureIsIgnored(const std::string& call) {
  const Lines ignored = {"cdb_get_txid", "cdb_set_timeout 7", "limid_from_intfname",
                         "fm_capacity",  "cdb_getcwd 101",    "cdb_cd 101",
                         "cdb_exists",   "cdb_num_instances", "cdb_get_int32"};
  return std::any_of(ignored.begin(), ignored.end(),
                     [&](const std::string& head) { return StartsWith(call, head); });
}

bool IsReport(const std::string& line) {
  return StartsWith(line, "fault ") || line.find("rror") != std::string::npos ||
         line.find("ould not") != std::string::npos || line.find("annot") != std::string::npos;
}

// A manager and a database with something of everything.
struct FullSetup : ManagerSetup {
  FullSetup() {
    platform_.txid.s1 = 1;
    const std::string profile = platform_.AddProfile("P", 0, 10);
    for (int priority : {5, 6}) {
      const std::string entry = platform_.AddEntry(profile, priority);
      platform_.cdb[entry + "/match/source-mac-address"] = "0x020000000001";
      platform_.cdb[entry + "/match/source-mac-address-mask"] = "0xffffff000000";
      platform_.cdb[entry + "/match/ethertype"] = "\"8100\"";
      platform_.cdb[entry + "/action/packet-handling/deny"] = "";
      platform_.cdb[entry + "/action/set/pcp"] = "u8 3";
    }
    platform_.AddProfile("Q", 1, 20);
    platform_.AddInterface("eth0", {"P", "Q"});
    platform_.AddInterface("eth1", {"P"});
  }

  void Load() {
    try {
      manager_.LoadInitialConfig(kLoadSocket);
    } catch (const std::logic_error&) {
      EXPECT_TRUE(StartsWith(platform_.failed_call(), "cdb_get_buf 7"));
      platform_.Record("log error: an interface without a name");
    }
  }

  void Commit() {
    const std::string entry = std::string(kProfile) + "/access-list-entry";
    platform_.cdb[entry + "{5}/match/source-mac-address-mask"] = "0xff0000000000";
    manager_.StartCommit();
    for (const std::string& change :
         {"set " + entry + "{5}/match/source-mac-address = 0x020000000002",
          "set " + entry + "{5}/match/vlan = u16 7", "deleted " + entry + "{6}",
          std::string("deleted /config/access-list/interface{eth1}"),
          std::string("created /config/access-list/interface{eth2}"),
          std::string("created /config/access-list/interface{eth2}/ingress{P}")}) {
      if (Change(change) != ITER_RECURSE) platform_.Record("log error: refused");
    }
    manager_.ApplyCommitConfig();
  }
};

// Fails each call of the initial load or of a commit in turn, on a new setup each time. What was
// handed out must be back each time, and a failure that matters must be reported.
class FailingCallTest : public testing::TestWithParam<bool> {};
INSTANTIATE_TEST_SUITE_P(LoadAndCommit, FailingCallTest, testing::Bool());

TEST_P(FailingCallTest, IsSurvivedAndReported) {
  int number = 0;
  for (bool more = true; more; ++number) {
    FullSetup setup;
    if (GetParam()) setup.Load();
    setup.platform_.Take();
    setup.platform_.FailCall(number);
    GetParam() ? setup.Commit() : setup.Load();
    more = setup.platform_.calls() > number;
    const std::string& failed = setup.platform_.failed_call();
    const Lines record = setup.platform_.Take({"log", "fault"});
    EXPECT_TRUE(!more || FailureIsIgnored(failed) ||
                std::any_of(record.begin(), record.end(), IsReport))
        << number << ": " << failed;
  }
  EXPECT_GT(number, GetParam() ? 70 : 140) << "calls";
}

}  // namespace
}  // namespace acl_test
