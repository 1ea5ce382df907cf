// The process shell: the order in which the parts come and go, and what each missing part does.
#include "app/application.h"

#include "tests/support/core_fixtures.h"

int AclMain();  // main() of app/main.cpp, renamed by the build

namespace acl_test {
namespace {

using acl_app::Application;
using testing::ElementsAre;
using testing::ExitedWithCode;

const Lines kBuilt = {
    "qzmw_log_init 55 32 ACL",
    "log Initializing ACL Application",
    "qzmw_trace_init acl",
    "createGroup 0 stage 1 type 6 priority 0 entries 0",
    "createGroup 1 stage 1 type 4 priority 1 entries 0",
    "trace 10 ConfDManager: Subscribe to /config/access-list/acl-profile/",
    "trace 10 ConfDManager: Subscribe to /config/access-list/interface/",
    "AppInterface acl handlers 1 0 0 phase 2 options 0",
};
const Lines kTornDown = {"~FilterMgrClient", "qzmw_finish", "qzmw_log_finish", "~AppInterface"};

Lines Join(std::initializer_list<Lines> parts) {
  Lines all;
  for (const Lines& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

class ApplicationTest : public testing::Test {
 protected:
  ScriptedPlatform platform_;
};

TEST_F(ApplicationTest, OwnsTheMiddlewareAndTheClientThatItMakes) {
  auto application = std::make_unique<Application>("acl-app");
  EXPECT_EQ(platform_.Take(), Join({{"qzmw_init acl-app", "FilterMgrClient acl"}, kBuilt}));
  ASSERT_EQ(platform_.handlers.size(), 1u);
  EXPECT_NE(dynamic_cast<acl_app::ConfDManager*>(platform_.handlers[0]), nullptr);
  application.reset();
  EXPECT_EQ(platform_.Take(), kTornDown);
}

TEST_F(ApplicationTest, LeavesAloneWhatItWasGiven) {
  FilterMgrClientApi::FilterMgrClient client(platform_.middleware(), "other");
  platform_.Take();
  {
    Application application(platform_.middleware(), &client);
    EXPECT_EQ(platform_.Take(), kBuilt);
  }
  EXPECT_THAT(platform_.Take(), ElementsAre("qzmw_log_finish", "~AppInterface"));
}

TEST_F(ApplicationTest, ListenGivesTheLoopsResult) {
  Application application("acl-app");
  platform_.Take();
  EXPECT_EQ(application.Listen(), 0);
  platform_.On("qzmw_loop_while", 5);
  EXPECT_EQ(application.Listen(), 5);
  EXPECT_THAT(platform_.Take(), ElementsAre("qzmw_loop_while true", "qzmw_loop_while true"));
}

TEST_F(ApplicationTest, MainRunsTheLoopAndAlwaysEndsWithZero) {
  for (int result : {0, -1}) {
    platform_.On("qzmw_loop_while", result);
    platform_.on_loop = [this] {
      platform_.handlers.at(0)->LoadInitialConfig(kLoadSocket);
      platform_.Take();
    };
    EXPECT_EQ(AclMain(), 0);
    const Lines fault = result == 0 ? Lines() : Lines{"fault 0 main main: "};
    EXPECT_EQ(platform_.Take(), Join({fault, {"log Leaving ACL process..."}, kTornDown}));
  }
  platform_.on_loop = nullptr;
  AclMain();
  EXPECT_THAT(platform_.Take({"log ", "qzmw_loop"}),
              ElementsAre("log Initializing ACL Application", "log ACL process is running...",
                          "qzmw_loop_while true", "log Leaving ACL process..."));
}

TEST_F(ApplicationTest, MissingLogIsTolerated) {
  platform_.FailAllocation(1);  // after the Filter Manager client
  Application application("acl-app");
  EXPECT_THAT(platform_.Take({"fault", "log", "qzmw_log", "qzmw_trace"}),
              ElementsAre("fault 0 init application: acl_app could not instantiate log_",
                          "qzmw_trace_init acl"));
}

TEST_F(ApplicationTest, MissingPartEndsTheProcess) {
  const auto fatal = [](const std::string& function, const std::string& message) {
    return "^backtrace\nfault 1 " + function + " application: " + message + "\n$";
  };
  const auto start_without = [this](int allocation) {
    platform_.FailAllocation(allocation);
    Application application("acl-app");
  };
  EXPECT_EXIT(start_without(0), ExitedWithCode(1),
              fatal("Application", "Filter Manager Client could not be instantiated"));
  EXPECT_EXIT(start_without(2), ExitedWithCode(1),
              fatal("init", "could not instantiate ConfDManager"));
  EXPECT_EXIT(start_without(3), ExitedWithCode(1),
              fatal("init", "could not instantiate AppInterface"));
  platform_.On("qzmw_init", -1);
  EXPECT_EXIT(Application("acl-app"), ExitedWithCode(1),
              fatal("Application", "acl_app could not instantiate qzmw_"));
}

}  // namespace
}  // namespace acl_test
