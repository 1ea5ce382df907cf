// Confirmed commits (RFC 6241 section 8.4): running goes back to what it was unless the commit is
// confirmed in time.
//
// At most one is ongoing. It belongs to the session that made it and ends with that session, or, if
// it was given a persist token, to whoever knows the token.
#ifndef HOST_NETCONF_CONFIRMED_COMMIT_H_
#define HOST_NETCONF_CONFIRMED_COMMIT_H_

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "host/cdb/datastore.h"
#include "host/netconf/draft.h"
#include "host/runtime/event_loop.h"

namespace host {

class ConfirmedCommit {
 public:
  // `datastore` and `loop` must outlive this object.
  ConfirmedCommit(Datastore& datastore, EventLoop& loop) : datastore_(datastore), loop_(loop) {}

  bool ongoing() const { return checkpoint_ != nullptr; }
  // Session that an ongoing commit belongs to; 0 when it belongs to a token.
  uint32_t session() const { return session_; }
  // Whether `session`, which gave `persist_id` (empty: none), may confirm, extend or cancel.
  bool BelongsTo(uint32_t session, const std::string& persist_id) const;

  // What running is now, to go back to. Call before the commit, then Begin() when it succeeded.
  std::unique_ptr<Draft> Checkpoint() const { return std::make_unique<Draft>(datastore_); }
  // Begins, or extends the ongoing commit, whose checkpoint then stays (`checkpoint` may be null).
  void Begin(std::unique_ptr<Draft> checkpoint, std::chrono::seconds timeout, const Origin& origin,
             const std::string& persist);
  // Keeps what was committed.
  void Confirm();
  // Goes back to the checkpoint at once. `why` is for the log.
  DatastoreErrors Cancel(const std::string& why);
  // To be called at a session's end.
  void OnSessionEnd(uint32_t session);

 private:
  Datastore& datastore_;
  EventLoop& loop_;
  std::unique_ptr<Draft> checkpoint_;
  Origin origin_;
  uint32_t session_ = 0;
  std::string persist_;
  std::unique_ptr<Watch> timer_;
};

}  // namespace host

#endif  // HOST_NETCONF_CONFIRMED_COMMIT_H_
