#include "host/filter_mgr/ebpf/flush.h"

#include <unistd.h>

#include <cerrno>
#include <vector>

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/ebpf/port_guards.h"
#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/store.h"
#include "host/filter_mgr/linux/link_table.h"

namespace host {

int FlushEbpf(size_t* ports, const std::string& directory) {
  *ports = 0;
  const std::string own = EbpfDirectory(directory);
  if (access(own.c_str(), F_OK) != 0) return 0;
  int error = 0;
  const auto root = PinDirectory::Make(own, &error);
  if (root != nullptr) error = root->Lock();
  if (error == -EWOULDBLOCK) error = -EPERM;
  const auto links = error == 0 ? PinDirectory::Make(root->PathOf(kLinkPins), &error) : nullptr;
  LinkTable table;
  if (error == 0) error = table.Open(OpenNetlink);
  if (error != 0) return error;
  for (const auto method : {PortHooks::Method::kLink, PortHooks::Method::kClassifier}) {
    PortHooks hooks(links.get(), method);
    error = hooks.Adopt(table.indices());
    if (error != 0) return error;
    const std::map<int, uint32_t> attached = hooks.attached();
    for (const auto& [interface, program] : attached) {
      error = hooks.Detach(interface);
      if (error != 0) return error;
      ++*ports;
    }
  }
  // What filters is gone, so guards would only keep interfaces shut.
  int without = 0;
  const auto guards = PortGuards::Open(OpenNetlink, &without);
  if (guards != nullptr && !guards->in_force().empty()) error = guards->Remove();
  return error != 0 ? error : RemovePins(own);
}

}  // namespace host
