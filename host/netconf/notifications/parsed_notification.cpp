// A notification as a tree: see parsed_notification.h.
#include "host/netconf/notifications/parsed_notification.h"

#include <libyang/libyang.h>

#include "host/runtime/log.h"

namespace host {

const lyd_node* ParsedNotification::Of(const NotificationPtr& notification) {
  if (notification_ == notification) return tree_.get();
  notification_ = notification;
  tree_.reset();
  ly_in* in = nullptr;
  if (ly_in_new_memory(notification->content.c_str(), &in) != LY_SUCCESS) return nullptr;
  lyd_node *tree = nullptr, *top = nullptr;
  const LY_ERR result =
      lyd_parse_op(context_, nullptr, in, LYD_XML, LYD_TYPE_NOTIF_YANG, &tree, &top);
  ly_in_free(in, 0);
  tree_.reset(tree);
  if (result == LY_SUCCESS) return tree;
  // It is of an earlier version of the schema, or a fault of this one.
  const char* reason = ly_errmsg(context_);
  Log(LogLevel::kError, "netconf: a notification cannot be filtered: %s",
      reason != nullptr ? reason : "?");
  ly_err_clean(const_cast<ly_ctx*>(context_), nullptr);
  tree_.reset();
  return nullptr;
}

}  // namespace host
