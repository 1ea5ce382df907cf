// Chooses the bitmap filters over single fields that take whole tables out of a search. A pure
// function over a plan.
//
// A filter over a field tells, for a hash of the frame's value, which tables hold an entry with
// such a value; it costs one look. Tables with an entry that does not compare the whole field are
// exempt. The filters are taken, greedily, that leave the fewest tables to search over sample
// frames.
#ifndef HOST_CLASSIFIER_FIELD_FILTERS_H_
#define HOST_CLASSIFIER_FIELD_FILTERS_H_

#include <array>
#include <cstdint>
#include <vector>

#include "host/classifier/table_plan.h"

namespace host::classifier {

struct FieldFilter {
  uint8_t word = 0;
  uint8_t bits = 0;   // the filter has 1 << bits bitmaps
  uint64_t mask = 0;  // of the key's word
  cls_filter exempt{};
  std::vector<cls_filter> bitmaps;
};

// At most CLS_MAX_FILTERS filters for the tables of `plan`, whose numbers are their places in it.
std::vector<FieldFilter> ChooseFilters(const std::vector<cls_key>& masks,
                                       const std::vector<PlanRule>& rules,
                                       const std::vector<PlannedTable>& plan);

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_FIELD_FILTERS_H_
