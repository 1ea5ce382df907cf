// Moments as seconds since 1970.
#ifndef TOOLS_METRICS_MOMENT_H_
#define TOOLS_METRICS_MOMENT_H_

#include <chrono>
#include <cstdio>
#include <ctime>
#include <string>

namespace metrics {

inline double UnixSeconds(std::chrono::system_clock::time_point moment) {
  return std::chrono::duration<double>(moment.time_since_epoch()).count();
}

// Of a moment as YANG's date-and-time writes it, in UTC; 0 where it is none.
inline double UnixSeconds(const std::string& date_and_time) {
  tm broken_down{};
  const char* rest = strptime(date_and_time.c_str(), "%Y-%m-%dT%H:%M:%S", &broken_down);
  if (rest == nullptr) return 0;
  double fraction = 0;
  std::sscanf(rest, "%lf", &fraction);
  return static_cast<double>(timegm(&broken_down)) + fraction;
}

}  // namespace metrics

#endif  // TOOLS_METRICS_MOMENT_H_
