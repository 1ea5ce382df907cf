// One notification, as it is kept and sent (RFC 5277 section 2.2.1).
#ifndef HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_H_
#define HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_H_

#include <cstdint>
#include <memory>
#include <string>

namespace host {

inline constexpr char kNotificationNamespace[] = "urn:ietf:params:xml:ns:netconf:notification:1.0";

struct Notification {
  int64_t time_us = 0;  // when it happened, microseconds since 1970
  std::string content;  // the event's element, on one line

  // The message: the content in its envelope.
  std::string Message() const;
};
// Shared by all who have yet to send it, and the log.
using NotificationPtr = std::shared_ptr<const Notification>;

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_H_
