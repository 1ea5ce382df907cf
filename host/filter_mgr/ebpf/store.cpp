#include "host/filter_mgr/ebpf/store.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <set>

#include "host/filter_mgr/ebpf/grace.h"
#include "host/runtime/log.h"

namespace host {
namespace {

constexpr char kEdition[] = "edition-";
constexpr char kProgramPin[] = "program";
constexpr uint32_t kCacheSlice = 4096;    // lines, of 64 bytes
constexpr uint32_t kLeastBytes = 4096;    // of a map: less would not take less memory
constexpr uint32_t kFirstPortSlots = 64;  // twice the ports that fit
// Addresses that each map may grow into.
constexpr size_t kPlace = sizeof(void*) == 8 ? size_t{1} << 32 : size_t{1} << 26;

std::string EditionName(uint64_t number) { return kEdition + std::to_string(number); }

// The number of an edition's directory; 0 when it is none.
uint64_t EditionNumber(const std::string& name) {
  const size_t prefix = sizeof(kEdition) - 1;
  return name.compare(0, prefix, kEdition) == 0 ? strtoull(name.c_str() + prefix, nullptr, 10) : 0;
}

uint32_t RoundUp(size_t id, uint32_t capacity) {
  uint32_t rounded = static_cast<uint32_t>(kLeastBytes / MapElementSize(id));
  while (rounded < capacity && rounded < 1U << 30) rounded *= 2;
  return std::max(rounded, capacity);
}

// The kernel's number of a map; 0 when it cannot be told.
uint32_t MapNumber(const FilterMap& map) {
  bpf_map_info info{};
  uint32_t size = sizeof(info);
  return bpf_obj_get_info_by_fd(map.fd(), &info, &size) == 0 ? info.id : 0;
}

}  // namespace

std::unique_ptr<FilterStore> FilterStore::Open(const std::string& directory, std::string* reason) {
  std::unique_ptr<FilterStore> store(new FilterStore);
  store->cpus_ = static_cast<uint32_t>(std::max(libbpf_num_possible_cpus(), 1));
  int error = 0;
  if (!store->ReserveAddresses()) {
    *reason = "there are no addresses for the maps";
    return nullptr;
  }
  error = store->OpenDirectory(directory);
  if (error == 0) store->links_ = PinDirectory::Make(store->root_->PathOf(kLinkPins), &error);
  if (error != 0) {
    *reason = directory + ": " +
              (error == -EINVAL        ? "this is in no BPF file system"
               : error == -EWOULDBLOCK ? "another daemon uses it"
                                       : strerror(-error));
    return nullptr;
  }
  std::vector<uint64_t> numbers;
  for (const std::string& name : store->root_->Directories()) {
    if (EditionNumber(name) != 0) numbers.push_back(EditionNumber(name));
  }
  std::sort(numbers.rbegin(), numbers.rend());
  for (const uint64_t number : numbers) {
    const int result = store->TakeEdition(EditionName(number));
    if (result == -EAGAIN) continue;  // was not complete: nothing depends on it
    store->edition_ = number;
    store->found_ = result == 0 ? Found::kOurs : Found::kForeign;
    break;
  }
  store->unsettled_ = numbers.size() > 1;
  if (store->found_ == Found::kOurs) store->TakeCountersBefore(numbers);
  if (store->found_ == Found::kOurs || store->Fresh(reason)) {
    error = store->TryPin();
    if (error == 0) return store;
    *reason = directory + ": nothing can be pinned: " + strerror(-error);
  }
  if (numbers.empty()) RemovePins(directory);
  return nullptr;
}

// Waits a little for the lock: a daemon of another network that looks for dead stores has it for a
// moment, too, and may even remove the directory (dead_stores.h). 0 or a negative errno.
int FilterStore::OpenDirectory(const std::string& directory) {
  constexpr int kAttempts = 100;
  constexpr useconds_t kPause = 10000;
  int error = 0;
  for (int i = 0; i < kAttempts; ++i) {
    root_ = PinDirectory::Make(directory, &error);
    if (root_ == nullptr) break;
    error = root_->Lock();
    if (error != -EWOULDBLOCK && error != -ENOENT) break;
    usleep(kPause);
  }
  return error;
}

// Whether what is made can be pinned. 0 or a negative errno.
int FilterStore::TryPin() const {
  constexpr char kTrial[] = "trial";
  const int error = root_->Pin(maps_[kMapConfig]->fd(), kTrial);
  return error == 0 ? root_->Unpin(kTrial) : error;
}

FilterStore::~FilterStore() {
  for (size_t id = 0; id < kMapCount; ++id) {
    if (place_[id] == nullptr) continue;
    // The place goes whole. Where the map went first, it would leave a hole, which another thread
    // may have mapped something into by then.
    if (maps_[id] != nullptr && maps_[id]->base() == place_[id]) maps_[id]->Leave();
    munmap(place_[id], kPlace);
  }
}

bool FilterStore::ReserveAddresses() {
  for (void*& place : place_) {
    place = mmap(nullptr, kPlace, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (place == MAP_FAILED) {
      place = nullptr;
      return false;
    }
  }
  return true;
}

int FilterStore::Install(size_t id, std::shared_ptr<FilterMap> map) {
  const std::shared_ptr<FilterMap> before = maps_[id];
  const int error = map->bytes() > kPlace ? -E2BIG : map->MoveTo(place_[id]);
  if (error != 0) return error;
  if (before != nullptr && before != map && before->base() == place_[id]) before->Leave();
  maps_[id] = std::move(map);
  return 0;
}

// Takes the edition's maps and program. -EAGAIN when it is not complete, -EPROTO when it is of
// another layout, or another negative errno.
int FilterStore::TakeEdition(const std::string& name) {
  int error = 0;
  const auto directory = PinDirectory::Make(root_->PathOf(name), &error);
  if (directory == nullptr) return error;
  FilterMaps maps;
  for (size_t i = 0; i < kMapCount; ++i) {
    const size_t id = (kMapConfig + i) % kMapCount;  // the config first: it says what to expect
    Descriptor fd = directory->Get(MapName(id), &error);
    if (!fd && id == kMapConfig) return -EAGAIN;
    if (fd) maps[id] = FilterMap::Take(id, std::move(fd), &error);
    if (error != 0) return error;
    if (id != kMapConfig) continue;
    const auto* config = maps[id]->As<filter_config>();
    if (config->complete == 0) return -EAGAIN;
    if (config->layout != FILTER_LAYOUT_VERSION || config->cpus != cpus_) return -EPROTO;
  }
  if (maps[CLS_CONTROL]->As<cls_control>()->layout != CLS_LAYOUT_VERSION) return -EPROTO;
  for (size_t id = 0; id < kMapCount; ++id) {
    error = Install(id, std::move(maps[id]));
    if (error != 0) return error;
  }
  // A program of another build has to make room for this one's; it works on the same maps.
  program_ = directory->Get(kProgramPin, &error);
  separate_ = counters_unused_ = false;
  incomplete_ = !program_ || config()->program != FilterProgramImage().checksum;
  ShowAreas();
  return 0;
}

// Takes the counters of editions that the one taken over replaces, as far as it has not got their
// counts: the process that was to move them has died. `numbers` are those of all, the latest first.
void FilterStore::TakeCountersBefore(const std::vector<uint64_t>& numbers) {
  bool moved = config()->counts_moved != 0;
  std::set<uint32_t> known = {MapNumber(*maps_[kMapCounters])};
  for (auto number = numbers.begin(); number != numbers.end() && !moved; ++number) {
    if (*number >= edition_) continue;
    int error = 0;
    const auto directory = PinDirectory::Make(root_->PathOf(EditionName(*number)), &error);
    FilterMaps maps;
    for (const size_t id : {size_t{kMapConfig}, size_t{kMapCounters}}) {
      Descriptor fd;
      if (error == 0) fd = directory->Get(MapName(id), &error);
      if (error == 0) maps[id] = FilterMap::Take(id, std::move(fd), &error);
    }
    if (error != 0) {
      if (error != -ENOENT) {
        Log(LogLevel::kWarning, "counts in %s are lost: %s",
            root_->PathOf(EditionName(*number)).c_str(), strerror(-error));
      }
      continue;
    }
    const auto* const before = maps[kMapConfig]->As<filter_config>();
    const uint32_t slice = before->counter_slice;
    if (before->complete == 0 || before->layout != FILTER_LAYOUT_VERSION || before->cpus != cpus_ ||
        maps[kMapCounters]->capacity() / (cpus_ + 1) < slice) {
      continue;
    }
    if (known.insert(MapNumber(*maps[kMapCounters])).second) {
      counters_before_.push_back({maps[kMapCounters], slice});
    }
    moved = before->counts_moved != 0;
  }
  if (counters_before_.empty()) return;
  // Some of the sums may have been made.
  const size_t slice = counter_slots();
  std::fill_n(maps_[kMapCounters]->As<filter_counter>() + cpus_ * slice, slice, filter_counter{});
}

bool FilterStore::Fresh(std::string* reason) {
  counters_before_.clear();  // of entries that go
  for (size_t id = 0; id < kMapCount; ++id) {
    uint32_t capacity = 1;
    if (id == kMapPorts) capacity = kFirstPortSlots;
    if (id == kMapCounters) capacity = (cpus_ + 1) * (RoundUp(id, 1) / 2);
    if (id == kMapCache) capacity = cpus_ * kCacheSlice;
    int error = 0;
    auto map = FilterMap::Create(
        id, id == kMapPorts || id >= kMapCounters ? capacity : RoundUp(id, capacity), &error);
    if (map != nullptr) error = Install(id, std::move(map));
    if (error != 0) {
      *reason = std::string("the kernel gives no map: ") + strerror(-error);
      return false;
    }
  }
  incomplete_ = separate_ = counters_unused_ = true;
  SetConfig();
  ShowAreas();
  return true;
}

bool FilterStore::StartOver(std::string* reason) {
  found_ = Found::kForeign;
  program_ = Descriptor();
  return Fresh(reason);
}

void FilterStore::SetConfig() {
  filter_config* const c = config();
  c->layout = FILTER_LAYOUT_VERSION;
  c->complete = c->counts_moved = 0;
  c->cpus = cpus_;
  c->counter_slice = maps_[kMapCounters]->capacity() / (cpus_ + 1);
  c->cache_slice = kCacheSlice;
  c->port_slots = maps_[kMapPorts]->capacity();
}

void FilterStore::ShowAreas() {
  for (size_t id = 0; id < CLS_ARRAYS; ++id)
    areas_[id] = {maps_[id]->base(), maps_[id]->capacity()};
}

// Copies all maps, so that those in force are not changed any more. The counters go on to be
// shared, and what was cached is of no use.
int FilterStore::BeginEdition() {
  int error = 0;
  FilterMaps copies;
  for (size_t id = 0; id < kMapCount; ++id) {
    if (id == kMapCounters) continue;
    copies[id] = FilterMap::Create(id, maps_[id]->capacity(), &error);
    if (copies[id] == nullptr) return error;
    if (id != kMapCache) memcpy(copies[id]->base(), maps_[id]->base(), maps_[id]->bytes());
  }
  const FilterMaps before = maps_;
  for (size_t id = 0; id < kMapCount; ++id) {
    if (copies[id] != nullptr) error = Install(id, std::move(copies[id]));
    if (error == 0) continue;
    // Some of the maps would be the program's in force, and some not: back to all of its own.
    while (id-- > 0) Install(id, before[id]);
    return error;
  }
  incomplete_ = separate_ = true;
  SetConfig();
  return 0;
}

int FilterStore::GrowMap(size_t id, uint32_t capacity) {
  if (capacity <= maps_[id]->capacity()) return 0;
  int error = separate_ ? 0 : BeginEdition();
  if (error != 0) return error;
  auto larger = FilterMap::Create(id, RoundUp(id, capacity), &error);
  if (larger == nullptr) return error;
  if (id != kMapPorts) memcpy(larger->base(), maps_[id]->base(), maps_[id]->bytes());
  error = Install(id, std::move(larger));
  if (error != 0) return error;
  SetConfig();
  ShowAreas();
  return 0;
}

uint32_t FilterStore::most_counters() const {
  const size_t most = kPlace / MapElementSize(kMapCounters) / (cpus_ + 1);
  uint32_t slice = 1;
  while (slice <= most / 2) slice *= 2;
  return slice;
}

int FilterStore::Complete(std::string* reason) {
  if (!incomplete_) return 0;
  int error = 0;
  Descriptor program = LoadFilterProgram(maps_, &error, reason);
  if (!program) return error;
  const uint64_t number = separate_ ? edition_ + 1 : edition_;
  if (separate_) {
    // What a crash left under this name is not complete.
    error = RemovePins(root_->PathOf(EditionName(number)));
    if (error == -ENOENT) error = 0;
  }
  std::unique_ptr<PinDirectory> directory;
  if (error == 0) directory = PinDirectory::Make(root_->PathOf(EditionName(number)), &error);
  for (size_t id = 0; id < kMapCount && error == 0 && separate_; ++id) {
    error = directory->Pin(maps_[id]->fd(), MapName(id));
  }
  if (error == 0) error = directory->Pin(program.get(), kProgramPin);
  if (error != 0) {
    *reason = std::string("the filter program cannot be pinned: ") + strerror(-error);
    return error;
  }
  config()->program = FilterProgramImage().checksum;
  // Counters of editions that this one does not continue are nobody's.
  config()->counts_moved = counters_before_.empty() ? 1 : 0;
  __atomic_store_n(&config()->complete, 1, __ATOMIC_RELEASE);
  unsettled_ = unsettled_ || edition_ != 0;
  edition_ = number;
  program_ = std::move(program);
  incomplete_ = separate_ = counters_unused_ = false;
  return 0;
}

void FilterStore::Settle() {
  if (!unsettled_) return;
  if (!counters_before_.empty()) {
    WaitForReaders();
    auto* const own = maps_[kMapCounters]->As<filter_counter>() + size_t{cpus_} * counter_slots();
    for (uint32_t slot = 0; slot < counter_slots(); ++slot) own[slot] = CountBefore(slot);
    counters_before_.clear();
  }
  __atomic_store_n(&config()->counts_moved, 1, __ATOMIC_RELEASE);
  for (const std::string& name : root_->Directories()) {
    if (EditionNumber(name) == 0 || EditionNumber(name) == edition_) continue;
    const int error = RemovePins(root_->PathOf(name));
    if (error != 0) {
      Log(LogLevel::kWarning, "%s cannot be removed: %s", root_->PathOf(name).c_str(),
          strerror(-error));
    }
  }
  unsettled_ = false;
}

void FilterStore::WaitForReaders() { WaitForPrograms(); }

size_t FilterStore::bytes() const {
  size_t sum = 0;
  for (const auto& map : maps_) sum += map->bytes();
  return sum;
}

}  // namespace host
