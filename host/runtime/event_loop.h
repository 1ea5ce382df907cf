// The process's event loop, over sd-event(3).
//
// Everything that waits (sockets, timers, signals, netlink) is a watch on this one loop. Callbacks
// run on the process's one thread, one at a time, and must not block. A watch ends when its handle
// is destroyed, also from within its own callback; after that the callback is not called again.
#ifndef HOST_RUNTIME_EVENT_LOOP_H_
#define HOST_RUNTIME_EVENT_LOOP_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>

struct sd_event;

namespace host {

// A running watch; destruction ends it.
class Watch {
 public:
  virtual ~Watch() = default;
};

class EventLoop {
 public:
  // Null when the kernel refuses one (errno is set).
  static std::shared_ptr<EventLoop> Create();
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;
  ~EventLoop();

  // The functions below return null when the kernel refuses the watch (errno is set).

  // Calls `on_ready` with the ready events (EPOLLIN, EPOLLOUT, EPOLLHUP, EPOLLERR) as long as `fd`
  // has any of `events`. The descriptor stays the caller's and must outlive the watch.
  [[nodiscard]] std::unique_ptr<Watch> OnIo(int fd, uint32_t events,
                                            std::function<void(uint32_t ready)> on_ready);
  // Calls `on_time` once after `delay`.
  [[nodiscard]] std::unique_ptr<Watch> After(std::chrono::microseconds delay,
                                             std::function<void()> on_time);
  // Calls `task` once, before the loop waits again.
  [[nodiscard]] std::unique_ptr<Watch> Soon(std::function<void()> task);
  // Calls `on_signal` for each delivery of `signal`, in place of the signal's own effect.
  [[nodiscard]] std::unique_ptr<Watch> OnSignal(int signal, std::function<void()> on_signal);
  // Keeps the service manager's watchdog fed from the loop, where the service manager asks for it
  // (sd_watchdog_enabled(3)). 0, or a negative errno.
  int FeedWatchdog();

  // Runs while `*flag` is true and Stop() was not called. 0 on normal end, a negative errno when
  // the loop itself failed. The flag is looked at between callbacks.
  int RunWhile(const bool* flag);
  // Ends RunWhile() after the current callback, or at once when it is not running yet.
  void Stop();

 private:
  explicit EventLoop(sd_event* event);
  sd_event* event_;
  bool stopping_ = false;
};

}  // namespace host

#endif  // HOST_RUNTIME_EVENT_LOOP_H_
