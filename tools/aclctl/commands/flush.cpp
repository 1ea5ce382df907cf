// aclctl flush.
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string>

#include "host/filter_mgr/flush.h"
#include "host/netconf/wire/listener.h"
#include "tools/aclctl/commands.h"

namespace aclctl {
namespace {

// "1 port", "2 ports".
std::string Ports(size_t count) {
  return std::to_string(count) + (count == 1 ? " port" : " ports");
}

Failure KernelFailure(int error, const host::LeftFilters& filters) {
  if (!filters.out_of_reach.empty()) {
    return {kKernel,
            "filters are in force on " + Ports(filters.ports) +
                " that cannot be removed from here: " + filters.out_of_reach,
            {}};
  }
  const char* const hint = error == -EPERM ? " (this needs CAP_NET_ADMIN, for tables CAP_BPF, too, "
                                             "and no daemon that owns the filters)"
                                           : "";
  return {kKernel, std::string("the kernel refused: ") + std::strerror(-error) + hint, {}};
}

Failure Flush(const Common& common) {
  // A running daemon would put its filters back at once.
  const int daemon = host::ConnectTo(common.socket);
  if (daemon >= 0) {
    close(daemon);
    return {kRefused, "the daemon at " + common.socket + " is running; stop it first", {}};
  }
  if (errno != ENOENT && errno != ECONNREFUSED) {
    return {kUnreachable,
            "cannot tell whether the daemon at " + common.socket +
                " is running: " + std::strerror(errno),
            {}};
  }
  host::LeftFilters filters;
  const int error = host::FlushBackends("", &filters);
  if (error != 0) return KernelFailure(error, filters);
  const size_t ports = filters.ports;
  if (common.form == Form::kJson) {
    std::printf("{\"ports\": %zu}\n", ports);
  } else {
    std::printf("Filters of %s removed.\n", Ports(ports).c_str());
  }
  return {};
}

}  // namespace

const Command kFlush = {
    "flush", Group::kRecover, "remove all filters from the kernel; the daemon must not be running",
    "systemctl stop acl-app && aclctl flush", [](Syntax* /*syntax*/) -> Run { return Flush; }};

}  // namespace aclctl
