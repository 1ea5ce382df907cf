// Confirmed commits (RFC 6241 section 8.4): running goes back to what it was unless the commit is
// confirmed in time.
//
// At most one is ongoing. It belongs to the session that made it and ends with that session, or, if
// it was given a persist token, to whoever knows the token. It never outlives the process: the
// datastore's checkpoint is set before the commit is made, and cleared after it is confirmed or
// taken back; a checkpoint that is there at the start is gone back to. So no crash leaves a commit
// that nobody confirmed, and none takes back what was.
//
// Going back is by the history, and so takes back what other sessions have committed meanwhile, too
// (the RFC advises to lock).
#ifndef HOST_NETCONF_OPERATIONS_CONFIRMED_COMMIT_H_
#define HOST_NETCONF_OPERATIONS_CONFIRMED_COMMIT_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "host/cdb/datastore.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/events.h"

namespace host {

class ConfirmedCommit {
 public:
  // `datastore`, `loop` and `events`, which are told of each step (null: nobody is), must outlive
  // this object.
  ConfirmedCommit(Datastore& datastore, EventLoop& loop, const Events* events = nullptr)
      : datastore_(datastore), loop_(loop), events_(events) {}

  // Takes back what an earlier process left unconfirmed. To be called before the first session.
  void Recover();

  bool ongoing() const { return ongoing_; }
  // Whole seconds until what is ongoing is taken back.
  int64_t Remaining() const;
  // Session that an ongoing commit belongs to; 0 when it belongs to a token.
  uint32_t session() const { return session_; }
  // Whether `session`, which gave `persist_id` (empty: none), may confirm, extend or cancel.
  bool BelongsTo(uint32_t session, const std::string& persist_id) const;

  // Notes, durably, what to go back to. To be called before the commit that is to be confirmed;
  // then Begin() when it succeeded, Forget() when it did not and none was ongoing.
  DatastoreErrors Prepare();
  void Forget();
  // Begins, or extends the ongoing commit: what to go back to stays then, and so does its token
  // unless `persist` gives another one.
  void Begin(std::chrono::seconds timeout, const Origin& origin, const std::string& persist);
  // Keeps what was committed, for `by`; nothing is to be done when nothing is ongoing. After errors
  // (of the disk) it is still to be confirmed.
  DatastoreErrors Confirm(const Origin& by);
  // Goes back at once, for `by`; after errors it is tried again by and by. `why` is for log and
  // history.
  DatastoreErrors Cancel(const std::string& why, const Origin& by);
  // What is ongoing, as operational data (acl-app-commits); null when nothing is.
  Tree State(const ly_ctx* context) const;
  // To be called at a session's end.
  void OnSessionEnd(uint32_t session);

 private:
  DatastoreErrors GoBack(const std::string& why);
  DatastoreErrors End(const std::string& why, const ConfirmedCommitStep& step);
  DatastoreErrors Clear();
  void Tell(const ConfirmedCommitStep& step) const;

  Datastore& datastore_;
  EventLoop& loop_;
  const Events* const events_;
  bool ongoing_ = false;
  bool gone_back_ = false;  // but the checkpoint could not be cleared yet
  std::string user_;        // who made the commit
  uint32_t session_ = 0;
  std::string persist_;
  uint64_t commit_ = 0;                          // the last one that is to be confirmed
  std::chrono::system_clock::time_point until_;  // when it goes back, for people
  std::unique_ptr<Watch> timer_;
};

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_CONFIRMED_COMMIT_H_
