// Waits for the kernel's readers without keeping the event loop: the wait takes some 10 ms.
#ifndef HOST_FILTER_MGR_EBPF_GRACE_H_
#define HOST_FILTER_MGR_EBPF_GRACE_H_

#include <cstdint>
#include <optional>
#include <thread>

#include "host/filter_mgr/ebpf/pins.h"

namespace host {

// Returns when all runs of BPF programs that are under way have ended.
void WaitForPrograms();

class GracePeriod {
 public:
  GracePeriod();
  ~GracePeriod();
  GracePeriod(const GracePeriod&) = delete;
  GracePeriod& operator=(const GracePeriod&) = delete;

  bool running() const { return running_; }
  // Starts to wait; `ticket` is the caller's. Not while running().
  void Start(uint64_t ticket);
  // Readable once the wait has ended.
  int fd() const { return done_.get(); }
  // The ticket of a wait that has ended since the last call.
  std::optional<uint64_t> Ended();

 private:
  Descriptor done_;  // an eventfd(2)
  std::thread thread_;
  bool running_ = false;  // until its end was told
  uint64_t ticket_ = 0;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_GRACE_H_
