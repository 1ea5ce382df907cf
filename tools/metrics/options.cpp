// The command line: see options.h.
#include "tools/metrics/options.h"

#include <CLI/CLI.hpp>

#include "host/runtime/settings.h"
#include "host/runtime/version.h"

namespace metrics {
namespace {

std::string Help() {
  return "Usage: acl-app-metrics [OPTION]...\n"
         "\n"
         "Reads the acl-app daemon every few seconds, and shows how it is: in Prometheus' format\n"
         "at /metrics, and as a page for people at /.\n"
         "\n"
         "Options:\n"
         "  --address ADDRESS   the IP address to listen at (default: 127.0.0.1, for this machine\n"
         "                      alone)\n"
         "  --port PORT         the TCP port (default: 9830); 0 takes one that is free\n"
         "  --socket PATH       the daemon's NETCONF socket (default: $ACL_APP_SOCKET, else what\n"
         "                      " +
         host::SettingsFile() +
         " says)\n"
         "  --interval SECONDS  the time between two readings, from 1 to 60 (default: 5)\n"
         "  --most-hits N       tell the hits of each entry as long as the groups have no more\n"
         "                      than N entries, at most 100000 (default: 5000)\n"
         "  --help              print this and exit\n"
         "  --version           print the version and exit\n"
         "\n"
         "Exit status:\n"
         "  0  it was asked to end, or to print this\n"
         "  1  it could not listen\n"
         "  2  the command line is wrong\n"
         "  3  the settings cannot be read\n";
}

}  // namespace

bool ReadOptions(int argc, const char* const* argv, Options* options, std::string* error) {
  CLI::App app;
  app.set_help_flag();
  bool help = false, version = false;
  double interval = 5;
  app.add_flag("--help,-h", help);
  app.add_flag("--version", version);
  app.add_option("--address", options->address);
  app.add_option("--port", options->port);
  app.add_option("--socket", options->sampler.socket);
  app.add_option("--interval", interval)->check(CLI::Range(1.0, 60.0));
  app.add_option("--most-hits", options->sampler.most_hits)->check(CLI::Range(0, 100000));
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& wrong) {
    *error = wrong.what();
    return false;
  }
  options->sampler.interval = std::chrono::milliseconds(static_cast<int64_t>(interval * 1000));
  if (help) options->print = Help();
  if (version) options->print = std::string("acl-app-metrics ") + host::Version() + "\n";
  return true;
}

}  // namespace metrics
