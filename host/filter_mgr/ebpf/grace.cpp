#include "host/filter_mgr/ebpf/grace.h"

#include <bpf/bpf.h>
#include <linux/membarrier.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "host/runtime/worker_thread.h"

namespace host {

void WaitForPrograms() {
  // Waits for the kernel's own grace period, which runs of programs are readers of.
  if (syscall(__NR_membarrier, MEMBARRIER_CMD_GLOBAL, 0, 0) == 0) return;
  // Refused where processors are kept free of the timer. Taking a map out of a map of maps waits as
  // well.
  const Descriptor inner(bpf_map_create(BPF_MAP_TYPE_ARRAY, "acl_grace", 4, 8, 1, nullptr));
  LIBBPF_OPTS(bpf_map_create_opts, options, .inner_map_fd = static_cast<uint32_t>(inner.get()));
  const Descriptor outer(bpf_map_create(BPF_MAP_TYPE_HASH_OF_MAPS, "acl_grace", 4, 4, 1, &options));
  const uint32_t key = 0;
  const int value = inner.get();
  bpf_map_update_elem(outer.get(), &key, &value, BPF_ANY);
  bpf_map_delete_elem(outer.get(), &key);
}

GracePeriod::GracePeriod() : done_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

GracePeriod::~GracePeriod() {
  if (thread_.joinable()) thread_.join();
}

void GracePeriod::Start(uint64_t ticket) {
  ticket_ = ticket;
  running_ = true;
  const auto wait = [fd = done_.get()] {
    WaitForPrograms();
    const uint64_t one = 1;
    // Cannot fail: the counter is far from its end.
    (void)!write(fd, &one, sizeof(one));
  };
  thread_ = StartWorker(wait);
  if (!thread_.joinable()) wait();  // no thread is to be had
}

std::optional<uint64_t> GracePeriod::Ended() {
  uint64_t count = 0;
  if (read(done_.get(), &count, sizeof(count)) != sizeof(count)) return std::nullopt;
  if (thread_.joinable()) thread_.join();
  running_ = false;
  return ticket_;
}

}  // namespace host
