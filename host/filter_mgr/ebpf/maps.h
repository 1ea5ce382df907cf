// The arrays that the program and the daemon share: which there are, and memory of this process
// that is the same as theirs.
#ifndef HOST_FILTER_MGR_EBPF_MAPS_H_
#define HOST_FILTER_MGR_EBPF_MAPS_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "host/classifier/layout.h"
#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/ebpf/program/shared.h"

namespace host {

// The classifier's arrays have its numbers.
enum MapId : size_t {
  kMapConfig = CLS_ARRAYS,
  kMapPorts,
  kMapPortNames,
  kMapCounters,
  kMapCache,
  kMapCount
};

// As the program calls it, which is also the name of its pin.
const char* MapName(size_t id);
// Bytes of one element.
size_t MapElementSize(size_t id);

// A BPF array, mapped.
class FilterMap {
 public:
  // A new one of `capacity` elements, all zero. Null with a negative errno in `error`.
  static std::shared_ptr<FilterMap> Create(size_t id, uint32_t capacity, int* error);
  // One that is there. -EINVAL when it is not such an array.
  static std::shared_ptr<FilterMap> Take(size_t id, Descriptor fd, int* error);
  ~FilterMap();
  FilterMap(const FilterMap&) = delete;
  FilterMap& operator=(const FilterMap&) = delete;

  // Moves the mapping to `address`, over what is mapped there; null: to a place of its own. 0, or a
  // negative errno when that cannot be: nothing has changed then. Another map's mapping that was
  // there has to Leave() it.
  int MoveTo(void* address);
  void Leave() { base_ = nullptr; }

  int fd() const { return fd_.get(); }
  uint32_t capacity() const { return capacity_; }  // elements
  size_t bytes() const { return bytes_; }
  void* base() const { return base_; }
  template <class T>
  T* As() const {
    return static_cast<T*>(base_);
  }

 private:
  FilterMap() = default;
  int Map(size_t id);

  Descriptor fd_;
  uint32_t capacity_ = 0;
  size_t bytes_ = 0;
  void* base_ = nullptr;
};

using FilterMaps = std::array<std::shared_ptr<FilterMap>, kMapCount>;

// The program as built, not yet loaded, and a number that tells builds apart.
struct ProgramImage {
  const void* data;
  size_t size;
  uint64_t checksum;
};
const ProgramImage& FilterProgramImage();
// As the kernel tells it.
const char* FilterProgramName();

// Loads the program over these maps. None, with a negative errno in `error` and the kernel's reason
// for people in `reason`, when it is refused.
Descriptor LoadFilterProgram(const FilterMaps& maps, int* error, std::string* reason);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_MAPS_H_
