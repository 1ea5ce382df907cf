// The hits of entries over the last minutes, of which come the busiest ones and their curves.
//
// Counters of all entries are remembered from one reading to the next, but curves only of the
// busiest: so what is kept is bounded, whatever the number of entries.
#ifndef TOOLS_METRICS_HISTORY_H_
#define TOOLS_METRICS_HISTORY_H_

#include <deque>
#include <map>
#include <utility>
#include <vector>

#include "tools/metrics/snapshot.h"

namespace metrics {

class History {
 public:
  static constexpr std::chrono::minutes kWindow{5};
  static constexpr size_t kCurves = 200;  // that are kept

  // Takes in a reading, made at `now`.
  void Add(const std::vector<EntryHits>& hits, Clock::time_point now);
  // At most `most` entries with the most packets in the window, the busiest first.
  std::vector<BusyEntry> Busiest(size_t most, Clock::time_point now) const;

 private:
  struct Point {
    Clock::time_point time;
    double seconds;  // since the reading before
    double packets, bytes;
  };
  struct Curve {
    EntryHits hits;
    std::deque<Point> points;

    double Packets() const;
  };
  struct Increase {
    const EntryHits* hits;
    double packets, bytes;
  };

  // What was counted since the last reading, by entries that counted something.
  std::vector<Increase> Increases(const std::vector<EntryHits>& hits) const;
  void DropIdle(Clock::time_point now);

  std::vector<EntryHits> last_;
  Clock::time_point last_time_;
  bool begun_ = false;
  std::map<EntryName, Curve> curves_;
};

}  // namespace metrics

#endif  // TOOLS_METRICS_HISTORY_H_
