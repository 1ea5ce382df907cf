#include "host/runtime/middleware.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "host/runtime/process_lock.h"
#include "host/runtime/settings.h"
#include "host/zlog/trace_category.h"

namespace host {
namespace {

// What the parts of the process share ownership of, beyond the life of the middleware's handle.
struct Shared {
  std::unique_ptr<ProcessLock> lock;
  std::shared_ptr<EventLoop> loop;
  StateProviders state_providers;
  Submissions submissions;
  StatusBoard status_board;
  EntryOriginSource origins;
  Events events;
  std::vector<std::unique_ptr<Watch>> signal_watches;
};

bool WatchSignals(Shared* shared, std::string* error) {
  // Peers that hang up are told by the write's result.
  std::signal(SIGPIPE, SIG_IGN);
  for (const int signal : {SIGTERM, SIGINT}) {
    EventLoop* loop = shared->loop.get();
    auto watch = loop->OnSignal(signal, [loop, signal] {
      Log(LogLevel::kInfo, "ending on signal %d (%s)", signal, strsignal(signal));
      loop->Stop();
    });
    if (watch == nullptr) {
      *error = std::string("the signals cannot be watched: ") + std::strerror(errno);
      return false;
    }
    shared->signal_watches.push_back(std::move(watch));
  }
  return true;
}

// Sessions, and the links of filtered ports, take a descriptor each: as many as the process may
// have (getrlimit(2)). Where the limit may not be raised, it is left.
void RaiseDescriptorLimit() {
  rlimit limit = {};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) return;
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

StatusLine LogStatus() {
  const Settings& settings = ProcessSettings();
  const std::string where = settings.log_target + ", level " + settings.log_level;
  const uint64_t dropped = DroppedLogLines();
  if (dropped == 0) return {StatusLine::kOk, where};
  return {StatusLine::kWarning, where +
                                    "; lines that its reader did not take, and that are lost: " +
                                    std::to_string(dropped)};
}

// Null with the reason in `error` on failure, but does not return where it is the operator's.
std::shared_ptr<Shared> Start(const std::string& name, std::string* error) {
  if (!LoadProcessSettings(error)) FailStart(*error);
  const Settings& settings = ProcessSettings();
  if (!OpenLog(name, settings.log_target, settings.log_level, error)) FailStart(*error);
  RaiseDescriptorLimit();
  umask(S_IRWXG | S_IRWXO);  // what the daemon stores is its own
  auto shared = std::make_shared<Shared>();
  shared->status_board.Show("log", LogStatus);
  shared->lock = ProcessLock::Take(settings.state_directory, error);
  if (shared->lock == nullptr) FailStart(*error);
  shared->loop = EventLoop::Create();
  if (shared->loop == nullptr) {
    *error = std::string("the event loop cannot be created: ") + std::strerror(errno);
    return nullptr;
  }
  if (!WatchSignals(shared.get(), error)) {
    return nullptr;
  }
  const int watchdog = shared->loop->FeedWatchdog();
  if (watchdog < 0) {
    *error = std::string("the watchdog cannot be fed: ") + std::strerror(-watchdog);
    return nullptr;
  }
  return shared;
}

}  // namespace
}  // namespace host

struct qzmw {
  std::shared_ptr<host::Shared> shared;
};

namespace host {

std::shared_ptr<EventLoop> LoopOf(qzmw_t* mw) { return {mw->shared, mw->shared->loop.get()}; }

std::shared_ptr<StateProviders> StateProvidersOf(qzmw_t* mw) {
  return {mw->shared, &mw->shared->state_providers};
}

std::shared_ptr<Submissions> SubmissionsOf(qzmw_t* mw) {
  return {mw->shared, &mw->shared->submissions};
}

std::shared_ptr<StatusBoard> StatusBoardOf(qzmw_t* mw) {
  return {mw->shared, &mw->shared->status_board};
}

std::shared_ptr<EntryOriginSource> OriginsOf(qzmw_t* mw) {
  return {mw->shared, &mw->shared->origins};
}

std::shared_ptr<Events> EventsOf(qzmw_t* mw) { return {mw->shared, &mw->shared->events}; }

void NotifyReady() { sd_notify(0, "READY=1"); }

void NotifyStatus(const std::string& status) {
  sd_notify(0, ("STATUS=" + status.substr(0, status.find('\n'))).c_str());
}

}  // namespace host

qzmw_t* qzmw_init(const char* name) {
  std::string error;
  auto shared = host::Start(name, &error);
  if (shared == nullptr) {
    qzmw_gen_fault(1, __func__, "middleware", __LINE__, error.c_str());
    return nullptr;
  }
  return new qzmw{std::move(shared)};
}

int qzmw_loop_while(qzmw_t* mw, bool* flag) {
  const int result = mw->shared->loop->RunWhile(flag);
  if (result < 0) {
    host::Log(host::LogLevel::kError, "the event loop failed: %s", std::strerror(-result));
  }
  sd_notify(0, "STOPPING=1");
  return result;
}

void qzmw_finish(qzmw_t** mw) {
  delete *mw;
  *mw = nullptr;
}

zlog_category_s* qzmw_trace_init(qzmw_t* /*mw*/, const char* name) {
  return host::TraceCategory(name);
}
