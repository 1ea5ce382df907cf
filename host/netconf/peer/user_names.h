// Names of accounts, looked up beside the event loop.
//
// The name service (nsswitch.conf(5)) may ask other machines, and getpwuid_r(3) waits for them: for
// seconds, when they are slow. Nobody is to wait for that but who asked. There is no call that does
// not wait, so a thread of its own makes this one call and nothing else. It shares a queue of
// numbers and a list of answers with the loop, under a mutex that is held for moments; an eventfd
// tells the loop that there are answers. No other state of the process is touched by it, and
// nothing but a text depends on what it says: who may do what is decided by numbers (peer.h).
//
// Names are kept, and asked for again after some minutes, while the old one is used; also when
// there is no answer then, for a service that fails for a while makes nobody nameless. A thread
// that hangs in a look-up when this object ends is left behind with what they share.
#ifndef HOST_NETCONF_PEER_USER_NAMES_H_
#define HOST_NETCONF_PEER_USER_NAMES_H_

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "host/runtime/event_loop.h"

namespace host {

class UserNames {
 public:
  // Gives the name of an account, empty when it has none. Called on the thread.
  using LookUp = std::function<std::string(uid_t user)>;
  // Told of a name that was not known before, on the loop.
  using OnName = std::function<void(uid_t user, const std::string& name)>;

  // Null with the reason in `error` when there is no thread or descriptor to be had. An empty
  // `look_up` is the system's name service. `loop` must outlive the object.
  static std::unique_ptr<UserNames> Create(EventLoop& loop, LookUp look_up, OnName on_name,
                                           std::string* error);
  UserNames(const UserNames&) = delete;
  UserNames& operator=(const UserNames&) = delete;
  ~UserNames();

  // What an account without a name is called.
  static std::string NumberAsName(uid_t user) { return "uid " + std::to_string(user); }
  // The name as far as it is known now. Asks for it where it is not, or not lately; the answer goes
  // to `on_name`.
  std::optional<std::string> Find(uid_t user);

 private:
  struct Shared;
  struct Known {
    std::optional<std::string> name;  // absent: asked for the first time
    std::chrono::steady_clock::time_point asked;
  };

  UserNames(std::shared_ptr<Shared> shared, OnName on_name);
  void TakeAnswers();

  const std::shared_ptr<Shared> shared_;
  const OnName on_name_;
  std::unordered_map<uid_t, Known> known_;
  std::unique_ptr<Watch> watch_;
};

}  // namespace host

#endif  // HOST_NETCONF_PEER_USER_NAMES_H_
