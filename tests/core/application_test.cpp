// The process shell: the order in which the parts come and go, and what each missing part does.
#include "app/application.h"

#include "app/fault.h"
#include "tests/core/platform/core_fixtures.h"

int AclMain();  // main() of app/main.cpp, renamed by the build

namespace acl_test {
namespace {

using acl_app::Application;

const Names kSteps = {{"$start", "qzmw_init acl-app ; FilterMgrClient acl"},
                      {"$build", R"(
    qzmw_log_init 55 32 ACL ; log Initializing ACL Application ; qzmw_trace_init acl
    createGroup 0 stage 1 type 6 priority 0
    createGroup 1 stage 1 type 4 priority 1
    trace 10 ConfDManager: Subscribe to /config/access-list/acl-profile/
    trace 10 ConfDManager: Subscribe to /config/access-list/interface/
    AppInterface acl handlers 1 0 0 phase 2 options 0)"},
                      {"$loop", "qzmw_loop_while true"},
                      {"$finish", "~FilterMgrClient ; qzmw_finish"},
                      {"$end", "qzmw_log_finish ; ~AppInterface"}};

class ApplicationTest : public testing::Test {
 protected:
  void ExpectSteps(const std::string& block) { EXPECT_EQ(platform_.Take(), Text(block, kSteps)); }

  ScriptedPlatform platform_;
};

TEST_F(ApplicationTest, OwnsTheMiddlewareAndTheClientThatItMakes) {
  {
    Application application("acl-app");
    ExpectSteps("$start ; $build");
    ASSERT_EQ(platform_.handlers.size(), 1u);
    EXPECT_NE(dynamic_cast<acl_app::ConfDManager*>(platform_.handlers[0]), nullptr);
    platform_.On("qzmw_loop_while", 5);
    EXPECT_EQ(application.Listen(), 5);
  }
  ExpectSteps("$loop ; $finish ; $end");
}

TEST_F(ApplicationTest, LeavesAloneWhatItWasGiven) {
  FilterMgrClientApi::FilterMgrClient client(platform_.middleware(), "other");
  platform_.Take();
  { Application application(platform_.middleware(), &client); }
  ExpectSteps("$build ; $end");
}

TEST_F(ApplicationTest, MainRunsTheLoopAndAlwaysEndsWithZero) {
  EXPECT_EQ(AclMain(), 0);
  ExpectSteps(
      "$start ; $build ; log ACL process is running... ; $loop\n"
      "log Leaving ACL process... ; $finish ; $end");
  platform_.On("qzmw_loop_while", -1);
  EXPECT_EQ(AclMain(), 0);
  EXPECT_EQ(platform_.Take({"fault", "log Leaving"}),
            Lines({"fault 0 main main: ", "log Leaving ACL process..."}));
}

TEST_F(ApplicationTest, MissingLogIsTolerated) {
  platform_.FailAllocation(1);  // after the Filter Manager client
  Application application("acl-app");
  EXPECT_EQ(platform_.Take({"fault", "log", "qzmw_log", "qzmw_trace"}), Text(R"(
      fault 0 init application: acl_app could not instantiate log_
      qzmw_trace_init acl)"));
}

TEST_F(ApplicationTest, MissingPartEndsTheProcess) {
  platform_.On("qzmw_init", -1);
  for (const Lines& row : Rows(R"(
      -1 | Application | acl_app could not instantiate qzmw_
       0 | Application | Filter Manager Client could not be instantiated
       2 | init        | could not instantiate ConfDManager
       3 | init        | could not instantiate AppInterface)")) {
    const auto start = [&] {
      platform_.FailAllocation(std::stoi(row[0]));
      Application application("acl-app");
    };
    EXPECT_EXIT(start(), testing::ExitedWithCode(1),
                "^backtrace\nfault 1 " + row[1] + " application: " + row[2] + "\n$");
    platform_.EndRules();
  }
}

TEST_F(ApplicationTest, TextsOfFaultsAreCut) {
  const std::string text(400, 'x'), cut(299, 'x');
  acl_app::RaiseFault("f", "file", 1, "%s", text.c_str());
  EXPECT_EQ(platform_.Take({"fault"}), Lines({"fault 0 f file: " + cut}));
  EXPECT_EXIT(acl_app::RaiseFatalFault("f", "file", 1, text.c_str()), testing::ExitedWithCode(1),
              " file: " + cut + "\n$");
}

}  // namespace
}  // namespace acl_test
