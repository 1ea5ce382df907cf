// The process shell: the order in which the parts come and go, and what each missing part does.
#include "app/application.h"

#include "tests/support/core_fixtures.h"

int AclMain();  // main() of app/main.cpp, renamed by the build

namespace acl_test {
namespace {

using acl_app::Application;
using testing::ExitedWithCode;

constexpr char kOwned[] = "qzmw_init acl-app ; FilterMgrClient acl";
constexpr char kBuilt[] = R"(
    qzmw_log_init 55 32 ACL ; log Initializing ACL Application ; qzmw_trace_init acl
    createGroup 0 stage 1 type 6 priority 0
    createGroup 1 stage 1 type 4 priority 1
    trace 10 ConfDManager: Subscribe to /config/access-list/acl-profile/
    trace 10 ConfDManager: Subscribe to /config/access-list/interface/
    AppInterface acl handlers 1 0 0 phase 2 options 0
)";
constexpr char kOwnedEnd[] = "~FilterMgrClient ; qzmw_finish ; ";
constexpr char kEnd[] = "qzmw_log_finish ; ~AppInterface";

class ApplicationTest : public testing::Test {
 protected:
  ScriptedPlatform platform_;
};

TEST_F(ApplicationTest, OwnsTheMiddlewareAndTheClientThatItMakes) {
  auto application = std::make_unique<Application>("acl-app");
  EXPECT_EQ(platform_.Take(), Text(std::string(kOwned) + kBuilt));
  ASSERT_EQ(platform_.handlers.size(), 1u);
  EXPECT_NE(dynamic_cast<acl_app::ConfDManager*>(platform_.handlers[0]), nullptr);
  EXPECT_EQ(application->Listen(), 0);
  platform_.On("qzmw_loop_while", 5);
  EXPECT_EQ(application->Listen(), 5);
  EXPECT_EQ(platform_.Take(), Lines(2, "qzmw_loop_while true"));
  application.reset();
  EXPECT_EQ(platform_.Take(), Text(std::string(kOwnedEnd) + kEnd));
}

TEST_F(ApplicationTest, LeavesAloneWhatItWasGiven) {
  FilterMgrClientApi::FilterMgrClient client(platform_.middleware(), "other");
  platform_.Take();
  {
    Application application(platform_.middleware(), &client);
    EXPECT_EQ(platform_.Take(), Text(kBuilt));
  }
  EXPECT_EQ(platform_.Take(), Text(kEnd));
}

TEST_F(ApplicationTest, MainRunsTheLoopAndAlwaysEndsWithZero) {
  for (const char* fault : {"", "fault 0 main main: \n"}) {
    platform_.On("qzmw_loop_while", *fault == '\0' ? 0 : -1);
    EXPECT_EQ(AclMain(), 0);
    EXPECT_EQ(platform_.Take(), Text(std::string(kOwned) + kBuilt +
                                     "log ACL process is running...\n" + "qzmw_loop_while true\n" +
                                     fault + "log Leaving ACL process...\n" + kOwnedEnd + kEnd));
  }
}

TEST_F(ApplicationTest, MissingLogIsTolerated) {
  platform_.FailAllocation(1);  // after the Filter Manager client
  Application application("acl-app");
  EXPECT_EQ(platform_.Take({"fault", "log", "qzmw_log", "qzmw_trace"}), Text(R"(
      fault 0 init application: acl_app could not instantiate log_
      qzmw_trace_init acl)"));
}

TEST_F(ApplicationTest, MissingPartEndsTheProcess) {
  const auto start_without = [this](int allocation) {
    platform_.FailAllocation(allocation);
    Application application("acl-app");
  };
  const auto fatal = [](const std::string& function, const std::string& message) {
    return "^backtrace\nfault 1 " + function + " application: " + message + "\n$";
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
