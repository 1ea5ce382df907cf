// What is told of events: the elements within <notification>, of the modules
// ietf-netconf-notifications (RFC 6470) and acl-app-notifications.
#ifndef HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_TEXT_H_
#define HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_TEXT_H_

#include <string>

#include "host/cdb/datastore.h"
#include "host/runtime/events.h"

namespace host {

// So many edits a notification tells one by one. The history has all of them.
inline constexpr size_t kMaxEdits = 64;

// The element of an event, as XML on one line.
std::string NotificationText(const Event& event);
// That of a commit (netconf-config-change); `diff` is its difference in libyang's form, of data of
// `context`.
std::string ConfigChangeText(const lyd_node* diff, const CommitInfo& commit, const ly_ctx* context);

}  // namespace host

#endif  // HOST_NETCONF_NOTIFICATIONS_NOTIFICATION_TEXT_H_
