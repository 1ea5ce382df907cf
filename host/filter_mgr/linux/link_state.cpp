#include "host/filter_mgr/linux/link_state.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace host {

LinkState LinkStateOf(const std::string& name) {
  ifreq request{};
  if (name.empty() || name.size() >= sizeof(request.ifr_name)) return LinkState::kAbsent;
  name.copy(request.ifr_name, name.size());
  const int socket = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool found = ioctl(socket, SIOCGIFFLAGS, &request) == 0;
  close(socket);
  if (!found) return LinkState::kAbsent;
  const bool up = (request.ifr_flags & IFF_UP) != 0 && (request.ifr_flags & IFF_RUNNING) != 0;
  return up ? LinkState::kUp : LinkState::kDown;
}

}  // namespace host
