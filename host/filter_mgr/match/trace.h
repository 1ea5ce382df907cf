// What becomes of one frame, step by step.
#ifndef HOST_FILTER_MGR_MATCH_TRACE_H_
#define HOST_FILTER_MGR_MATCH_TRACE_H_

#include <cstddef>
#include <optional>
#include <vector>

#include "host/filter_mgr/group_slot.h"
#include "host/filter_mgr/match/entry_match.h"
#include "host/filter_mgr/match/frame_fields.h"
#include "host/filter_mgr/sent_group.h"

namespace host {

// One group's part. The entries belong to the group.
struct GroupTrace {
  GroupSlot slot = kL2;
  const SentGroup* group = nullptr;
  const FiltersCommon::FiltersEntry* decider = nullptr;  // null: no entry matches
  size_t missed_count = 0;  // entries for the port that come first and do not match
  std::vector<const FiltersCommon::FiltersEntry*> missed;  // as many of them as were asked for
  FrameFields fields;  // of the frame as it reaches the group: the one before may have set the PCP
};

struct FrameTrace {
  std::vector<GroupTrace> groups;  // those that the frame reaches: none follows one that drops
  bool dropped = false;
  std::optional<uint8_t> queue;  // the priority that the packet is given
  Frame frame;                   // as it leaves the last group
};

// Puts `frame`, which has kShortestFrame bytes at least, to the groups in their order. Up to
// `most_missed` entries a group are noted as missed. The result points into `groups`.
FrameTrace TraceFrame(const std::vector<const SentGroup*>& groups, limid_t port, Frame frame,
                      size_t most_missed = 0);

}  // namespace host

#endif  // HOST_FILTER_MGR_MATCH_TRACE_H_
