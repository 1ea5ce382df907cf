#include "host/filter_mgr/ebpf/flush.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/ebpf/port_guards.h"
#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/seen_programs.h"
#include "host/filter_mgr/ebpf/store.h"
#include "host/filter_mgr/linux/link_table.h"

namespace host {
namespace {

// Whether the error is that of a kernel without a packet filter, which has no guards.
bool NoPacketFilter(int error) { return error == -EPROTONOSUPPORT || error == -EOPNOTSUPP; }

// What this network namespace has: in its store below a directory, closed to daemons meanwhile, and
// in the kernel, whoever holds it there.
class Leftovers {
 public:
  // Looks at both. 0 or a negative errno, when there may be more than what is told. A store that
  // cannot be opened is no failure, but the reason why what is in force is out of reach.
  int Open(const std::string& directory) {
    path_ = EbpfDirectory(directory);
    int error = table_.Open(OpenNetlink);
    if (error != 0) return error;
    store_error_ = OpenStore();
    return See();
  }

  // Interfaces that are filtered, and those of them that this process cannot free.
  const std::set<int>& filtered() const { return filtered_; }
  const std::set<int>& out_of_reach() const { return out_of_reach_; }
  bool locked() const { return store_error_ == -EWOULDBLOCK; }
  bool has_store() const { return store_error_ == 0; }
  // Why some are out of reach; empty where none is.
  std::string Reason() const {
    if (out_of_reach_.empty()) return {};
    if (locked()) return "a running daemon has them";
    return path_ + ": " +
           (store_error_ == 0 ? "their links are not pinned here" : strerror(-store_error_));
  }

  // The hooks of one method, with what is attached; pins of links that are on no interface here go
  // only without `trial`. 0 or a negative errno.
  int Adopt(PortHooks::Method method, bool trial, std::optional<PortHooks>* hooks) const {
    hooks->emplace(links_.get(), method);
    return (*hooks)->Adopt(table_.indices(), /*keep_pins=*/trial);
  }
  const std::string& path() const { return path_; }

 private:
  int OpenStore() {
    if (access(path_.c_str(), F_OK) != 0) return -errno;
    int error = 0;
    root_ = PinDirectory::Make(path_, &error);
    if (error == 0) links_ = PinDirectory::Make(root_->PathOf(kLinkPins), &error);
    if (error == 0) error = root_->Lock();
    return error == 0 && access(path_.c_str(), W_OK) != 0 ? -errno : error;
  }

  // Interfaces for which a link is pinned.
  std::set<int> Pinned() const {
    std::set<int> pinned;
    for (const int interface : table_.indices()) {
      const bool is =
          links_ != nullptr && access(links_->PathOf(std::to_string(interface)).c_str(), F_OK) == 0;
      if (is) pinned.insert(interface);
    }
    return pinned;
  }

  int See() {
    const std::set<int> pinned = Pinned();
    SeenPrograms seen;
    std::optional<PortHooks> classifiers;
    int error = Adopt(PortHooks::Method::kClassifier, /*trial=*/true, &classifiers);
    if (error != 0) return error;
    error = SeePrograms(table_.indices(), &seen);
    if (error == -EPERM) error = ByGuards(table_.indices(), &seen.ours);
    if (error == 0) error = ByGuards({seen.unnamed.begin(), seen.unnamed.end()}, &seen.ours);
    filtered_ = pinned;
    for (const auto& [interface, program] : classifiers->attached()) filtered_.insert(interface);
    if (has_store()) out_of_reach_ = Less(seen.ours, pinned);
    filtered_.insert(seen.ours.begin(), seen.ours.end());
    if (!has_store()) out_of_reach_ = filtered_;
    return error;
  }

  // Adds those of the interfaces that have a guard: where the kernel does not say whose programs
  // there are, that tells.
  static int ByGuards(const std::vector<int>& interfaces, std::set<int>* ours) {
    if (interfaces.empty()) return 0;
    int error = 0;
    const auto guards = PortGuards::Open(OpenNetlink, &error);
    if (guards == nullptr) return NoPacketFilter(error) ? 0 : error;
    for (const auto& [port, interface] : guards->in_force()) {
      if (std::count(interfaces.begin(), interfaces.end(), interface) != 0) ours->insert(interface);
    }
    return 0;
  }

  static std::set<int> Less(const std::set<int>& all, const std::set<int>& without) {
    std::set<int> rest;
    std::set_difference(all.begin(), all.end(), without.begin(), without.end(),
                        std::inserter(rest, rest.end()));
    return rest;
  }

  std::string path_;
  std::unique_ptr<PinDirectory> root_, links_;
  LinkTable table_;
  int store_error_ = 0;
  std::set<int> filtered_, out_of_reach_;
};

}  // namespace

int FlushEbpf(LeftFilters* filters, const std::string& directory, bool trial) {
  *filters = {};
  Leftovers left;
  int error = left.Open(directory);
  if (error != 0) return error;
  *filters = {left.filtered().size(), left.Reason()};
  if (left.locked()) return -EPERM;
  if (!left.out_of_reach().empty()) return -EACCES;
  // All that can be refused comes before the first interface is opened.
  const auto guards = PortGuards::Open(OpenNetlink, &error);
  if (guards == nullptr && !NoPacketFilter(error)) return error;
  std::array<std::optional<PortHooks>, 2> hooks;
  error = left.Adopt(PortHooks::Method::kClassifier, trial, &hooks[0]);
  if (error == 0 && left.has_store())
    error = left.Adopt(PortHooks::Method::kLink, trial, &hooks[1]);
  if (error != 0 || trial) return error;
  for (auto& method : hooks) {
    if (!method) continue;
    const std::map<int, uint32_t> attached = method->attached();
    for (const auto& [interface, program] : attached) {
      error = method->Detach(interface);
      if (error != 0) return error;
    }
  }
  // What filters is gone, so guards would only keep interfaces shut.
  if (guards != nullptr && !guards->in_force().empty()) error = guards->Remove();
  return error != 0 || !left.has_store() ? error : RemovePins(left.path());
}

int LeftByEbpf(LeftFilters* filters, const std::string& directory) {
  *filters = {};
  Leftovers left;
  const int error = left.Open(directory);
  *filters = {left.filtered().size(), left.Reason()};
  return error;
}

}  // namespace host
