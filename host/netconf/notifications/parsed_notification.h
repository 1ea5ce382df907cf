// A notification as a tree, for filters. The last one is kept: all subscribers look at the same one
// about the same time.
#ifndef HOST_NETCONF_NOTIFICATIONS_PARSED_NOTIFICATION_H_
#define HOST_NETCONF_NOTIFICATIONS_PARSED_NOTIFICATION_H_

#include "host/cdb/schema/yang_tree.h"
#include "host/netconf/notifications/notification.h"

namespace host {

class ParsedNotification {
 public:
  // `context` must outlive the object.
  explicit ParsedNotification(const ly_ctx* context) : context_(context) {}

  // The notification's top-level node, valid until the next call; null, with a log line, when it is
  // none of the schema.
  const lyd_node* Of(const NotificationPtr& notification);

 private:
  const ly_ctx* context_;
  NotificationPtr notification_;
  Tree tree_;
};

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_PARSED_NOTIFICATION_H_
