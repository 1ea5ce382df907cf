// Who tells what happens: see notifier.h.
#include "host/netconf/notifications/notifier.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <utility>

#include "host/netconf/notifications/notification_text.h"
#include "host/runtime/date_and_time.h"
#include "host/runtime/log.h"
#include "host/runtime/tree_writer.h"

namespace host {
namespace {

NotificationLog::Shelf ShelfOf(const Event& event) {
  if (std::holds_alternative<SessionBegan>(event) || std::holds_alternative<SessionEnded>(event)) {
    return NotificationLog::kSessions;
  }
  const bool of_port = std::holds_alternative<InterfaceChanged>(event) ||
                       std::holds_alternative<FiltersTouched>(event);
  return of_port ? NotificationLog::kPorts : NotificationLog::kCommits;
}

}  // namespace

Notifier::Notifier(const std::string& directory, Datastore& datastore, EventLoop& loop,
                   std::shared_ptr<Events> events)
    : datastore_(datastore),
      loop_(loop),
      events_(std::move(events)),
      log_(directory, {}, NowMicroseconds()),
      parsed_(datastore.Context()) {
  datastore_.AddObserver(this);
  events_->Listen(this,
                  [this](const Event& event) { Tell(ShelfOf(event), NotificationText(event)); });
}

Notifier::~Notifier() {
  events_->Listen(this, nullptr);
  datastore_.RemoveObserver(this);
}

std::unique_ptr<Subscription> Notifier::Subscribe(Subscription::Request request) {
  auto subscription = std::make_unique<Subscription>(
      std::move(request), loop_, parsed_, [this](Subscription* ended) {
        subscriptions_.erase(std::find(subscriptions_.begin(), subscriptions_.end(), ended));
      });
  subscriptions_.push_back(subscription.get());
  return subscription;
}

void Notifier::OnCommit(const lyd_node* diff, const CommitInfo& info) {
  Tell(NotificationLog::kCommits, ConfigChangeText(diff, info, datastore_.Context()));
}

// A replay is in the order of times, so no two that follow each other have the same. A clock that
// was set back is followed all the same.
int64_t Notifier::NextTime() {
  constexpr int64_t kTogether = 1000;
  const int64_t now = NowMicroseconds();
  last_us_ = now <= last_us_ && last_us_ - now < kTogether ? last_us_ + 1 : now;
  return last_us_;
}

void Notifier::Tell(NotificationLog::Shelf shelf, std::string content) {
  std::replace(content.begin(), content.end(), '\n', ' ');
  const auto notification =
      std::make_shared<const Notification>(Notification{NextTime(), std::move(content)});
  log_.Add(shelf, notification);
  for (Subscription* subscription : subscriptions_) subscription->Add(notification);
}

Tree Notifier::State(const ly_ctx* context) const {
  TreeWriter writer(ly_ctx_get_module_implemented(context, "nc-notifications"));
  lyd_node* top = writer.Inner(nullptr, "netconf");
  lyd_node* stream = writer.List(writer.Inner(top, "streams"), "stream", std::string(kStream));
  writer.Leaf(stream, "description", "everything that the daemon tells");
  writer.Leaf(stream, "replaySupport", "true");
  writer.Leaf(stream, "replayLogCreationTime", DateAndTime(log_.created_us(), 6));
  if (log_.aged_us() != 0) {
    writer.Leaf(stream, "replayLogAgedTime", DateAndTime(log_.aged_us(), 6));
  }
  Tree tree(top);
  if (writer.ok()) return tree;
  Log(LogLevel::kError, "netconf: the streams cannot be shown: %s", ly_errmsg(context));
  ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
  return nullptr;
}

}  // namespace host
