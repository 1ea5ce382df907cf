// The tables in force, as the kernel keeps them: a program and its maps, pinned, one directory each
// time they are made ("edition").
//
// BPF arrays cannot grow. When the classifier needs a larger one, a new edition is begun: all maps
// are copied, the larger one among them, and work goes on in the copies. The program in force keeps
// the old maps, which nobody changes any more, until the caller has put the new edition's program
// in its place on every port, one after the other: both give the same verdicts, for what is not
// published counts in neither. Only then something new may be published.
//
//   directory/            locked by the daemon that uses it
//     links/              see port_hooks.h
//     edition-1/          one map each, and "program"
//     edition-2/          only while 2 takes the place of 1
//
// In this process each map keeps its address for good, so that a pointer into one stays valid while
// any of them grows.
//
// Where the counters are larger ones, the new edition's begin at zero, and get what those before
// them have counted once nothing counts there any more: each sum is stored and not added, so that
// it can be made again, until the config says `counts_moved`.
//
// An edition is valid when its config says `complete`. A process that finds several, as another one
// died, goes on with the latest that is complete and lets the others go. Maps of another layout,
// or damaged ones, are left in force ("foreign") until new content replaces them whole.
#ifndef HOST_FILTER_MGR_EBPF_STORE_H_
#define HOST_FILTER_MGR_EBPF_STORE_H_

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/classifier/memory.h"
#include "host/filter_mgr/ebpf/maps.h"
#include "host/filter_mgr/ebpf/pins.h"

namespace host {

// Where links are pinned, below the store's directory.
constexpr char kLinkPins[] = "links";

class FilterStore final : public classifier::Memory {
 public:
  // Opens the directory, locks it, and takes over what is in there. Null, with a reason for people
  // in `reason`, when that cannot be. Blocks for up to a second while somebody else has the lock.
  static std::unique_ptr<FilterStore> Open(const std::string& directory, std::string* reason);

  ~FilterStore() override;

  // What Open() has found.
  enum class Found { kNothing, kOurs, kForeign };
  Found found() const { return found_; }
  // Lets go of what was found to be damaged: it stays in force, and work begins with empty maps.
  bool StartOver(std::string* reason);

  // For the classifier. The arrays that it does not know grow by the same rules: 0, or a negative
  // errno (-E2BIG: beyond what a map can be) and nothing has changed.
  int Grow(cls_array array, uint32_t capacity) override { return GrowMap(array, capacity); }
  void WaitForReaders() override;
  int GrowMap(size_t id, uint32_t capacity);
  uint32_t Capacity(size_t id) const { return maps_[id]->capacity(); }

  filter_config* config() const { return maps_[kMapConfig]->As<filter_config>(); }
  filter_port* ports() const { return maps_[kMapPorts]->As<filter_port>(); }
  filter_port_name* port_names() const { return maps_[kMapPortNames]->As<filter_port_name>(); }

  // Makes the program for the maps as they are, if need be, and pins both. 0, or a negative errno
  // with the reason when that is refused; what is in force then stays so.
  int Complete(std::string* reason);
  // The program to attach; -1 before the first Complete().
  int program() const { return program_.get(); }
  // Whether the maps are not yet those of program(): Complete() has to come before publishing.
  bool incomplete() const { return incomplete_; }
  // To be called once program() is the one on all ports: counts what the editions before it have
  // counted, and removes them.
  void Settle();

  // What the slot has counted, on all processors.
  filter_counter Count(uint32_t slot) const;
  // Sets a counter to zero. No entry that has it may be in force.
  void ResetCount(uint32_t slot);
  // Counters per slice.
  uint32_t counter_slots() const { return config()->counter_slice; }
  int GrowCounters(uint32_t slots);
  // So many are in a slice at most.
  uint32_t most_counters() const;

  const PinDirectory& links() const { return *links_; }
  // Bytes of all maps.
  size_t bytes() const;

 private:
  FilterStore() = default;
  int OpenDirectory(const std::string& directory);
  int TryPin() const;
  bool ReserveAddresses();
  // Puts the map in the place of its kind. 0, or a negative errno: -E2BIG when it is too large.
  int Install(size_t id, std::shared_ptr<FilterMap> map);
  bool Fresh(std::string* reason);
  int TakeEdition(const std::string& name);
  void TakeCountersBefore(const std::vector<uint64_t>& numbers);
  int BeginEdition();
  void SetConfig();
  void ShowAreas();
  struct Counters {
    std::shared_ptr<FilterMap> map;
    uint32_t slice;
  };
  void AddCount(const Counters& counters, uint32_t slot, filter_counter* sum) const;
  filter_counter CountBefore(uint32_t slot) const;

  std::unique_ptr<PinDirectory> root_, links_;
  std::array<void*, kMapCount> place_{};  // addresses that each map has for itself
  FilterMaps maps_;
  Descriptor program_;
  uint64_t edition_ = 0;  // number of the one in force, 0 before there is one
  bool incomplete_ = true;
  bool separate_ = true;                   // whether the maps are others than those of `program_`
  bool unsettled_ = false;                 // whether other editions are to be removed
  std::vector<Counters> counters_before_;  // of the editions that are being replaced
  bool counters_unused_ = true;            // no program counts in the newest yet
  uint32_t cpus_ = 1;
  Found found_ = Found::kNothing;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_STORE_H_
