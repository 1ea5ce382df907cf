// What the groups should do to a frame, as a trace tells it.
#ifndef TESTS_PACKETS_REFERENCE_H_
#define TESTS_PACKETS_REFERENCE_H_

#include <optional>
#include <vector>

#include "host/filter_mgr/match/trace.h"

namespace host {

// The frame as it leaves the groups, in this order; no value when it is dropped.
inline std::optional<Frame> ReferenceFilter(
    const std::vector<const FiltersCommon::FiltersGroup*>& groups, limid_t port,
    const Frame& frame) {
  std::vector<SentGroup> sent;
  for (const auto* group : groups) sent.emplace_back(*group);
  std::vector<const SentGroup*> pointers;
  for (const SentGroup& group : sent) pointers.push_back(&group);
  FrameTrace trace = TraceFrame(pointers, port, frame);
  if (trace.dropped) return std::nullopt;
  return std::move(trace.frame);
}

}  // namespace host

#endif  // TESTS_PACKETS_REFERENCE_H_
