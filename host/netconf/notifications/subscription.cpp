// A session's subscription: see subscription.h.
#include "host/netconf/notifications/subscription.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "host/netconf/reply/filter/xpath_filter.h"
#include "host/runtime/date_and_time.h"

namespace host {
namespace {

// So many are looked at in one step when no one passes.
constexpr int kStep = 16;

// What tells where a replay or a subscription ends (RFC 5277 sections 3.3.1 and 4); no filter
// applies to it.
std::string Mark(const char* name) {
  return Notification{
      NowMicroseconds(),
      std::string("<") + name + " xmlns=\"urn:ietf:params:xml:ns:netmod:notification\"/>"}
      .Message();
}

}  // namespace

Subscription::Subscription(Request request, EventLoop& loop, ParsedNotification& parsed,
                           std::function<void(Subscription*)> on_end)
    : filter_(std::move(request.filter)),
      stop_us_(request.stop_us),
      parsed_(parsed),
      on_end_(std::move(on_end)),
      replaying_(request.replay.has_value()) {
  if (replaying_) {
    queue_.assign(request.replay->begin(), request.replay->end());
    replay_left_ = queue_.size();
  }
  if (stop_us_ != kNever) WatchStop(loop);
}

Subscription::~Subscription() { on_end_(this); }

void Subscription::WatchStop(EventLoop& loop) {
  const std::chrono::microseconds left(stop_us_ - NowMicroseconds());
  stopped_ = left.count() <= 0;
  if (stopped_) return;
  // The loop counts no more than that; and the clock may have been set meanwhile.
  constexpr std::chrono::hours kLongest(24);
  stop_watch_ = loop.After(std::min<std::chrono::microseconds>(left, kLongest), [this, &loop] {
    WatchStop(loop);
    if (stopped_ && on_more_) on_more_();
  });
  stopped_ = stop_watch_ == nullptr;
}

void Subscription::Add(const NotificationPtr& notification) {
  if (overrun_ || stopped_ || notification->time_us > stop_us_) return;
  unread_ += notification->content.size();
  queue_.push_back(notification);
  if (unread_ > kMostUnread) {
    overrun_ = true;
    queue_.clear();
  }
  if (on_more_) on_more_();
}

bool Subscription::HasMore() const {
  return overrun_ || !queue_.empty() || replaying_ || (stopped_ && !over_);
}

void Subscription::Next(std::string* message) {
  message->clear();
  for (int i = 0; i < kStep && message->empty() && HasMore() && !overrun_; ++i) {
    if (replaying_ && replay_left_ == 0) {
      replaying_ = false;
      *message = Mark("replayComplete");
    } else if (queue_.empty()) {
      over_ = true;
      *message = Mark("notificationComplete");
    } else {
      const NotificationPtr next = std::move(queue_.front());
      queue_.pop_front();
      if (replay_left_ > 0) {
        --replay_left_;
      } else {
        unread_ -= next->content.size();
      }
      if (Passes(next)) *message = next->Message();
    }
  }
}

bool Subscription::Passes(const NotificationPtr& notification) {
  if (filter_.subtree == nullptr && filter_.xpath.empty()) return true;
  const lyd_node* top = parsed_.Of(notification);
  if (top == nullptr) return false;
  bool whole = false;
  if (filter_.subtree != nullptr) {
    return filter_.subtree->Select(filter_.subtree->Top(), top, &whole) != nullptr || whole;
  }
  XPathFilter xpath(filter_.xpath);
  std::string error;
  return xpath.Evaluate(top, &error) && (xpath.Select(top, &whole) != nullptr || whole);
}

}  // namespace host
