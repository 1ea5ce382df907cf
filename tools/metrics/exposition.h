// What is known of the daemon in Prometheus' text format, version 0.0.4.
#ifndef TOOLS_METRICS_EXPOSITION_H_
#define TOOLS_METRICS_EXPOSITION_H_

#include <cstdint>
#include <string>

#include "tools/metrics/snapshot.h"

namespace metrics {

constexpr char kExpositionType[] = "text/plain; version=0.0.4; charset=utf-8";

// While the daemon is away there is only what tells so. Hits are told for each entry where the
// groups have `most_hits` entries at most.
std::string Exposition(const Snapshot& snapshot, uint64_t most_hits);

}  // namespace metrics

#endif  // TOOLS_METRICS_EXPOSITION_H_
