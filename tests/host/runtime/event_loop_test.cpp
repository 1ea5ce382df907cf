#include "host/runtime/event_loop.h"

#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <array>
#include <string>

namespace host {
namespace {

using std::chrono::milliseconds;

class EventLoopTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, pipe2(pipe_.data(), O_NONBLOCK | O_CLOEXEC)); }
  void TearDown() override {
    close(pipe_[0]);
    close(pipe_[1]);
  }
  void MakeReadable() { ASSERT_EQ(1, write(pipe_[1], "x", 1)); }
  int Run() { return loop_->RunWhile(&running_); }

  std::shared_ptr<EventLoop> loop_ = EventLoop::Create();
  std::array<int, 2> pipe_{};
  bool running_ = true;
};

TEST_F(EventLoopTest, ReadyDescriptorIsReportedUntilItsWatchEnds) {
  MakeReadable();
  int calls = 0;
  std::unique_ptr<Watch> watch;
  watch = loop_->OnIo(pipe_[0], EPOLLIN, [&, payload = std::string(100, 'p')](uint32_t ready) {
    EXPECT_EQ(static_cast<uint32_t>(EPOLLIN), ready);
    if (++calls == 3) {
      watch.reset();
      // The callback is still whole after its watch is gone.
      EXPECT_EQ(std::string(100, 'p'), payload);
    }
  });
  const auto end = loop_->After(milliseconds(20), [&] { running_ = false; });
  EXPECT_EQ(0, Run());
  EXPECT_EQ(3, calls);
}

TEST_F(EventLoopTest, WatchEndedByAnotherCallbackIsNotCalledThoughReady) {
  MakeReadable();
  int calls = 0;
  const int same = dup(pipe_[0]);
  std::array<std::unique_ptr<Watch>, 2> watches;
  for (size_t i : {0, 1}) {
    watches[i] = loop_->OnIo(i == 0 ? pipe_[0] : same, EPOLLIN, [&](uint32_t) {
      ++calls;
      watches = {};
    });
  }
  const auto end = loop_->After(milliseconds(5), [&] { loop_->Stop(); });
  EXPECT_EQ(0, Run());
  close(same);
  EXPECT_EQ(1, calls);
}

TEST_F(EventLoopTest, TimersRunOnceInOrderAndTasksBeforeThem) {
  std::string order;
  const auto later = loop_->After(milliseconds(4), [&] {
    order += 'c';
    loop_->Stop();
  });
  const auto sooner = loop_->After(milliseconds(1), [&] { order += 'b'; });
  const auto task = loop_->Soon([&] { order += 'a'; });
  auto cancelled = loop_->After(milliseconds(2), [&] { order += 'x'; });
  cancelled.reset();
  EXPECT_EQ(0, Run());
  EXPECT_EQ("abc", order);
}

TEST_F(EventLoopTest, RunEndsWithTheFlagAndAtOnceWhenAlreadyStopped) {
  const auto task = loop_->Soon([&] { running_ = false; });
  EXPECT_EQ(0, Run());
  EXPECT_FALSE(running_);
  running_ = true;
  loop_->Stop();
  EXPECT_EQ(0, Run());
}

TEST_F(EventLoopTest, WatchMayOutliveTheLoop) {
  auto watch = loop_->OnIo(pipe_[0], EPOLLIN, [](uint32_t) {});
  loop_.reset();
  watch.reset();
}

}  // namespace
}  // namespace host
