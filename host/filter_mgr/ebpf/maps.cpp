#include "host/filter_mgr/ebpf/maps.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

// The object file, as the compiler made it.
asm(".section .rodata\n"
    ".balign 16\n"
    "acl_filter_object:\n"
    ".incbin \"" FILTER_PROGRAM_OBJECT
    "\"\n"
    "acl_filter_object_end:\n"
    ".byte 0\n"
    ".previous\n");
extern "C" const unsigned char acl_filter_object[], acl_filter_object_end[];

namespace host {
namespace {

constexpr char kProgramName[] = "acl_filter";

struct MapKind {
  const char* name;
  size_t element;
};
constexpr MapKind kMaps[kMapCount] = {
    {"control", sizeof(cls_control)},     {"roots", sizeof(cls_root)},
    {"groups", sizeof(cls_group)},        {"tables", sizeof(cls_table)},
    {"filters", sizeof(cls_filter)},      {"slots", sizeof(cls_slots)},
    {"heads", sizeof(cls_head)},          {"entries", sizeof(cls_entry)},
    {"masks", sizeof(cls_key)},           {"config", sizeof(filter_config)},
    {"ports", sizeof(filter_port)},       {"port_names", sizeof(filter_port_name)},
    {"counters", sizeof(filter_counter)}, {"cache", sizeof(filter_cached)},
};

// What libbpf and the kernel say about the loading in progress, the last lines of it.
std::string& LoadingLog() {
  static std::string log;
  return log;
}

int TakeLog(libbpf_print_level level, const char* format, va_list arguments) {
  constexpr size_t kKept = 600;
  if (level == LIBBPF_DEBUG) return 0;
  char line[2048];
  const int size = vsnprintf(line, sizeof(line), format, arguments);
  std::string& log = LoadingLog();
  log += line;
  if (log.size() > kKept) log.erase(0, log.size() - kKept);
  return size;
}

struct ObjectDeleter {
  void operator()(bpf_object* object) const { bpf_object__close(object); }
};

}  // namespace

const char* MapName(size_t id) { return kMaps[id].name; }
size_t MapElementSize(size_t id) { return kMaps[id].element; }

std::shared_ptr<FilterMap> FilterMap::Create(size_t id, uint32_t capacity, int* error) {
  LIBBPF_OPTS(bpf_map_create_opts, options, .map_flags = BPF_F_MMAPABLE);
  Descriptor fd(bpf_map_create(BPF_MAP_TYPE_ARRAY, kMaps[id].name, sizeof(uint32_t),
                               static_cast<uint32_t>(kMaps[id].element), capacity, &options));
  if (!fd) {
    *error = -errno;
    return nullptr;
  }
  return Take(id, std::move(fd), error);
}

std::shared_ptr<FilterMap> FilterMap::Take(size_t id, Descriptor fd, int* error) {
  std::shared_ptr<FilterMap> map(new FilterMap);
  map->fd_ = std::move(fd);
  *error = map->Map(id);
  return *error == 0 ? map : nullptr;
}

int FilterMap::Map(size_t id) {
  bpf_map_info info{};
  uint32_t size = sizeof(info);
  if (bpf_obj_get_info_by_fd(fd_.get(), &info, &size) != 0) return -errno;
  if (info.type != BPF_MAP_TYPE_ARRAY || info.value_size != kMaps[id].element ||
      (info.map_flags & BPF_F_MMAPABLE) == 0) {
    return -EINVAL;
  }
  const auto page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  const size_t bytes = (info.max_entries * kMaps[id].element + page - 1) / page * page;
  void* const base = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, fd_.get(), 0);
  if (base == MAP_FAILED) return -errno;
  base_ = base;
  bytes_ = bytes;
  capacity_ = info.max_entries;
  return 0;
}

int FilterMap::MoveTo(void* address) {
  const int fixed = address == nullptr ? 0 : MAP_FIXED;
  void* const base =
      mmap(address, bytes_, PROT_READ | PROT_WRITE, MAP_SHARED | fixed, fd_.get(), 0);
  if (base == MAP_FAILED) return -errno;
  if (base_ != nullptr && base_ != base) munmap(base_, bytes_);
  base_ = base;
  return 0;
}

FilterMap::~FilterMap() {
  if (base_ != nullptr) munmap(base_, bytes_);
}

const char* FilterProgramName() { return kProgramName; }

const ProgramImage& FilterProgramImage() {
  static const ProgramImage image = [] {
    const auto size = static_cast<size_t>(acl_filter_object_end - acl_filter_object);
    uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
    for (size_t i = 0; i < size; ++i) hash = (hash ^ acl_filter_object[i]) * 0x100000001b3;
    return ProgramImage{acl_filter_object, size, hash};
  }();
  return image;
}

Descriptor LoadFilterProgram(const FilterMaps& maps, int* error, std::string* reason) {
  LoadingLog().clear();
  const libbpf_print_fn_t printer = libbpf_set_print(TakeLog);
  LIBBPF_OPTS(bpf_object_open_opts, options, .object_name = "acl_app");
  const ProgramImage& image = FilterProgramImage();
  const std::unique_ptr<bpf_object, ObjectDeleter> object(
      bpf_object__open_mem(image.data, image.size, &options));
  *error = object == nullptr ? -errno : 0;
  for (size_t id = 0; id < kMapCount && *error == 0; ++id) {
    bpf_map* const map = bpf_object__find_map_by_name(object.get(), kMaps[id].name);
    *error = map == nullptr ? -ENOENT : bpf_map__reuse_fd(map, maps[id]->fd());
  }
  if (*error == 0) *error = bpf_object__load(object.get());
  Descriptor program;
  if (*error == 0) {
    const bpf_program* loaded = bpf_object__find_program_by_name(object.get(), kProgramName);
    program = Descriptor(fcntl(bpf_program__fd(loaded), F_DUPFD_CLOEXEC, 0));
    if (!program) *error = -errno;
  }
  libbpf_set_print(printer);
  if (*error != 0) {
    *reason = std::string("the filter program cannot be loaded: ") + strerror(-*error);
    if (!LoadingLog().empty()) *reason += " (" + LoadingLog() + ")";
  }
  return program;
}

}  // namespace host
