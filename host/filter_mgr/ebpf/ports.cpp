#include "host/filter_mgr/ebpf/ports.h"

#include <cerrno>
#include <cstring>

#include "host/runtime/log.h"

namespace host {
namespace {

constexpr size_t kNameSize = sizeof(filter_port_name::name);

// Interfaces whose index is so large are spread as others: the table is looked up modulo its size.
uint32_t SlotOfInterface(int interface, uint32_t probe, uint32_t slots) {
  return (static_cast<uint32_t>(interface) + probe) & (slots - 1);
}

// One store: the program may be reading.
void Store(filter_port* slot, filter_port port) {
  uint64_t word = 0;
  static_assert(sizeof(word) == sizeof(port));
  memcpy(&word, &port, sizeof(word));
  __atomic_store_n(reinterpret_cast<uint64_t*>(slot), word, __ATOMIC_RELEASE);
}

}  // namespace

void FilterPorts::Adopt() {
  const uint32_t capacity = store_->Capacity(kMapPortNames);
  for (uint32_t number = 0; number < capacity; ++number) {
    const char* const name = store_->port_names()[number].name;
    if (*name == '\0') continue;
    names_.resize(number + 1);
    names_[number].assign(name, strnlen(name, kNameSize));
    number_of_[names_[number]] = number;
  }
}

bool FilterPorts::Find(const std::string& port, uint32_t* number) const {
  const auto known = number_of_.find(port);
  if (known == number_of_.end()) return false;
  *number = known->second;
  return true;
}

bool FilterPorts::NumberOf(const std::string& port, uint32_t* number, Failure* failure) {
  if (Find(port, number)) return true;
  // No interface can have a longer name; such a port never gets a frame.
  if (port.size() >= kNameSize) return false;
  uint32_t free = 0;
  while (free < names_.size() && !names_[free].empty()) ++free;
  const int error = store_->GrowMap(kMapPortNames, free + 1);
  if (error != 0) {
    *failure = FailureOf(error, "there is no memory for the names of " + std::to_string(free + 1) +
                                    " ports: " + strerror(-error));
    return false;
  }
  if (free == names_.size()) names_.emplace_back();
  names_[free] = port;
  number_of_[port] = free;
  filter_port_name name{};
  memcpy(name.name, port.data(), port.size());
  store_->port_names()[free] = name;
  *number = free;
  return true;
}

std::map<int, uint32_t> FilterPorts::RootsOf(const std::set<std::string>& wanted) const {
  std::map<int, uint32_t> roots;
  for (const std::string& port : wanted) {
    const int interface = links_->IndexOf(port);
    if (interface == 0) continue;
    const uint32_t bare = links_->HasEthernet(interface) ? 0 : FILTER_PORT_BARE;
    roots[interface] = RootOf(number_of_.at(port), kL2) | bare;
  }
  return roots;
}

bool FilterPorts::SetSlot(int interface, uint32_t root) {
  const uint32_t slots = store_->config()->port_slots;
  filter_port* free = nullptr;
  for (uint32_t i = 0; i < FILTER_PORT_PROBES; ++i) {
    filter_port* const slot = store_->ports() + SlotOfInterface(interface, i, slots);
    if (slot->interface == static_cast<uint32_t>(interface)) {
      if (slot->root != root) Store(slot, {slot->interface, root});
      return true;
    }
    if (slot->interface == 0 && free == nullptr) free = slot;
  }
  if (free != nullptr) Store(free, {static_cast<uint32_t>(interface), root});
  return free != nullptr;
}

void FilterPorts::ClearSlot(int interface) {
  const uint32_t slots = store_->config()->port_slots;
  for (uint32_t i = 0; i < FILTER_PORT_PROBES; ++i) {
    filter_port* const slot = store_->ports() + SlotOfInterface(interface, i, slots);
    if (slot->interface == static_cast<uint32_t>(interface)) Store(slot, {0, 0});
  }
}

int FilterPorts::Fill(const std::map<int, uint32_t>& interfaces) {
  for (const auto& [interface, root] : interfaces) {
    if (SetSlot(interface, root)) continue;
    // A larger table is empty: all of them again, and those that have the program still, which
    // drops frames of interfaces it does not know.
    std::map<int, uint32_t> all = interfaces;
    const uint32_t slots = store_->config()->port_slots;
    for (uint32_t i = 0; i < slots; ++i) {
      const filter_port slot = store_->ports()[i];
      const auto known = static_cast<int>(slot.interface);
      if (hooks_->attached().count(known) != 0) all.emplace(known, slot.root);
    }
    const int error = store_->GrowMap(kMapPorts, 2 * slots);
    return error != 0 ? error : Fill(all);
  }
  return 0;
}

bool FilterPorts::MakeReady(const std::set<std::string>& wanted, Failure* failure) {
  const std::map<int, uint32_t> roots = RootsOf(wanted);
  int error = Fill(roots);
  if (error != 0) {
    *failure =
        FailureOf(error, "there is no memory for a table of " + std::to_string(roots.size()) +
                             " interfaces: " + strerror(-error));
    return false;
  }
  std::string reason;
  error = store_->Complete(&reason);
  if (error != 0) *failure = FailureOf(error, reason);
  return error == 0;
}

bool FilterPorts::Cover(const std::set<std::string>& wanted, Failure* failure) {
  const std::map<int, uint32_t> roots = RootsOf(wanted);
  if (!MakeReady(wanted, failure)) return false;
  failed_.clear();
  const uint32_t program = ProgramId(store_->program());
  std::map<int, uint32_t> all = hooks_->attached();
  for (const auto& [interface, root] : roots) all.emplace(interface, 0);
  for (const auto& [interface, now] : all) {
    if (now == program) continue;
    const int error = hooks_->Attach(interface, store_->program());
    if (error == 0) continue;
    if (error == -ENODEV || error == -ENOLINK) {  // went this moment: nothing comes in through it
      hooks_->Detach(interface);
      continue;
    }
    if (hooks_->Known(interface)) {  // it works on with an older program
      *failure = FailureOf(error, "the program of interface " + std::to_string(interface) +
                                      " cannot be replaced: " + strerror(-error));
      return false;
    }
    const auto root = roots.find(interface);
    if (root != roots.end())
      Fail(names_[(root->second & ~FILTER_PORT_BARE) / 2], "the program cannot be attached", error);
  }
  store_->Settle();
  SetGuards(wanted, /*keep_others=*/true);
  for (auto it = reported_.begin(); it != reported_.end();) {
    it = failed_.count(*it) == 0 ? reported_.erase(it) : std::next(it);
  }
  return true;
}

void FilterPorts::SetGuards(const std::set<std::string>& wanted, bool keep_others) {
  if (guards_ == nullptr) return;
  PortGuards::Guards guards;
  if (keep_others) guards = guards_->in_force();
  for (const std::string& port : wanted) {
    if (!Names(port)) continue;  // no interface can have such a name
    const int interface = links_->IndexOf(port);
    guards[port] = hooks_->Known(interface) ? interface : 0;
  }
  const int error = guards_->Set(guards);
  if (error == 0) return;
  for (const std::string& port : wanted) Fail(port, "the guard of its name cannot be set", error);
}

void FilterPorts::Uncover(const std::set<std::string>& wanted) {
  const std::map<int, uint32_t> roots = RootsOf(wanted);
  const std::map<int, uint32_t> attached = hooks_->attached();
  for (const auto& [interface, program] : attached) {
    if (roots.count(interface) != 0) continue;
    const int error = hooks_->Detach(interface);
    if (error != 0) {
      Log(LogLevel::kError, "the filter program cannot be taken off interface %d: %s", interface,
          strerror(-error));
    } else {
      ClearSlot(interface);
    }
  }
  for (uint32_t number = 0; number < names_.size(); ++number) {
    if (names_[number].empty() || wanted.count(names_[number]) != 0) continue;
    number_of_.erase(names_[number]);
    names_[number].clear();
    store_->port_names()[number] = {};
  }
  SetGuards(wanted, /*keep_others=*/false);
}

void FilterPorts::Forget(const std::set<std::string>& names) {
  for (const std::string& name : names) {
    const int interface = links_->IndexOf(name);
    if (number_of_.count(name) != 0 && interface != 0) hooks_->Forget(interface);
  }
}

bool FilterPorts::Covered(const std::string& port) const {
  return failed_.count(port) == 0 && hooks_->Known(links_->IndexOf(port));
}

void FilterPorts::Fail(const std::string& port, const char* what, int error) {
  failed_.insert(port);
  if (reported_.insert(port).second) {
    const LogFields fields({{"INTERFACE", port}});
    Log(LogLevel::kError, "port %s: %s: %s", port.c_str(), what, strerror(-error));
  }
}

}  // namespace host
