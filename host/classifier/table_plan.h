// Chooses the masks of the tables for a set of rules, and the table of each rule. A pure function.
//
// One table after the other, greedily: of the masks that are coarser than or equal to frequent
// masks of the rules left, the one is taken that covers the most of them without crowding its
// buckets, estimated over a sample. A bucket takes so many rules; the ones with more exact masks of
// those that find it full wait for a later table. So some ten tables hold rules of hundreds of
// masks.
#ifndef HOST_CLASSIFIER_TABLE_PLAN_H_
#define HOST_CLASSIFIER_TABLE_PLAN_H_

#include <cstdint>
#include <vector>

#include "host/classifier/rule.h"

namespace host::classifier {

// A rule as far as the plan goes: no two have the same value and mask.
struct PlanRule {
  const cls_key* value;
  uint32_t mask;  // index into the masks
};

struct PlanLimits {
  uint32_t tables;
  uint32_t chain;  // rules in one bucket
};

struct PlannedTable {
  cls_key mask;
  std::vector<uint32_t> rules;  // indexes, ascending
};

// The tables for `rules`, those with the fewest first. `left_over` gets the number of rules that
// are in no table where the limits, or the hope to hold them all, end; the plan is of use only when
// that is 0.
std::vector<PlannedTable> PlanTables(const std::vector<cls_key>& masks,
                                     const std::vector<PlanRule>& rules, const PlanLimits& limits,
                                     size_t* left_over);

// What a table's mask keeps of a rule's: not the bits that say what the frame has, since a rule
// that asks for them asks for a field that tells as much.
inline cls_key TableMask(const cls_key& mask) {
  return {{mask.word[0], mask.word[1], mask.word[2], mask.word[3] & 0xffffffffU}};
}

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_TABLE_PLAN_H_
