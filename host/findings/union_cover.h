// Whether several earlier entries together cover one, and which.
//
// Covering is decided in each class by itself (frame_set.h), by splitting: a cube that an entry
// contains is covered; one that the entries that meet it cannot fill, by their volumes, is not; any
// other is halved by a bit that one of them compares. A pair of prefixes that make up a larger one,
// both values of a bit, TCP and UDP where there is a port: that takes a few halvings. In general
// the problem is co-NP-complete, so there are bounds, on the entries that are looked at (MaskIndex)
// and on the steps. Beyond them there is no answer, and so no finding; an answer is never wrong.
#ifndef HOST_FINDINGS_UNION_COVER_H_
#define HOST_FINDINGS_UNION_COVER_H_

#include <cstdint>
#include <vector>

#include "host/findings/mask_index.h"

namespace host::findings {

struct UnionCover {
  std::vector<uint32_t> entries;  // ascending; empty: not covered, or not known to be
  bool all_frames = false;        // those whose headers are cut off as well
};

// The entries of `index` that together cover `set` over complete frames. Takes at most
// kMaxUnionSteps entries looked at, beyond those that are found.
constexpr uint64_t kMaxUnionSteps = 20000;
UnionCover FindUnionCover(const MaskIndex& index, const FrameSet& set, uint64_t* work);

// An entry as it stands in its group: what it takes, and whether it drops that.
struct Decider {
  FrameSet set;
  bool deny = false;
};
// Whether some frame of `cube` in class `class_number` certainly passes the entries, of which the
// first that has it decides. False also when none is found within kMaxWalkSteps entries looked at.
constexpr uint64_t kMaxWalkSteps = 1 << 20;
bool SomePasses(const std::vector<Decider>& entries, const Cube& cube, size_t class_number);

}  // namespace host::findings

#endif  // HOST_FINDINGS_UNION_COVER_H_
