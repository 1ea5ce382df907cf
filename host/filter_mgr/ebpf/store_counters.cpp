// The counters of a store: see store.h.
#include <fcntl.h>

#include <cerrno>
#include <utility>

#include "host/filter_mgr/ebpf/store.h"

namespace host {

int FilterStore::GrowCounters(uint32_t slots) {
  if (slots <= counter_slots()) return 0;
  if (slots > most_counters()) return -E2BIG;
  int error = separate_ ? 0 : BeginEdition();
  if (error != 0) return error;
  uint32_t slice = counter_slots();
  while (slice < slots) slice *= 2;
  auto larger = FilterMap::Create(kMapCounters, slice * (cpus_ + 1), &error);
  if (larger == nullptr) return error;
  Counters before = {nullptr, counter_slots()};
  if (!counters_unused_) {  // read on, at addresses of their own
    Descriptor fd(fcntl(maps_[kMapCounters]->fd(), F_DUPFD_CLOEXEC, 0));
    before.map = FilterMap::Take(kMapCounters, std::move(fd), &error);
    if (before.map == nullptr) return error;
  }
  error = Install(kMapCounters, std::move(larger));
  if (error != 0) return error;
  // Nothing counts in the new ones before the program is on them; Settle() fetches the rest.
  if (before.map != nullptr) counters_before_.push_back(std::move(before));
  counters_unused_ = true;
  SetConfig();
  return 0;
}

// Adds what the slot has counted in `counters`, on all processors.
void FilterStore::AddCount(const Counters& counters, uint32_t slot, filter_counter* sum) const {
  const auto* counter = counters.map->As<filter_counter>();
  for (uint32_t cpu = 0; slot < counters.slice && cpu <= cpus_; ++cpu, counter += counters.slice) {
    sum->packets += __atomic_load_n(&counter[slot].packets, __ATOMIC_RELAXED);
    sum->bytes += __atomic_load_n(&counter[slot].bytes, __ATOMIC_RELAXED);
  }
}

// What the slot has counted in editions before this one.
filter_counter FilterStore::CountBefore(uint32_t slot) const {
  filter_counter sum{};
  for (const Counters& before : counters_before_) AddCount(before, slot, &sum);
  return sum;
}

filter_counter FilterStore::Count(uint32_t slot) const {
  filter_counter sum = CountBefore(slot);
  AddCount({maps_[kMapCounters], counter_slots()}, slot, &sum);
  return sum;
}

void FilterStore::ResetCount(uint32_t slot) {
  const auto reset = [this, slot](const Counters& counters) {
    auto* counter = counters.map->As<filter_counter>();
    for (uint32_t cpu = 0; slot < counters.slice && cpu <= cpus_; ++cpu) {
      counter[size_t{cpu} * counters.slice + slot] = {};
    }
  };
  reset({maps_[kMapCounters], counter_slots()});
  for (const Counters& before : counters_before_) reset(before);
}

}  // namespace host
