#include "host/filter_mgr/ebpf/flush.h"

#include <unistd.h>

#include <cerrno>
#include <map>
#include <memory>
#include <optional>
#include <string>

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/ebpf/port_guards.h"
#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/store.h"
#include "host/filter_mgr/linux/link_table.h"

namespace host {
namespace {

// What this network namespace has below `directory`, closed to daemons meanwhile.
class Leftovers {
 public:
  // 0 or a negative errno: -ENOENT where there is nothing, -EWOULDBLOCK while a daemon runs.
  int Open(const std::string& directory) {
    const std::string own = EbpfDirectory(directory);
    if (access(own.c_str(), F_OK) != 0) return -ENOENT;
    int error = 0;
    root_ = PinDirectory::Make(own, &error);
    if (root_ != nullptr) error = root_->Lock();
    if (error == 0) links_ = PinDirectory::Make(root_->PathOf(kLinkPins), &error);
    return error == 0 ? table_.Open(OpenNetlink) : error;
  }

  // The hooks of one method, with what is attached. 0 or a negative errno.
  int Adopt(PortHooks::Method method, std::optional<PortHooks>* hooks) const {
    hooks->emplace(links_.get(), method);
    return (*hooks)->Adopt(table_.indices());
  }
  // Interfaces for which a link is pinned.
  size_t Pinned() const {
    size_t count = 0;
    for (const int interface : table_.indices()) {
      count += access(links_->PathOf(std::to_string(interface)).c_str(), F_OK) == 0 ? 1 : 0;
    }
    return count;
  }
  const std::string& path() const { return root_->path(); }

 private:
  std::unique_ptr<PinDirectory> root_, links_;
  LinkTable table_;
};

}  // namespace

int FlushEbpf(size_t* ports, const std::string& directory) {
  *ports = 0;
  Leftovers left;
  int error = left.Open(directory);
  if (error == -ENOENT) return 0;
  if (error != 0) return error == -EWOULDBLOCK ? -EPERM : error;
  for (const auto method : {PortHooks::Method::kLink, PortHooks::Method::kClassifier}) {
    std::optional<PortHooks> hooks;
    error = left.Adopt(method, &hooks);
    if (error != 0) return error;
    const std::map<int, uint32_t> attached = hooks->attached();
    for (const auto& [interface, program] : attached) {
      error = hooks->Detach(interface);
      if (error != 0) return error;
      ++*ports;
    }
  }
  // What filters is gone, so guards would only keep interfaces shut.
  int without = 0;
  const auto guards = PortGuards::Open(OpenNetlink, &without);
  if (guards != nullptr && !guards->in_force().empty()) error = guards->Remove();
  return error != 0 ? error : RemovePins(left.path());
}

int LeftByEbpf(size_t* ports, const std::string& directory) {
  *ports = 0;
  Leftovers left;
  int error = left.Open(directory);
  if (error == -ENOENT || error == -EWOULDBLOCK) return 0;
  if (error != 0) return error;
  std::optional<PortHooks> classifiers;
  error = left.Adopt(PortHooks::Method::kClassifier, &classifiers);
  *ports = left.Pinned() + (error == 0 ? classifiers->attached().size() : 0);
  return error;
}

}  // namespace host
