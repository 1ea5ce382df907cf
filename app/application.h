// The process's object graph: middleware, Filter Manager client, log facility, configuration
// manager, and the framework object that connects the manager to the configuration daemon.
#ifndef APP_APPLICATION_H_
#define APP_APPLICATION_H_

#include <memory>
#include <string>

#include "app/log.h"
#include "platform/filter_mgr/filter_mgr_client.h"
#include "platform/qzconfd/qzconfd.h"
#include "platform/qzmw/qzmw.h"

struct zlog_category_s;

namespace acl_app {

class Application {
 public:
  // Starts the middleware under `name`, creates the Filter Manager client and everything else. The
  // object owns both. A part that cannot be had ends the process with status 1.
  explicit Application(std::string name);
  // Uses a middleware and a client that stay the caller's, who also finishes them.
  Application(qzmw_t* mw, FilterMgrClientApi::FilterMgrClient* fmc);
  Application(const Application&) = delete;
  Application& operator=(const Application&) = delete;
  // Ends the Filter Manager client and the middleware first, if owned, then the rest: nothing that
  // is torn down afterwards can reach the card or wait for an event.
  virtual ~Application();

  // Builds everything that stands on the middleware and the client.
  void init(qzmw_t* mw, FilterMgrClientApi::FilterMgrClient* fmc);
  // Runs the event loop until the middleware ends it; non-zero when the loop failed.
  int Listen();

 private:
  bool running_ = false;  // handed to the event loop; nothing here clears it
  bool owner_;
  qzmw_t* qzmw_;
  FilterMgrClientApi::FilterMgrClient* filter_mgr_client_;
  std::unique_ptr<qzconfd::ConfigHandler> confd_manager_;
  std::unique_ptr<qzconfd::AppInterface> app_interface_;
  std::unique_ptr<AclLog> log_;
  zlog_category_s* trace_ = nullptr;  // the middleware's
};

}  // namespace acl_app

#endif  // APP_APPLICATION_H_
