// Does long work of many sessions in short turns on the event loop.
//
// Who has work left is in a queue. In each turn of the loop the pacer takes as many from it as fit
// a millisecond, a step each; between its turns the loop serves everybody else. So the time that
// somebody else waits does not grow with the number of sessions that have much to do.
#ifndef HOST_NETCONF_PACER_H_
#define HOST_NETCONF_PACER_H_

#include <deque>
#include <memory>

#include "host/runtime/event_loop.h"

namespace host {

class Pacer {
 public:
  class Task {
   public:
    virtual ~Task() = default;
    // Does a step. True when there is more to do now.
    virtual bool Step() = 0;
  };

  // `loop` must outlive the pacer.
  explicit Pacer(EventLoop& loop) : loop_(loop) {}

  // Queues the task unless it is queued. It must be removed before it ends.
  void Add(Task* task);
  void Remove(Task* task);

 private:
  void Run();

  EventLoop& loop_;
  std::deque<Task*> tasks_;
  std::unique_ptr<Watch> turn_;
};

}  // namespace host

#endif  // HOST_NETCONF_PACER_H_
