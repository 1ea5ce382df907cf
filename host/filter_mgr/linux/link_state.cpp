#include "host/filter_mgr/linux/link_state.h"

#include <ifaddrs.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include "host/runtime/log.h"

namespace host {

// All are read at once, and not asked for by name: for a name that no interface has, an ioctl of
// netdevice(7) has the kernel run modprobe and waits for it.
LinkStates ReadLinkStates() {
  std::map<std::string, LinkState> states;
  ifaddrs* all = nullptr;
  if (getifaddrs(&all) != 0) {
    Log(LogLevel::kError, "the interfaces cannot be read: %s", strerror(errno));
    all = nullptr;
  }
  for (const ifaddrs* at = all; at != nullptr; at = at->ifa_next) {
    // One for each interface; without an address where the link has none. The others are IP's.
    if (at->ifa_addr != nullptr && at->ifa_addr->sa_family != AF_PACKET) continue;
    const bool up = (at->ifa_flags & IFF_UP) != 0 && (at->ifa_flags & IFF_RUNNING) != 0;
    states.emplace(at->ifa_name, up ? LinkState::kUp : LinkState::kDown);
  }
  freeifaddrs(all);
  return [states = std::move(states)](const std::string& name) {
    const auto found = states.find(name);
    return found == states.end() ? LinkState::kAbsent : found->second;
  };
}

}  // namespace host
