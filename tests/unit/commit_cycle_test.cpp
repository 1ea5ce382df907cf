// The configuration manager's callbacks: subscriptions, the initial load as a whole, commits.
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using acl_app::ACL_ERR_FILTER_MGR;
using acl_app::ConfDManager;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kProfilePath[] = "/config/access-list/acl-profile/ingress/access-list{0 P}";

class CommitCycleTest : public ManagerTest {
 protected:
  // The part of the record that tells what a callback did; a status session stands for all that
  // happens in it.
  Lines TakeSteps() {
    return platform_.Take({"trace", "log ", "fault", "model Submit", "updateGroup", "open",
                           "cdb_get_txid", "cdb_set_namespace", "cdb_delete"});
  }
  confd_iter_ret Change(size_t point, const std::string& path, confd_iter_op op) {
    KeyPath keypath(path);
    return manager_.GetSubscriptionPoints()[point].diff_iterator(&keypath, op, nullptr, nullptr);
  }
};

constexpr char kSentL2[] = "updateGroup 0 stage 1 type 6 priority 0 entries 0";
constexpr char kSentL3[] = "updateGroup 1 stage 1 type 4 priority 1 entries 0";
constexpr char kStatus[] = "open 101 3 false";

TEST_F(CommitCycleTest, SubscribesToProfilesThenInterfaces) {
  const auto& points = manager_.GetSubscriptionPoints();
  EXPECT_THAT(platform_.Take(), ElementsAre("trace 10 GetSubscriptionPoints: Entry Point"));
  ASSERT_EQ(points.size(), 2u);
  const char* const paths[] = {"/config/access-list/acl-profile/",
                               "/config/access-list/interface/"};
  for (int i : {0, 1}) {
    EXPECT_EQ(points[i].ordinal, i);
    EXPECT_EQ(points[i].namespace_hash, 1543965233);
    EXPECT_STREQ(points[i].path, paths[i]);
    EXPECT_EQ(points[i].flags, 16);
  }
  EXPECT_EQ(Change(0, "/config", MOP_MODIFIED), ITER_RECURSE);
  EXPECT_EQ(Change(1, "/config", MOP_MODIFIED), ITER_RECURSE);
  EXPECT_THAT(platform_.Take({"log AclP", "log AclI"}),
              ElementsAre("log AclProfilesDiffIt - modified path: /config",
                          "log AclInterfacesDiffIt - modified path: /config",
                          testing::StartsWith("log AclInterfacesDiffIt - nothing to do")));
}

TEST_F(CommitCycleTest, NoFilterEndsTheProcess) {
  EXPECT_EXIT(ConfDManager(platform_.trace_category(), std::shared_ptr<acl_app::AclFilter>()),
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
  EXPECT_THAT(platform_.Take({"log", "fault"}), IsEmpty());
}

TEST_F(CommitCycleTest, InitialLoadTakesItsStepsInOrder) {
  platform_.txid.s1 = 1;
  manager_.LoadInitialConfig(kLoadSocket);
  const Lines loaded = {"trace 10 LoadInitialConfig: Entry Point",
                        kStatus,
                        "cdb_get_txid 7",
                        "log Received new configuration. Loading config...",
                        "cdb_set_namespace 7 1543965233",
                        "model SubmitConfiguration",
                        kSentL2,
                        kSentL3,
                        kStatus,
                        "log All LoadConfdConfig executed successfully!"};
  EXPECT_EQ(TakeSteps(), loaded);
  manager_.LoadInitialConfig(kLoadSocket);
  EXPECT_THAT(TakeSteps(), ElementsAre(loaded[0], kStatus, "cdb_get_txid 7", loaded.back()))
      << "the same transaction";
  platform_.txid.s2 = 1;
  platform_.On("fm_init", -1);
  manager_.LoadInitialConfig(kLoadSocket);
  Lines steps = TakeSteps();
  ASSERT_EQ(steps.size(), loaded.size() + 1);
  EXPECT_EQ(steps[1].substr(0, 25), "fault 0 ClearAclResources") << "and goes on";
  EXPECT_EQ(steps.back(), loaded.back());
  manager_.ApplyInitialConfig();
  EXPECT_THAT(platform_.Take(), ElementsAre("trace 10 ApplyInitialConfig: Entry Point"));
}

TEST_F(CommitCycleTest, FailedLoadStopsAndIsNotTriedAgain) {
  platform_.AddProfile("P", 0, 10);
  platform_.AddInterface("eth0", {"P"});
  const std::string kGiveUp = "log Could not load acl_app from CDB configuration.";
  const struct {
    const char* call;
    Lines reported;
  } rows[] = {
      {"cdb_set_namespace", {"log Cannot set namespace to acl_app on loadCfg", kGiveUp}},
      {"model SetAclPrio",
       {"log Error setting priority 10 to ACL profile P", "log Error loading ACL profiles",
        kGiveUp}},
      {"model CreateInterface",
       {"log Error creating interface eth0", "log Error loading ACL interfaces", kGiveUp}},
  };
  for (const auto& row : rows) {
    filter_->RemoveAclProfile("P");
    ++platform_.txid.s3;
    platform_.EndRules();
    platform_.On(row.call, -4);
    platform_.Take();
    manager_.LoadInitialConfig(kLoadSocket);
    Lines steps = platform_.Take({"log Could", "log Cannot", "log Error", "updateGroup", "open"});
    EXPECT_EQ(steps.front(), kStatus) << "only the clear: nothing submitted, nothing published";
    steps.erase(steps.begin());
    EXPECT_EQ(steps, row.reported);
    EXPECT_EQ(manager_.IsThereNewCdbConfig(kLoadSocket), 0) << "this transaction had its turn";
  }
}

TEST_F(CommitCycleTest, InitialStatusIsPublishedEvenWhenTheSubmissionFails) {
  platform_.txid.s1 = 1;
  platform_.On("updateGroup 1", 77);
  EXPECT_EQ(manager_.LoadConfdAcl(kLoadSocket), ACL_ERR_FILTER_MGR);
  EXPECT_THAT(
      TakeSteps(),
      ElementsAre("cdb_set_namespace 7 1543965233", "model SubmitConfiguration", kSentL2, kSentL3,
                  testing::StartsWith("log SubmitConfiguration: error updating"), kStatus,
                  "fault 0 LoadConfdAcl confd_manager: Filter Manager failed to apply ACL "
                  "initial configuration"));
}

TEST_F(CommitCycleTest, OnlyAChangedCommitIsSubmittedAndOnce) {
  manager_.StartCommit();
  manager_.ApplyCommitConfig();
  EXPECT_THAT(platform_.Take(), ElementsAre("trace 10 StartCommit: Entry Point",
                                            "trace 10 ApplyCommitConfig: Entry Point"));
  Change(0, "/config", MOP_MODIFIED);
  manager_.StartCommit();
  manager_.ApplyCommitConfig();
  EXPECT_THAT(platform_.Take({"model"}), IsEmpty()) << "a new commit starts unchanged";

  Change(1, "/config", MOP_MODIFIED);
  platform_.Take();
  manager_.ApplyCommitConfig();
  EXPECT_THAT(
      TakeSteps(),
      ElementsAre("trace 10 ApplyCommitConfig: Entry Point", "model SubmitConfiguration", kSentL2,
                  kSentL3, "log ApplyCommitConfig: applied ACL configuration to Filter Manager",
                  kStatus, kStatus));
  manager_.ApplyCommitConfig();
  EXPECT_THAT(TakeSteps(), ElementsAre("trace 10 ApplyCommitConfig: Entry Point"));
}

TEST_F(CommitCycleTest, FailedSubmissionKeepsTheModelAndTheStatus) {
  manager_.StartCommit();
  EXPECT_EQ(Change(0, kProfilePath, MOP_CREATED), ITER_RECURSE);
  platform_.Take();
  manager_.ApplyCommitConfig();
  EXPECT_THAT(TakeSteps(),
              ElementsAre("trace 10 ApplyCommitConfig: Entry Point", "model SubmitConfiguration",
                          "log SubmitConfiguration: error merging profiles and interfaces "
                          "(aclErr -6)",
                          "log ApplyCommitConfig - could not submit configuration to Filter "
                          "Manager"));
  EXPECT_THAT(DumpModel(*filter_), ElementsAre("pending P type 6"));

  manager_.StartCommit();  // what fails still makes a changed commit
  EXPECT_EQ(Change(0, kProfilePath, MOP_CREATED), ITER_CONTINUE);
  filter_->RemoveAclProfile("P");
  platform_.Take();
  platform_.On("fm_local_slot", -1);
  manager_.ApplyCommitConfig();
  EXPECT_THAT(
      TakeSteps(),
      ElementsAre("trace 10 ApplyCommitConfig: Entry Point", "model SubmitConfiguration", kSentL2,
                  kSentL3, "log ApplyCommitConfig: applied ACL configuration to Filter Manager",
                  testing::StartsWith("fault 0 ClearAclResources")))
      << "without a clear there is no update";
}

// ---- A failing call at every place ----

// Calls whose failure means nothing to the core. All others must be reported.
bool FailureIsIgnored(const std::string& call) {
  for (const char* ignored :
       {"cdb_get_txid", "cdb_set_timeout 7", "limid_from_intfname", "fm_capacity", "cdb_getcwd",
        "cdb_cd 101", "cdb_num_instances", "cdb_exists", "cdb_get_int32"}) {
    if (call.compare(0, std::string(ignored).size(), ignored) == 0) return true;
  }
  return false;
}

bool Reports(const std::string& line) {
  return line.compare(0, 6, "fault ") == 0 || line.find("rror") != std::string::npos ||
         line.find("ould not") != std::string::npos || line.find("annot") != std::string::npos;
}

struct Daemon {
  Daemon() {
    manager.SetInterface(&connection);
    platform.txid.s1 = 1;
    const std::string profile = platform.AddProfile("P", 0, 10);
    for (int priority : {5, 6}) {
      const std::string entry = platform.AddEntry(profile, priority);
      platform.cdb[entry + "/match/source-mac-address"] = Binary({2, 0, 0, 0, 0, 1});
      platform.cdb[entry + "/match/source-mac-address-mask"] = Binary({255, 255, 255, 0, 0, 0});
      platform.cdb[entry + "/match/ethertype"] = Buf("8100");
      platform.cdb[entry + "/action/packet-handling/deny"] = Value();
      platform.cdb[entry + "/action/set/pcp"] = U8(3);
    }
    platform.AddProfile("Q", 1, 20);
    platform.AddInterface("eth0", {"P", "Q"});
    platform.AddInterface("eth1", {"P"});
  }

  void Commit() {
    const std::string match = std::string(kProfilePath) + "/access-list-entry{5}/match/";
    platform.cdb[match + "source-mac-address-mask"] = Binary({255, 0, 0, 0, 0, 0});
    const struct {
      int point;
      std::string path;
      confd_iter_op operation;
      Value new_value;
    } changes[] = {
        {0, match + "source-mac-address", MOP_VALUE_SET, Binary({2, 0, 0, 0, 0, 2})},
        {0, match + "vlan", MOP_VALUE_SET, U16(7)},
        {0, std::string(kProfilePath) + "/access-list-entry{6}", MOP_DELETED, {}},
        {1, "/config/access-list/interface{eth1}", MOP_DELETED, {}},
        {1, "/config/access-list/interface{eth2}", MOP_CREATED, {}},
        {1, "/config/access-list/interface{eth2}/ingress{P}", MOP_CREATED, {}},
    };
    manager.StartCommit();
    for (const auto& change : changes) {
      KeyPath keypath(change.path);
      if (manager.GetSubscriptionPoints()[change.point].diff_iterator(
              &keypath, change.operation, nullptr,
              const_cast<confd_value_t*>(change.new_value.get())) != ITER_RECURSE) {
        platform.Record("log error: refused");  // the result is the report
      }
    }
    manager.ApplyCommitConfig();
  }

  ScriptedPlatform platform;
  acl_app::AclLog log{platform.middleware()};
  QzConfdInterface connection{kSubscriptionSocket};
  FilterMgrClientApi::FilterMgrClient client{platform.middleware(), "acl"};
  std::shared_ptr<RecordingFilter> filter = std::make_shared<RecordingFilter>(&client);
  ConfDManager manager{platform.trace_category(), filter};
};

// Runs `callback` on a new daemon with its call of each number failing, until it makes no more
// calls. What was handed out must be back each time, and a failure that matters must be reported.
template <class Prepare, class Callback>
void FailEveryCall(Prepare prepare, Callback callback, int at_least) {
  bool more = true;
  for (int number = 0; more; ++number) {
    Daemon daemon;
    prepare(daemon);
    daemon.platform.Take();
    daemon.platform.FailCall(number);
    callback(daemon);
    more = daemon.platform.calls() > number;
    EXPECT_TRUE(more || number >= at_least) << number << " calls that can fail";
    const std::string failed = daemon.platform.failed_call();
    const Lines record = daemon.platform.Take({"log", "fault"});
    if (!more || FailureIsIgnored(failed)) continue;
    EXPECT_TRUE(std::any_of(record.begin(), record.end(), Reports)) << number << ": " << failed;
  }
}

TEST(FailingCallTest, InitialLoadSurvivesAndReports) {
  FailEveryCall([](Daemon&) {},
                [](Daemon& daemon) {
                  try {
                    daemon.manager.LoadInitialConfig(kLoadSocket);
                  } catch (const std::logic_error&) {
                    EXPECT_EQ(daemon.platform.failed_call().substr(0, 13), "cdb_get_buf 7");
                    daemon.platform.Record("log error: no name");
                  }
                },
                120);
}

TEST(FailingCallTest, CommitSurvivesAndReports) {
  FailEveryCall([](Daemon& daemon) { daemon.manager.LoadInitialConfig(kLoadSocket); },
                [](Daemon& daemon) { daemon.Commit(); }, 60);
}

}  // namespace
}  // namespace acl_test
