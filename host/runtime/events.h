// What happens in the process that somebody outside may want to hear of.
//
// The part that sees it publishes it here, in its own terms, and knows nothing of who listens: so
// the Filter Manager can tell of a port without knowing of NETCONF. Listeners are called at once,
// within the part that publishes, and so do no more than note what happened; they must not publish
// themselves. Commits are not among the events: whoever needs what they change observes the
// datastore (host/cdb/datastore.h).
#ifndef HOST_RUNTIME_EVENTS_H_
#define HOST_RUNTIME_EVENTS_H_

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <variant>
#include <vector>

namespace host {

struct SessionBegan {
  uint32_t id = 0;
  std::string user;
};

struct SessionEnded {
  enum Reason { kClosed, kKilled, kDropped, kTimeout, kBadHello, kOther };
  uint32_t id = 0;
  std::string user;
  Reason reason = kOther;
  uint32_t killed_by = 0;  // session that killed it; 0: none did
};

// What became of a confirmed commit.
struct ConfirmedCommitStep {
  enum What { kStart, kExtend, kComplete, kCancel, kTimeout };
  What what = kStart;
  std::string user;      // who did it; nobody for kTimeout
  uint32_t session = 0;  // in which session; 0: in none that is open
  uint32_t timeout = 0;  // kStart, kExtend: seconds until it is taken back
};

// What is known of a commit's effect, once it was tried to put it in force, and again when that
// changes.
struct CommitJudged {
  uint64_t commit = 0;
  std::string user;
  uint32_t session = 0;  // 0: the daemon itself, or an earlier daemon's
  std::string comment;
  bool at_start = false;    // loaded at the start, with all commits before it
  const char* result = "";  // "applied", "pending", "failed" or "superseded"
  bool corrected = false;   // it was "pending" before
  std::string reason;       // why it is not applied
  std::chrono::microseconds took{0};
  size_t interfaces = 0, in_force = 0;                  // that the groups name; where they are
  std::vector<std::pair<std::string, size_t>> entries;  // by group, "l2" and "l3"
};

// A filter group has come above its high threshold, or below the low one.
struct GroupFilled {
  std::string group;  // "l2" or "l3"
  bool nearly_full = false;
  size_t entries = 0;
  unsigned int capacity = 0;
  unsigned int threshold = 0;  // the one that was passed, in percent
};

// An interface that groups in force name, or did: how it is now, in the words of the module
// acl-app-filters.
struct InterfaceChanged {
  std::string name;
  std::string link, filters;
  size_t others = 0;  // more that changed at the same time, and are not told of one by one
};

// Somebody else has changed the filters in the kernel.
struct FiltersTouched {
  std::string interface;  // empty: of several
  std::string what;       // for people
  bool put_right = false;
};

using Event = std::variant<SessionBegan, SessionEnded, ConfirmedCommitStep, CommitJudged,
                           GroupFilled, InterfaceChanged, FiltersTouched>;

class Events {
 public:
  using Listener = std::function<void(const Event&)>;

  // Has `listener` hear all events from now on, in place of an earlier one of the same `owner`; an
  // empty one ends that.
  void Listen(const void* owner, Listener listener) {
    if (listener) {
      listeners_[owner] = std::move(listener);
    } else {
      listeners_.erase(owner);
    }
  }
  void Publish(const Event& event) const {
    for (const auto& [owner, listener] : listeners_) listener(event);
  }

 private:
  std::map<const void*, Listener> listeners_;
};

}  // namespace host

#endif  // HOST_RUNTIME_EVENTS_H_
