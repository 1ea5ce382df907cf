// Log lines that peers cause: see peer_log.h.
#include "host/netconf/peer/peer_log.h"

#include <algorithm>
#include <cinttypes>
#include <cstdarg>

namespace host {

uint64_t PeerLog::Allowance(Clock::time_point now) const {
  const auto passed = std::chrono::duration_cast<std::chrono::seconds>(now - counted_);
  return std::min(kBurst, allowance_ + static_cast<uint64_t>(passed.count()) * kPerSecond);
}

bool PeerLog::IsRested() const { return left_out_ == 0 && Allowance(Clock::now()) == kBurst; }

void PeerLog::Write(LogLevel level, const char* format, ...) {
  if (!LogEnabled(level)) return;
  if (limited_) {
    const Clock::time_point now = Clock::now();
    if (now - counted_ >= std::chrono::seconds(1)) {
      allowance_ = Allowance(now);
      counted_ = now;
    }
    if (allowance_ == 0) {
      ++left_out_;
      if (telling_ == nullptr) {
        telling_ = loop_.After(std::chrono::seconds(10), [this] { TellLeftOut(); });
      }
      return;
    }
    --allowance_;
  }
  va_list args;
  va_start(args, format);
  LogLine(level, VFormatted(format, args));
  va_end(args);
}

void PeerLog::TellLeftOut() {
  telling_.reset();
  if (left_out_ == 0) return;
  Log(LogLevel::kWarning, "netconf: %" PRIu64 " lines on sessions of uid %u were left out",
      left_out_, user_);
  left_out_ = 0;
}

}  // namespace host
