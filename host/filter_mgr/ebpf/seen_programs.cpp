#include "host/filter_mgr/ebpf/seen_programs.h"

#include <bpf/bpf.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "host/filter_mgr/ebpf/maps.h"
#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/ebpf/tcx.h"

namespace host {
namespace {

// 1 when the program is ours, 0 when it is another or gone, or a negative errno.
int IsOurs(uint32_t id) {
  const Descriptor program(bpf_prog_get_fd_by_id(id));
  if (!program) return errno == ENOENT ? 0 : -errno;
  bpf_prog_info info{};
  uint32_t size = sizeof(info);
  if (bpf_obj_get_info_by_fd(program.get(), &info, &size) != 0) return -errno;
  return strcmp(info.name, FilterProgramName()) == 0 ? 1 : 0;
}

}  // namespace

int SeePrograms(const std::vector<int>& interfaces, SeenPrograms* seen) {
  *seen = {};
  for (const int interface : interfaces) {
    std::array<uint32_t, kMostTcxPrograms> ids{};
    uint32_t count = ids.size();
    if (bpf_prog_query(interface, kTcxIngress, 0, nullptr, ids.data(), &count) != 0) {
      if (errno == EINVAL || errno == ENOSYS) return 0;
      if (errno == ENODEV || errno == ENOENT) continue;
      // Where there are more programs, the first ones are told.
      if (errno != ENOSPC) return -errno;
      count = ids.size();
    }
    for (uint32_t i = 0; i < count; ++i) {
      const int ours = IsOurs(ids[i]);
      if (ours == 1) seen->ours.insert(interface);
      if (ours < 0) seen->unnamed.insert(interface);
    }
  }
  return 0;
}

}  // namespace host
