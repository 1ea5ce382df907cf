#include "host/runtime/event_loop.h"

#include <systemd/sd-event.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

namespace host {
namespace {

// A source of the loop and what it calls. The source holds a reference of the sd_event, so a watch
// may outlive the EventLoop.
template <typename... Args>
class SourceWatch : public Watch {
 public:
  using Callback = std::function<void(Args...)>;

  explicit SourceWatch(Callback callback)
      : callback_(std::make_shared<Callback>(std::move(callback))) {}
  ~SourceWatch() override { sd_event_source_disable_unref(source_); }

  sd_event_source** source() { return &source_; }

  // Holds the callback while it runs, for it may destroy the watch. An exception out of a callback
  // is a programming error and ends the process here, before it can unwind the C library's frames.
  static void Call(void* userdata, Args... args) noexcept {
    const std::shared_ptr<Callback> callback = static_cast<SourceWatch*>(userdata)->callback_;
    (*callback)(args...);
  }

 private:
  std::shared_ptr<Callback> callback_;
  sd_event_source* source_ = nullptr;
};

using PlainWatch = SourceWatch<>;
using IoWatch = SourceWatch<uint32_t>;

int OnIoReady(sd_event_source*, int, uint32_t ready, void* userdata) {
  IoWatch::Call(userdata, ready);
  return 0;
}

int OnTime(sd_event_source*, uint64_t, void* userdata) {
  PlainWatch::Call(userdata);
  return 0;
}

int OnTask(sd_event_source*, void* userdata) {
  PlainWatch::Call(userdata);
  return 0;
}

int OnSignalDelivered(sd_event_source*, const signalfd_siginfo*, void* userdata) {
  PlainWatch::Call(userdata);
  return 0;
}

// `result` is what the sd_event_add_*() call for the watch returned.
std::unique_ptr<Watch> Checked(std::unique_ptr<Watch> watch, int result) {
  if (result < 0) {
    errno = -result;
    return nullptr;
  }
  return watch;
}

}  // namespace

std::shared_ptr<EventLoop> EventLoop::Create() {
  sd_event* event = nullptr;
  const int result = sd_event_new(&event);
  if (result < 0) {
    errno = -result;
    return nullptr;
  }
  return std::shared_ptr<EventLoop>(new EventLoop(event));
}

EventLoop::EventLoop(sd_event* event) : event_(event) {}

EventLoop::~EventLoop() { sd_event_unref(event_); }

std::unique_ptr<Watch> EventLoop::OnIo(int fd, uint32_t events,
                                       std::function<void(uint32_t ready)> on_ready) {
  auto watch = std::make_unique<IoWatch>(std::move(on_ready));
  const int result = sd_event_add_io(event_, watch->source(), fd, events, OnIoReady, watch.get());
  return Checked(std::move(watch), result);
}

std::unique_ptr<Watch> EventLoop::After(std::chrono::microseconds delay,
                                        std::function<void()> on_time) {
  // The least accuracy that is not the library's default of a quarter of a second.
  constexpr uint64_t kAccuracyUsec = 1;
  const uint64_t delay_usec = delay.count() < 0 ? 0 : static_cast<uint64_t>(delay.count());
  auto watch = std::make_unique<PlainWatch>(std::move(on_time));
  const int result = sd_event_add_time_relative(event_, watch->source(), CLOCK_MONOTONIC,
                                                delay_usec, kAccuracyUsec, OnTime, watch.get());
  return Checked(std::move(watch), result);
}

std::unique_ptr<Watch> EventLoop::Soon(std::function<void()> task) {
  auto watch = std::make_unique<PlainWatch>(std::move(task));
  const int result = sd_event_add_defer(event_, watch->source(), OnTask, watch.get());
  return Checked(std::move(watch), result);
}

std::unique_ptr<Watch> EventLoop::OnSignal(int signal, std::function<void()> on_signal) {
  auto watch = std::make_unique<PlainWatch>(std::move(on_signal));
  const int result = sd_event_add_signal(event_, watch->source(), signal | SD_EVENT_SIGNAL_PROCMASK,
                                         OnSignalDelivered, watch.get());
  return Checked(std::move(watch), result);
}

int EventLoop::FeedWatchdog() {
  const int result = sd_event_set_watchdog(event_, 1);
  return result < 0 ? result : 0;
}

int EventLoop::RunWhile(const bool* flag) {
  while (*flag && !stopping_) {
    const int result = sd_event_run(event_, UINT64_MAX);
    if (result < 0) {
      return result;
    }
  }
  return 0;
}

void EventLoop::Stop() { stopping_ = true; }

}  // namespace host
