#include "host/filter_mgr/match/trace.h"

#include <utility>

namespace host {

FrameTrace TraceFrame(const std::vector<const SentGroup*>& groups, limid_t port, Frame frame,
                      size_t most_missed) {
  FrameTrace trace;
  trace.frame = std::move(frame);
  for (const SentGroup* group : groups) {
    GroupTrace step;
    step.slot = SlotOf((*group)->getType());
    step.group = group;
    step.fields = ParseFrame(trace.frame);
    step.decider = FindDecider(group->content(), port, step.fields, [&](const auto& entry) {
      if (step.missed_count++ < most_missed) step.missed.push_back(&entry);
    });
    const Effect effect = step.decider == nullptr ? Effect() : EffectOf(*step.decider);
    trace.groups.push_back(std::move(step));
    if (effect.pcp) trace.queue = effect.pcp;
    ApplyEffect(effect, &trace.frame);
    trace.dropped = effect.drop;
    if (trace.dropped) break;
  }
  return trace;
}

}  // namespace host
