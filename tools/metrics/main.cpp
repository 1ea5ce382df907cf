// acl-app-metrics: shows how the acl-app daemon is, to Prometheus and to people.
//
// Three parts, which share nothing but the last reading: the sampler reads the daemon, the HTTP
// server answers whoever asks, and this thread waits for the signal to end.
#include <libyang/libyang.h>
#include <pthread.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/runtime/settings.h"
#include "tools/metrics/assets.h"
#include "tools/metrics/exposition.h"
#include "tools/metrics/http_server.h"
#include "tools/metrics/options.h"
#include "tools/metrics/page_state.h"
#include "tools/metrics/sampler.h"

namespace metrics {
namespace {

// Signals that end the program. To be called before there are other threads, which then do not get
// them.
sigset_t BlockEndingSignals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGTERM, SIGINT}) sigaddset(&signals, signal);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::signal(SIGPIPE, SIG_IGN);
  return signals;
}

// A text about the last reading, made once for each of them, however many ask for it. For the
// server's thread.
HttpServer::Make OfLastReading(const Sampler* sampler, const char* type,
                               std::function<std::string(const Snapshot&)> make) {
  return [sampler, type, make = std::move(make), of = std::shared_ptr<const Snapshot>(),
          content = Content()]() mutable {
    const std::shared_ptr<const Snapshot> last = sampler->Last();
    if (last != of) {
      content = {type, std::make_shared<const std::string>(make(*last))};
      of = last;
    }
    return content;
  };
}

std::map<std::string, HttpServer::Make> Paths(const Sampler* sampler,
                                              const SamplerOptions& options) {
  std::map<std::string, HttpServer::Make> paths;
  for (size_t i = 0; i < kAssetCount; ++i) {
    const Asset& asset = kAssets[i];
    const auto text = std::make_shared<const std::string>(asset.text);
    paths[asset.path] = [type = asset.type, text] { return Content{type, text}; };
  }
  paths["/metrics"] = OfLastReading(
      sampler, kExpositionType,
      [most = options.most_hits](const Snapshot& last) { return Exposition(last, most); });
  const double interval_s = std::chrono::duration<double>(options.interval).count();
  paths["/state.json"] =
      OfLastReading(sampler, "application/json",
                    [interval_s](const Snapshot& last) { return PageState(last, interval_s); });
  return paths;
}

int Main(int argc, char** argv) {
  Options options;
  std::string error;
  if (!ReadOptions(argc, argv, &options, &error)) {
    std::fprintf(stderr, "acl-app-metrics: %s\nTry 'acl-app-metrics --help'.\n", error.c_str());
    return 2;
  }
  if (!options.print.empty()) {
    std::fputs(options.print.c_str(), stdout);
    return std::fflush(stdout) == 0 ? 0 : 1;
  }
  if (options.sampler.socket.empty() && !host::FindSocket(&options.sampler.socket, &error)) {
    std::fprintf(stderr, "acl-app-metrics: %s\n", error.c_str());
    return 3;
  }
  ly_log_options(LY_LOSTORE_LAST);
  const sigset_t signals = BlockEndingSignals();
  Sampler sampler(options.sampler);
  const auto server =
      HttpServer::Start(options.address, options.port, Paths(&sampler, options.sampler), &error);
  if (server == nullptr) {
    std::fprintf(stderr, "acl-app-metrics: %s\n", error.c_str());
    return 1;
  }
  std::fprintf(stderr, "acl-app-metrics: %s shows the daemon at %s\n", server->url().c_str(),
               options.sampler.socket.c_str());
  int signal = 0;
  sigwait(&signals, &signal);
  return 0;
}

}  // namespace
}  // namespace metrics

int main(int argc, char** argv) { return metrics::Main(argc, argv); }
