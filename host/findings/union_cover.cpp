#include "host/findings/union_cover.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <set>
#include <utility>

namespace host::findings {
namespace {

// The bits that `mask` has beyond those of the cube.
int ExtraBits(const cls_key& mask, const Cube& cube) {
  int bits = 0;
  for (int i = 0; i < 4; ++i) bits += __builtin_popcountll(mask.word[i] & ~cube.mask.word[i]);
  return bits;
}

// The half of a cube in which the lowest bit that `set` compares, and the cube does not, is as in
// `set`, or is not.
Cube Half(Cube cube, const FrameSet& set, bool same) {
  int word = 0;
  while ((set.mask.word[word] & ~cube.mask.word[word]) == 0) ++word;
  const uint64_t extra = set.mask.word[word] & ~cube.mask.word[word], bit = extra & -extra;
  cube.mask.word[word] |= bit;
  cube.value.word[word] |= (same ? set.value.word[word] : ~set.value.word[word]) & bit;
  return cube;
}

class Splitter {
 public:
  explicit Splitter(const MaskIndex& index) : index_(index) {}

  // Whether the sets at `places` cover the cube.
  bool Covered(const Cube& cube, const std::vector<uint32_t>& places) {
    steps_ += places.size();
    if (steps_ > kMaxUnionSteps) return false;
    std::vector<uint32_t> meeting;
    const FrameSet* largest = nullptr;
    int fewest = std::numeric_limits<int>::max();
    double filled = 0;
    for (const uint32_t place : places) {
      const FrameSet& set = index_.SetAt(place);
      if (!Meet(set.value, set.mask, cube)) continue;
      const int bits = ExtraBits(set.mask, cube);
      if (bits == 0) {
        used_.insert(index_.EntryAt(place));
        return true;
      }
      filled += std::ldexp(1.0, -bits);
      meeting.push_back(place);
      if (bits < fewest) {
        fewest = bits;
        largest = &set;
      }
    }
    if (filled < 1) return false;
    return Covered(Half(cube, *largest, false), meeting) &&
           Covered(Half(cube, *largest, true), meeting);
  }

  uint64_t steps() const { return steps_; }
  const std::set<uint32_t>& used() const { return used_; }

 private:
  const MaskIndex& index_;
  uint64_t steps_ = 0;
  std::set<uint32_t> used_;
};

bool CoveredIn(size_t class_number, const MaskIndex& index, const FrameSet& set, Splitter* splitter,
               uint64_t* work) {
  const Cube cube = PartOf(set, class_number);
  std::vector<uint32_t> places;
  index.Meeting(cube, class_number, &places, work);
  return !places.empty() && splitter->Covered(cube, places);
}

class Walk {
 public:
  explicit Walk(std::vector<const Decider*> entries) : entries_(std::move(entries)) {}

  // Whether some frame of the cube passes the entries from `next` on.
  bool Passes(const Cube& cube, size_t next) {
    for (; next < entries_.size(); ++next) {
      if (++steps_ > kMaxWalkSteps) return false;
      const Decider& entry = *entries_[next];
      if (!Meet(entry.set.value, entry.set.mask, cube)) continue;
      if (ExtraBits(entry.set.mask, cube) == 0) return !entry.deny;
      // First the frames that the entry does not have: the most of them, where it is for few.
      return Passes(Half(cube, entry.set, false), next + 1) ||
             Passes(Half(cube, entry.set, true), next);
    }
    return true;
  }

 private:
  const std::vector<const Decider*> entries_;
  uint64_t steps_ = 0;
};

}  // namespace

UnionCover FindUnionCover(const MaskIndex& index, const FrameSet& set, uint64_t* work) {
  Splitter splitter(index);
  UnionCover cover{{}, true};
  for (const bool complete : {true, false}) {
    for (size_t i = 0; i < kClassCount; ++i) {
      if ((set.classes >> i & 1) == 0 || ClassOf(i).complete != complete) continue;
      if (CoveredIn(i, index, set, &splitter, work)) continue;
      *work += splitter.steps();
      if (complete) return {};
      cover.all_frames = false;
      break;
    }
    if (complete) cover.entries.assign(splitter.used().begin(), splitter.used().end());
  }
  *work += splitter.steps();
  return cover;
}

bool SomePasses(const std::vector<Decider>& entries, const Cube& cube, size_t class_number) {
  std::vector<const Decider*> meeting;
  for (const Decider& entry : entries) {
    if ((entry.set.classes >> class_number & 1) == 0) continue;
    if (Meet(entry.set.value, entry.set.mask, cube)) meeting.push_back(&entry);
  }
  return Walk(std::move(meeting)).Passes(cube, 0);
}

}  // namespace host::findings
