// What a back end has in force in the kernel while this process does not use it.
#ifndef HOST_FILTER_MGR_LEFT_FILTERS_H_
#define HOST_FILTER_MGR_LEFT_FILTERS_H_

#include <cstddef>
#include <string>

namespace host {

struct LeftFilters {
  size_t ports = 0;          // that are filtered
  std::string out_of_reach;  // why this process cannot remove it, for people; empty: it can
};

}  // namespace host

#endif  // HOST_FILTER_MGR_LEFT_FILTERS_H_
