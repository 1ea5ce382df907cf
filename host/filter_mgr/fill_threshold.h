// Where a filter group counts as nearly full: see fill_level.h.
#ifndef HOST_FILTER_MGR_FILL_THRESHOLD_H_
#define HOST_FILTER_MGR_FILL_THRESHOLD_H_

namespace host {

// In percent of what the group holds at most.
struct FillThreshold {
  unsigned int high = 80;  // nearly full from here on
  unsigned int low = 70;   // no longer so from here down
};

}  // namespace host

#endif  // HOST_FILTER_MGR_FILL_THRESHOLD_H_
