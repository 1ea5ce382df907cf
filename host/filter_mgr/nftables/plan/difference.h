// The difference between the rules that a port should have and those that the kernel holds.
//
// The kernel rebuilds a touched chain whole, and finds a rule by walking its chain. So a port's
// rules for one group stand in chunks, chains of at most kMaxChunk rules, and the group's own
// chain holds nothing but jumps to them, in order. An update that touches one chunk costs the same
// for any number of rules. What all rules of a chunk end with is tested once, before the jump (its
// guard): each test in a rule costs the kernel much of the time that it takes to load the rule.
//
// Where evaluation must be able to leave the group from within a chunk (kernel/names.h), chunks are
// linked instead: the group's chain leads to the first, and each to the next. The kernel follows
// 15 chains at most, so there are at most kMaxLinked chunks, without guards, and of a large group
// they are larger.
//
// Invariants of a layout:
//  - the chunks, in order, hold the rules in order: each chunk is a range of them;
//  - a rule that is kept stays in its chunk, untouched, and its hit counter goes on. It is moved to
//    another chunk only where its chunk gets too large (as few as possible), or gets a rule that
//    does not pass the guard (all of them);
//  - a chunk is not empty.
//
// A rule that changes sides with others is moved, too. A moved rule is a new one with a counter
// that starts from what the old one had been read to have. Hits between the reading and the move
// are told by the kernel with the removal of the old rule, and added to what is shown as long as
// the process lives (HeldRule::carried).
//
// Everything here is pure: it looks at what the kernel holds, and says what to change.
#ifndef HOST_FILTER_MGR_NFTABLES_PLAN_DIFFERENCE_H_
#define HOST_FILTER_MGR_NFTABLES_PLAN_DIFFERENCE_H_

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/nftables/plan/rule.h"

namespace host {

constexpr size_t kMaxChunk = 256;
// How far chunks are filled at first: room for insertions before a split.
constexpr size_t kFillChunk = 192;
// Linked chunks: how many there are at most, and how many a group is laid out over when it is
// large.
constexpr size_t kMaxLinked = 12, kManyLinked = 8;

enum class ChunkOrder : uint8_t { kJumps, kLinks };

// A rule in the kernel.
struct HeldRule {
  RulePtr rule;
  uint64_t handle = 0;  // 0 while not known
  Hits hits;            // the kernel's counter, as it was last read
  Hits carried;         // hits that the kernel's counter of the rule does not have
};

// A chain in the kernel. Handles are read anew, with the counters, before each edit of the chain.
struct HeldChain {
  Guard guard;  // of the jump to it
  std::vector<HeldRule> rules;
  std::optional<HeldRule> link = {};  // its last rule, which leads to the next linked chunk
};

// What the kernel holds for one group on one port.
struct HeldGroup {
  HeldChain base;                        // what leads to the chunks
  std::vector<uint32_t> order;           // chunk numbers in the order of evaluation
  std::map<uint32_t, HeldChain> chunks;  // by number
  uint32_t next_chunk = 0;               // above every number in use
};

// Where the rules of a group are to stand: chunk `number` holds [begin, end) of them.
struct ChunkPlan {
  uint32_t number = 0;
  size_t begin = 0, end = 0;
  bool is_new = false;
  bool changed = false;  // holds other rules than now
  Guard guard;
  // For a changed chunk that is not new: for each of its rules the place among those that it holds
  // now, or -1.
  std::vector<int> places;
  // The chunk that it is linked to; and whether it has to be, or must not be any more.
  std::optional<uint32_t> next = {};
  bool relinked = false;
};

// Where a rule stands in what is held.
struct HeldPlace {
  uint32_t chunk = 0;
  size_t index = 0;
};

struct Layout {
  std::vector<ChunkPlan> chunks;
  std::map<size_t, HeldPlace> moved;  // rules, by index, that stand elsewhere now
  std::vector<uint32_t> removed;      // numbers of chunks that go
  uint32_t next_chunk = 0;
  bool order_changed = false;  // whether what leads to the chunks changes

  bool NothingToDo() const;
};

// Finds a common subsequence: for each element of `now`, none of which is foreign, the place in
// `before` of an element that is the same rule, or -1; the places ascend. It is the longest where
// rules do not repeat. Of rules that are the same, one is taken for itself before it is taken for
// another: the object tells which entry it is of, so that equal entries keep their hits apart.
// `crossing` (may be null) gets, likewise, the places of rules that are there but cannot stay, for
// others that stay have changed sides with them.
std::vector<int> MatchRules(const std::vector<const Rule*>& before,
                            const std::vector<const Rule*>& now,
                            std::vector<int>* crossing = nullptr);

// Where `rules` are to stand, given what is held. With `anew` no chunk stays: the rules that are
// kept move.
Layout PlanLayout(const HeldGroup& held, const std::vector<RulePtr>& rules, ChunkOrder order,
                  bool anew = false);
// The rules of the group's own chain.
std::vector<RulePtr> LeadingRules(const Layout& layout, ChunkOrder order);

// A rule to add.
struct RuleInsert {
  RulePtr rule;
  uint64_t before = 0;  // handle of the rule that it goes before; 0: the chain's end
  size_t index = 0;     // its place in the chain's new content
};

// What turns a chain's content into another. Inserts are made in order, after the rest.
struct ChainEdit {
  bool flush = false;             // remove all rules
  std::vector<uint64_t> deletes;  // handles of rules to remove
  std::vector<RuleInsert> inserts;

  bool empty() const { return !flush && deletes.empty() && inserts.empty(); }
};

// The edit from `held`, with its handles as of now, to `rules`, whose places in `held` are `places`
// (as MatchRules gives them). What is kept is not touched.
ChainEdit EditChain(const HeldChain& held, const std::vector<RulePtr>& rules,
                    const std::vector<int>& places);

}  // namespace host

#endif  // HOST_FILTER_MGR_NFTABLES_PLAN_DIFFERENCE_H_
