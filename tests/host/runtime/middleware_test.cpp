#include "host/runtime/middleware.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <functional>
#include <string>

#include "host/runtime/error_watch.h"
#include "host/runtime/log_message.h"
#include "host/runtime/settings.h"
#include "platform/zlog/zlog.h"
#include "tests/host/runtime/scratch_state.h"

namespace host {
namespace {

using testing::AllOf;
using testing::HasSubstr;
using testing::Not;

const uint32_t kComponent = 55;
const qzmw_log_class_t kClass = {32, "ACL"};

// What `action` writes to standard error.
std::string ErrorOutput(const std::function<void()>& action) {
  testing::internal::CaptureStderr();
  action();
  return testing::internal::GetCapturedStderr();
}

void SendDebug(qzmw_log_t* log, const char* format, ...) {
  va_list args;
  va_start(args, format);
  qzmw_vlog_debug(log, format, args);
  va_end(args);
}

void SendMessage(qzmw_log_t* log, const qzmw_log_msg_t* message, ...) {
  va_list args;
  va_start(args, message);
  qzmw_vlog(log, message, args);
  va_end(args);
}

class MiddlewareTest : public testing::Test {
 protected:
  ~MiddlewareTest() override {
    if (mw_ != nullptr) {
      qzmw_finish(&mw_);
    }
  }
  void Start(const std::string& settings = "") {
    scratch_.Settings(settings);
    mw_ = qzmw_init("acl-app");
    ASSERT_NE(nullptr, mw_);
  }

  ScratchState scratch_;
  qzmw_t* mw_ = nullptr;
};

TEST_F(MiddlewareTest, EndSignalsAndTheFlagEndTheLoopWithZero) {
  for (const int signal : {SIGTERM, SIGINT}) {
    Start();
    bool running = true;
    const auto task = LoopOf(mw_)->Soon([signal] { kill(getpid(), signal); });
    EXPECT_EQ(0, qzmw_loop_while(mw_, &running));
    EXPECT_TRUE(running);
    qzmw_finish(&mw_);
    EXPECT_EQ(nullptr, mw_);
  }
  Start();
  bool running = true;
  const auto task = LoopOf(mw_)->Soon([&] { running = false; });
  EXPECT_EQ(0, qzmw_loop_while(mw_, &running));
}

TEST_F(MiddlewareTest, PeerThatHangsUpDoesNotEndTheProcess) {
  Start();
  int ends[2];
  ASSERT_EQ(0, pipe(ends));
  close(ends[0]);
  EXPECT_EQ(-1, write(ends[1], "x", 1));
  EXPECT_EQ(EPIPE, errno);
  close(ends[1]);
}

TEST_F(MiddlewareTest, StateBelongsToOneProcessUntilTheLastUserOfTheLoopIsGone) {
  Start();
  auto loop = LoopOf(mw_);
  scratch_.File("lock", "1\n");  // who is named is who holds it, not who wrote to it
  const auto expect_refused = [&] {
    EXPECT_EXIT(qzmw_init("acl-app"), testing::ExitedWithCode(1),
                "critical cannot start: state directory " + scratch_.directory() +
                    " is in use by the process with pid " + std::to_string(getpid()) + "\n$");
  };
  expect_refused();
  qzmw_finish(&mw_);
  expect_refused();
  loop.reset();
  Start();
}

TEST_F(MiddlewareTest, StateIsClosedToOthers) {
  namespace fs = std::filesystem;
  constexpr fs::perms kOthers = fs::perms::group_all | fs::perms::others_all;
  const std::string file = scratch_.File("configuration.db", ""), lock = scratch_.File("lock", "");
  const auto open_all = [&] {
    for (const std::string& path : {scratch_.directory(), file, lock}) {
      fs::permissions(path, fs::perms::others_read, fs::perm_options::add);
    }
  };
  open_all();
  Start();
  std::ofstream(scratch_.directory() + "/new").flush();
  for (const std::string& path :
       {scratch_.directory(), file, lock, scratch_.directory() + "/new"}) {
    EXPECT_EQ(fs::perms::none, fs::status(path).permissions() & kOthers) << path;
  }
  qzmw_finish(&mw_);
  // A directory that is not the daemon's alone stays open to whoever uses it.
  fs::create_directory(scratch_.directory() + "/sub");
  open_all();
  Start();
  EXPECT_NE(fs::perms::none, fs::status(scratch_.directory()).permissions() & kOthers);
}

TEST_F(MiddlewareTest, StartFailsWithTheReason) {
  const std::string file = scratch_.File("file", "");
  const std::string blocked = scratch_.directory() + "/blocked";
  std::filesystem::create_directories(blocked + "/lock");
  const struct {
    std::string settings;
    std::string reason;
  } cases[] = {
      {"state_directory = " + file + "\n",
       "state directory " + file + " cannot be used: Not a directory"},
      {"state_directory = " + blocked + "\n",
       "lock file " + blocked + "/lock cannot be opened: Is a directory"},
  };
  for (const auto& c : cases) {
    scratch_.Settings(c.settings);
    EXPECT_EXIT(qzmw_init("acl-app"), testing::ExitedWithCode(1), "cannot start: " + c.reason);
  }
  if (!std::filesystem::exists("/run/systemd/journal/socket")) {
    scratch_.Settings("log_target = journal\n");
    EXPECT_EXIT(qzmw_init("acl-app"), testing::ExitedWithCode(1),
                "the journal cannot be written to: /run/systemd/journal/socket");
  }
}

TEST_F(MiddlewareTest, FaultsCarryPlaceAndMessage) {
  Start();
  EXPECT_THAT(ErrorOutput([] { qzmw_gen_fault(0, "Listen", "main", 12, "100%s of\nit"); }),
              HasSubstr("error    fault in Listen (main:12): 100%s of\\x0ait\n"));
  EXPECT_THAT(ErrorOutput([] { qzmw_gen_fault(1, "f", "main", 1, ""); }),
              HasSubstr("critical fatal fault in f (main:1): \n"));
  EXPECT_THAT(ErrorOutput(qzmw_print_backtrace),
              AllOf(HasSubstr("#1 "), HasSubstr("runtime_test")));
  EXPECT_EXIT(FatalFault("f", "cdb", 3, "no %s", "file"), testing::ExitedWithCode(1),
              "fatal fault in f \\(cdb:3\\): no file");
}

TEST_F(MiddlewareTest, LogServiceWritesAtItsLevelsAndOutlivesTheMiddleware) {
  Start();
  qzmw_log_t* log = qzmw_log_init(mw_, &kComponent, &kClass);
  EXPECT_EQ(nullptr, qzmw_log_init(nullptr, &kComponent, &kClass));
  EXPECT_EQ("", ErrorOutput([&] { SendDebug(log, "hidden at level info"); }));
  {
    // What the level keeps out can still be asked for, where it tells of a failure.
    const ErrorWatch errors;
    EXPECT_EQ("", ErrorOutput([&] {
                SendDebug(log, "terror of %d", 4);
                SendDebug(log, "F - error of %d", 5);
              }));
    ErrorOutput([] { Log(LogLevel::kError, "plain"); });
    EXPECT_THAT(errors.lines(), testing::ElementsAre("F - error of 5", "plain"));
  }
  const qzmw_log_msg_t warning = {8, 7, "%d of %s"};
  EXPECT_THAT(ErrorOutput([&] { SendMessage(log, &warning, 3, "five"); }),
              HasSubstr("warning  ACL: [55.7] 3 of five\n"));
  const qzmw_log_msg_t debug = {1, 7, "hidden"};
  EXPECT_EQ("", ErrorOutput([&] { SendMessage(log, &debug); }));
  qzmw_finish(&mw_);

  Start("log_level = debug\n");
  qzmw_finish(&mw_);
  const std::string longer(2000, 'n');
  EXPECT_THAT(ErrorOutput([&] { SendDebug(log, "%s %d%%", longer.c_str(), 5); }),
              HasSubstr("debug    ACL: " + longer + " 5%\n"));
  qzmw_log_finish(&log);
  EXPECT_EQ(nullptr, log);
}

TEST_F(MiddlewareTest, TraceLinesGoToTheLogByTheirLevel) {
#ifdef HOST_ZLOG_LIBRARY
  GTEST_SKIP() << "trace lines go where the zlog library's own configuration says";
#endif
  Start("log_level = trace\n");
  zlog_category_s* category = qzmw_trace_init(mw_, "acl");
  EXPECT_EQ(category, qzmw_trace_init(mw_, "acl"));
  const auto trace = [&](int level) {
    return ErrorOutput([&] { zlog(category, "a.cpp!", 5, "F!", 1, 9, level, "Entry %s", "%n"); });
  };
  EXPECT_THAT(trace(10), HasSubstr("trace    acl a.cpp:9 F: Entry %n\n"));
  EXPECT_THAT(trace(20), HasSubstr("debug    acl "));
  EXPECT_THAT(trace(60), HasSubstr("info     acl "));
  EXPECT_THAT(trace(120), HasSubstr("critical acl "));
  qzmw_finish(&mw_);
  Start("log_level = debug\n");
  EXPECT_EQ("", trace(10));
}

}  // namespace
}  // namespace host
