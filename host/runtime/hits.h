// What entries of the filter groups have decided, told by where they come from (entry_origins.h).
//
// Invariant: counters are right or missing. A counter belongs to the entry of the configuration
// that has its origin only while the groups in force are made from the configuration as it is; so
// a reading tells them for one moment, which is when it says that it is done.
#ifndef HOST_RUNTIME_HITS_H_
#define HOST_RUNTIME_HITS_H_

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace host {

// Frames that an entry decided.
struct Hits {
  uint64_t packets = 0;
  uint64_t bytes = 0;  // link layer header aside

  Hits operator+(const Hits& other) const { return {packets + other.packets, bytes + other.bytes}; }
  // Those since `earlier`; none if the counter was reset in between.
  Hits Since(const Hits& earlier) const {
    if (packets < earlier.packets || bytes < earlier.bytes) return {};
    return {packets - earlier.packets, bytes - earlier.bytes};
  }
};

struct EntryHits {
  uint16_t ace_priority = 0;
  Hits hits;
};
// Of the entries that each binding of a profile gives: by interface and profile.
using HitsByOrigin = std::map<std::pair<std::string, std::string>, std::vector<EntryHits>>;

class OriginHitsReading {
 public:
  virtual ~OriginHitsReading() = default;
  // Goes on for some milliseconds at most. True when done: `*hits` then has the counters of the
  // entries of running as it is now; none that are not counted or cannot be told for sure.
  virtual bool Next(HitsByOrigin* hits) = 0;
};

}  // namespace host

#endif  // HOST_RUNTIME_HITS_H_
