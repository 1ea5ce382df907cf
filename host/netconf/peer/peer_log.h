// Log lines that the peers of one user cause.
//
// The log names whoever may write with everything that he does. A user who may only read could fill
// the disk with such lines, or use up what the journal takes of one service (journald.conf(5),
// RateLimitBurst=), so that the lines of others are lost. So there is an allowance for each of
// them; the lines beyond it are counted, and a line says how many they were.
#ifndef HOST_NETCONF_PEER_PEER_LOG_H_
#define HOST_NETCONF_PEER_PEER_LOG_H_

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <memory>

#include "host/runtime/event_loop.h"
#include "host/runtime/log.h"

namespace host {

class PeerLog {
 public:
  // So many lines at once, and then so many a second.
  static constexpr uint64_t kBurst = 500;
  static constexpr uint64_t kPerSecond = 10;

  // `limited` is for a user who may only read. `loop` must outlive the object.
  PeerLog(EventLoop& loop, uid_t user, bool limited)
      : loop_(loop), user_(user), limited_(limited) {}
  PeerLog(const PeerLog&) = delete;
  PeerLog& operator=(const PeerLog&) = delete;
  ~PeerLog() { TellLeftOut(); }

  // Writes one line, or counts it. See Log() in log.h.
  void Write(LogLevel level, const char* format, ...) __attribute__((format(printf, 3, 4)));
  // Whether the whole allowance is there, so that nothing is lost with the object.
  bool IsRested() const;

 private:
  using Clock = std::chrono::steady_clock;

  uint64_t Allowance(Clock::time_point now) const;
  void TellLeftOut();

  EventLoop& loop_;
  const uid_t user_;
  const bool limited_;
  uint64_t allowance_ = kBurst;  // at counted_
  Clock::time_point counted_ = Clock::now();
  uint64_t left_out_ = 0;
  std::unique_ptr<Watch> telling_;
};

}  // namespace host

#endif  // HOST_NETCONF_PEER_PEER_LOG_H_
