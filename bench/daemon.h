// The whole daemon in the benchmark's process: middleware, Filter Manager (with the memory back end
// unless told otherwise), datastore, NETCONF server and configuration manager, on a scratch state
// directory.
#ifndef BENCH_DAEMON_H_
#define BENCH_DAEMON_H_

#include <functional>
#include <memory>
#include <string>

#include "bench/scratch.h"
#include "confd/confd_manager.h"
#include "platform/filter_mgr/filter_mgr_client.h"
#include "platform/qzconfd/qzconfd.h"
#include "platform/qzmw/qzmw.h"

class Daemon {
 public:
  // Starts with `configuration`, a JSON document, as the start-up file. `scratch` is the state
  // directory, for more than one start; null: its own.
  explicit Daemon(const std::string& configuration, const std::string& filter_backend = "memory",
                  std::shared_ptr<const Scratch> scratch = nullptr);
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;
  ~Daemon();

  // Runs the loop until the configuration is loaded and submitted. Returns the seconds from the
  // configuration manager's call to its end.
  double RunInitialLoad();
  // Runs `client` on a thread of its own, with the path of the NETCONF socket, and the loop beside
  // it until the client returns.
  void RunWith(const std::function<void(const std::string& socket)>& client);

 private:
  class TimedManager;

  const std::shared_ptr<const Scratch> scratch_;
  qzmw_t* mw_;
  std::unique_ptr<FilterMgrClientApi::FilterMgrClient> filter_mgr_;
  std::unique_ptr<TimedManager> manager_;
  std::unique_ptr<qzconfd::AppInterface> app_interface_;
};

#endif  // BENCH_DAEMON_H_
