#include "bench/daemon.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>
#include <utility>

#include "host/runtime/middleware.h"

class Daemon::TimedManager : public acl_app::ConfDManager {
 public:
  using ConfDManager::ConfDManager;

  void LoadInitialConfig(int socket) override {
    const auto start = std::chrono::steady_clock::now();
    ConfDManager::LoadInitialConfig(socket);
    seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    running = false;
  }

  bool running = true;
  double seconds = 0;
};

Daemon::Daemon(const std::string& configuration, const std::string& filter_backend,
               std::shared_ptr<const Scratch> scratch)
    : scratch_(scratch != nullptr ? std::move(scratch) : std::make_shared<const Scratch>()) {
  const std::string& directory = scratch_->directory();
  const std::string settings = scratch_->Write(
      "settings", "state_directory = " + directory + "\nnetconf_socket = " + directory +
                      "/netconf.sock\nyang_directory = " BENCH_YANG_DIRECTORY
                      "\nfilter_backend = " +
                      filter_backend + "\nlog_level = warning\nstartup_file = " +
                      scratch_->Write("startup.json", configuration) + "\n");
  setenv("ACL_APP_SETTINGS", settings.c_str(), 1);
  mw_ = qzmw_init("acl-bench");
  if (mw_ == nullptr) std::abort();
  filter_mgr_ = std::make_unique<FilterMgrClientApi::FilterMgrClient>(mw_, "bench");
  zlog_category_s* trace = qzmw_trace_init(mw_, "bench");
  manager_ = std::make_unique<TimedManager>(trace, filter_mgr_.get());
  app_interface_ = std::make_unique<qzconfd::AppInterface>(
      mw_, trace, "bench", std::vector<qzconfd::ConfigHandler*>{manager_.get()},
      std::vector<qzconfd::ActionHandler*>{}, std::vector<qzconfd::DataHandler*>{},
      static_cast<ELEM_CONFD_PHASE_ET>(2), 0);
}

Daemon::~Daemon() {
  app_interface_.reset();
  manager_.reset();
  filter_mgr_.reset();
  qzmw_finish(&mw_);
}

double Daemon::RunInitialLoad() {
  qzmw_loop_while(mw_, &manager_->running);
  return manager_->seconds;
}

void Daemon::RunWith(const std::function<void(const std::string& socket)>& client) {
  int done[2];
  if (pipe(done) != 0) std::abort();
  bool running = true;
  const auto watch =
      host::LoopOf(mw_)->OnIo(done[0], EPOLLIN, [&running](uint32_t) { running = false; });
  std::thread thread([&] {
    client(scratch_->directory() + "/netconf.sock");
    if (write(done[1], "x", 1) != 1) std::abort();
  });
  qzmw_loop_while(mw_, &running);
  thread.join();
  close(done[0]);
  close(done[1]);
}
