// What a configuration has in it that does nothing, or not what it seems to: finding.h has the
// kinds. All is derived from what a match asks of a frame (frame_set.h); a finding is never wrong
// by that, and stands for every back end.
//
// An entry is covered when every frame that it matches is matched by entries before it: then it
// never decides, whatever it does. Before it are those that are searched before it: in the same
// group, on the same interface, those of profiles with lower priority values, and in its own
// profile those with lower ace-priorities. The L2 group and the L3 group are searched one by one
// and both have their say, so an entry of one never covers an entry of the other. What is covered
// within its own profile is so wherever the profile is bound, and is told once. Interfaces with the
// same profiles are looked at together.
//
// Effort, in time that grows as entries times distinct masks (mask_index.h):
//  - one earlier entry that covers is always found, unless the configuration takes more than
//    Limits::work; then Findings::complete says so;
//  - several that cover together are found where the bounds of union_cover.h allow, and where
//    Limits::union_work does for all entries together; beyond, nothing is said.
// The analysis is made in steps, so that it can be done beside other work.
#ifndef HOST_FINDINGS_ANALYSIS_H_
#define HOST_FINDINGS_ANALYSIS_H_

#include <cstdint>
#include <memory>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/findings/configuration.h"
#include "host/findings/finding.h"
#include "host/findings/mask_index.h"
#include "host/findings/union_cover.h"

namespace host::findings {

struct Limits {
  size_t list_per_kind = 1000;        // findings that are kept
  uint64_t work = uint64_t{1} << 30;  // units of some nanoseconds
  uint64_t union_work = uint64_t{1} << 26;
};

class Analysis {
 public:
  explicit Analysis(std::shared_ptr<const Configuration> configuration, const Limits& limits = {});

  // Does about `work` units, of some nanoseconds each. True when there is more to do.
  bool Step(uint64_t work);
  // What was found; whole when Step() has returned false.
  const Findings& result() const { return result_; }

 private:
  using Names = std::shared_ptr<const std::vector<std::string>>;

  // The profiles of one group in the order in which they are searched, and where.
  struct Chain {
    std::vector<const std::string*> profiles;
    Names interfaces;  // null: one profile, wherever it is bound
  };
  // The chains of both groups of some interfaces.
  struct Ports {
    std::vector<const std::string*> l2, l3;
    Names interfaces;
  };
  struct Placed {
    const std::string* profile;
    const Entry* entry;
  };
  // Where in a chain the next entry is, and those before it, by their numbers in the index.
  struct Cursor {
    size_t chain = 0, profile = 0, entry = 0;
    MaskIndex index;
    std::vector<Placed> before;
  };

  // Where the look at the next ports is: in one group, then in the other.
  struct PortsCursor {
    bool in_l2 = false;
    size_t profile = 0, entry = 0;
    bool denies = false, names_ports = false;  // what L3 entries do
    std::vector<Decider> l2;                   // those that may decide about plain IPv6
  };

  void FindChains();
  void LookAtInterfaces();
  void LookAtNextEntry(const Chain& chain, const Profile& profile);
  void LookAtEntryAlone(const Placed& placed, const FrameSet& set);
  // Whether entries before this one cover it; tells it.
  bool LookForCover(const Placed& placed, const FrameSet& set, const Names& interfaces);
  void TellCover(const Placed& placed, const std::vector<uint32_t>& cover, bool all_frames,
                 const Names& interfaces);
  // Goes on by an entry at most; true when there is no more to look at.
  bool LookAtPorts(const Ports& ports);
  bool LookAtL3Entry(const Entry& entry, const FrameSet& set);
  void TellIpv6Passes(const Ports& ports);
  void Tell(Finding finding);

  const std::shared_ptr<const Configuration> configuration_;
  const Limits limits_;
  std::vector<Chain> chains_;
  std::vector<Ports> ports_;
  size_t next_ports_ = 0;
  PortsCursor ports_at_;
  Cursor at_;
  std::unordered_set<const Entry*> idle_;  // those that decide nothing in their own profile
  uint64_t work_ = 0, union_work_ = 0;     // done so far
  Findings result_;
};

}  // namespace host::findings

#endif  // HOST_FINDINGS_ANALYSIS_H_
