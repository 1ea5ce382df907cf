// A session's subscription (RFC 5277 section 2.1): what it still has to be sent.
//
// Notifications are put here when something happens, and taken out when the session's peer reads:
// whatever a filter costs, it costs the session's own turn, and who makes a commit waits for no
// subscriber. What a peer has not read is bounded; beyond that the subscription is overrun, keeps
// nothing, and the session has to end, for a gap in the notifications cannot be told.
//
// A replay is what the log had when the subscription was made; what happens meanwhile follows it.
// It counts for nothing, as its notifications are the log's.
#ifndef HOST_NETCONF_NOTIFICATIONS_SUBSCRIPTION_H_
#define HOST_NETCONF_NOTIFICATIONS_SUBSCRIPTION_H_

#include <cstdint>
#include <deque>
#include <functional>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/netconf/notifications/notification.h"
#include "host/netconf/notifications/parsed_notification.h"
#include "host/netconf/reply/filter/compiled_filter.h"
#include "host/runtime/event_loop.h"

namespace host {

class Subscription {
 public:
  static constexpr int64_t kNever = std::numeric_limits<int64_t>::max();
  // What happens is sent until it takes that many octets that the peer has not read.
  static constexpr size_t kMostUnread = size_t{1} << 20;

  struct Request {
    CompiledFilter filter;
    std::optional<std::vector<NotificationPtr>> replay;  // none: no replay was asked for
    int64_t stop_us = kNever;                            // nothing later than that is sent
  };

  // `parsed` is shared by all subscriptions and must outlive this one. `on_end` is called at the
  // end of the object.
  Subscription(Request request, EventLoop& loop, ParsedNotification& parsed,
               std::function<void(Subscription*)> on_end);
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription();

  // Has `on_more` called when there is something to do for the session, which had nothing to do.
  void SetOnMore(std::function<void()> on_more) { on_more_ = std::move(on_more); }

  // Something happened.
  void Add(const NotificationPtr& notification);

  // Whether there is something to be sent, or to be looked at.
  bool HasMore() const;
  // Looks at some of it. What passes the filter is given in `*message`, otherwise that is empty.
  void Next(std::string* message);
  // It cannot go on, for the peer has not read enough.
  bool overrun() const { return overrun_; }
  // Everything up to its stop time was sent: it is over, and the session is as before.
  bool over() const { return over_; }

 private:
  bool Passes(const NotificationPtr& notification);
  void WatchStop(EventLoop& loop);

  const CompiledFilter filter_;
  const int64_t stop_us_;
  ParsedNotification& parsed_;
  std::function<void(Subscription*)> on_end_;
  std::function<void()> on_more_;
  std::deque<NotificationPtr> queue_;
  size_t replay_left_ = 0;  // the first ones of the queue
  bool replaying_ = false;  // the end of the replay is still to be told
  size_t unread_ = 0;       // octets of the others
  bool overrun_ = false;
  bool stopped_ = false;
  bool over_ = false;
  std::unique_ptr<Watch> stop_watch_;
};

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_SUBSCRIPTION_H_
