// Whether entries match a frame, and which entry of a group decides about it.
#ifndef HOST_FILTER_MGR_MATCH_ENTRY_MATCH_H_
#define HOST_FILTER_MGR_MATCH_ENTRY_MATCH_H_

#include <cstddef>
#include <functional>
#include <optional>
#include <vector>

#include "host/filter_mgr/match/frame_fields.h"
#include "platform/filters_common/filters_group.h"

namespace host {

// Whether the match holds for the frame. Not for ingress ports: the frame does not tell.
bool MatchHolds(const FiltersCommon::Match& match, const FrameFields& fields);

// Whether all of the entry's matches, ports aside, hold.
bool EntryMatches(const FiltersCommon::FiltersEntry& entry, const FrameFields& fields);

// The first entry by priority that is for `port` and matches; null for none. `before` (may be null)
// is called for each that is for the port and does not match, in order.
const FiltersCommon::FiltersEntry* FindDecider(
    const FiltersCommon::FiltersGroup& group, limid_t port, const FrameFields& fields,
    const std::function<void(const FiltersCommon::FiltersEntry&)>& before = nullptr);

// What an entry does to the frame that it decides about.
struct Effect {
  bool drop = false;
  std::optional<uint8_t> pcp;  // set in the outer tag, where there is one, and for the queue
};
Effect EffectOf(const FiltersCommon::FiltersEntry& entry);
// Writes the PCP into the outer tag of a tagged frame.
void ApplyEffect(const Effect& effect, Frame* frame);

}  // namespace host

#endif  // HOST_FILTER_MGR_MATCH_ENTRY_MATCH_H_
