#include "host/filter_mgr/ebpf/dead_stores.h"

#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/store.h"
#include "host/runtime/log.h"

namespace host {

void RemoveDeadStores(const std::string& directory) {
  int error = 0;
  const auto all = PinDirectory::Make(directory, &error);
  if (all == nullptr) return;
  for (const std::string& name : all->Directories()) {
    const auto store = PinDirectory::Make(all->PathOf(name), &error);
    if (store == nullptr || store->Lock() != 0) continue;
    const auto links = PinDirectory::Make(store->PathOf(kLinkPins), &error);
    if (links == nullptr || links->Pins().empty() || AnyLinkAlive(*links)) continue;
    if (RemovePins(store->path()) == 0) {
      Log(LogLevel::kInfo,
          "%s is removed: no daemon uses it, and none of the interfaces that it filtered is there "
          "any more",
          store->path().c_str());
    }
  }
}

}  // namespace host
