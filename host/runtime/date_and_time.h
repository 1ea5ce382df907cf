// Moments, and how YANG's date-and-time writes them (RFC 3339), in UTC.
#ifndef HOST_RUNTIME_DATE_AND_TIME_H_
#define HOST_RUNTIME_DATE_AND_TIME_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>

namespace host {

// Microseconds since 1970.
inline int64_t NowMicroseconds() {
  const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count();
}

// `time_us` is in microseconds since 1970; `digits` (0 to 6) of the fraction of a second are kept.
inline std::string DateAndTime(int64_t time_us, int digits) {
  const time_t seconds = time_us / 1000000;
  tm broken_down{};
  gmtime_r(&seconds, &broken_down);
  std::array<char, 32> text{};
  strftime(text.data(), text.size(), "%Y-%m-%dT%H:%M:%S", &broken_down);
  const std::string fraction = std::to_string(1000000 + time_us % 1000000).substr(1, digits);
  return text.data() + (digits == 0 ? "" : "." + fraction) + "Z";
}

}  // namespace host

#endif  // HOST_RUNTIME_DATE_AND_TIME_H_
