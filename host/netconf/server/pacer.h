// Does the work of all sessions in short turns on the event loop.
//
// There is a queue for each user, of those of the user's sessions that have work. In each turn of
// the loop the pacer takes as many steps as fit a millisecond, one of each user in turn; between
// its turns the loop does everything else. So how long somebody waits grows neither with the work
// that others have, nor with the number of sessions that one of them opens.
#ifndef HOST_NETCONF_SERVER_PACER_H_
#define HOST_NETCONF_SERVER_PACER_H_

#include <sys/types.h>

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

  // Queues a task that is not queued. It must be removed before it ends.
  void Add(Task* task, uid_t user);
  void Remove(Task* task);

 private:
  struct UserQueue {
    uid_t user;
    std::deque<Task*> tasks;
  };

  void Run();
  void RunStep();

  EventLoop& loop_;
  std::deque<UserQueue> users_;  // those with tasks, in the order of their turns
  std::unique_ptr<Watch> turn_;
};

}  // namespace host

#endif  // HOST_NETCONF_SERVER_PACER_H_
