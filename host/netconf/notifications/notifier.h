// Tells those who have subscribed what happens (RFC 5277), and keeps it for those who ask later.
//
// It listens to the process's events and observes the datastore, makes a notification of each, and
// hands it to the log and to all subscriptions: they share it. There is one stream, NETCONF, with
// everything. Whoever can connect may subscribe, as he may read all state and the whole
// configuration (access.h).
//
// The capabilities cannot change while the process lives, for its modules are those that it was
// built with; so there is never a netconf-capability-change (RFC 6470).
#ifndef HOST_NETCONF_NOTIFICATIONS_NOTIFIER_H_
#define HOST_NETCONF_NOTIFICATIONS_NOTIFIER_H_

#include <memory>
#include <string>
#include <vector>

#include "host/cdb/datastore.h"
#include "host/netconf/notifications/notification_log.h"
#include "host/netconf/notifications/parsed_notification.h"
#include "host/netconf/notifications/subscription.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/events.h"

namespace host {

inline constexpr char kStream[] = "NETCONF";

class Notifier : private CommitObserver {
 public:
  // Keeps notifications in `directory` for the next process; empty: not. `datastore` and `loop`
  // must outlive the object.
  Notifier(const std::string& directory, Datastore& datastore, EventLoop& loop,
           std::shared_ptr<Events> events);
  Notifier(const Notifier&) = delete;
  Notifier& operator=(const Notifier&) = delete;
  ~Notifier() override;

  // What happens from now on goes to the subscription, which must end before the object does.
  std::unique_ptr<Subscription> Subscribe(Subscription::Request request);
  const NotificationLog& log() const { return log_; }
  // The streams, as operational data of `context` (module nc-notifications).
  Tree State(const ly_ctx* context) const;

 private:
  void OnCommit(const lyd_node* diff, const CommitInfo& info) override;
  int64_t NextTime();
  void Tell(NotificationLog::Shelf shelf, std::string content);

  Datastore& datastore_;
  EventLoop& loop_;
  const std::shared_ptr<Events> events_;
  NotificationLog log_;
  int64_t last_us_ = 0;  // the last notification's time
  ParsedNotification parsed_;
  std::vector<Subscription*> subscriptions_;
};

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_NOTIFIER_H_
