// How full the filter groups are: see fill_level.h.
#include "host/filter_mgr/fill_level.h"

#include "host/runtime/log.h"

namespace host {

bool FillLevel::Reaches(size_t entries, unsigned int percent) const {
  return entries > 0 && entries * 100 >= size_t{capacity_} * percent;
}

void FillLevel::Note(size_t entries) {
  const bool above_low = entries * 100 > size_t{capacity_} * threshold_.low;
  const bool raised = Reaches(entries, threshold_.high) || (raised_ && above_low);
  if (raised == raised_) return;
  raised_ = raised;
  if (raised) {
    ++times_raised_;
    Log(LogLevel::kWarning, "the %s group is nearly full: %zu of %u entries, %u %% or more",
        name_.c_str(), entries, capacity_, threshold_.high);
  } else {
    Log(LogLevel::kInfo, "the %s group has room again: %zu of %u entries, %u %% or less",
        name_.c_str(), entries, capacity_, threshold_.low);
  }
  if (events_ == nullptr) return;
  events_->Publish(
      GroupFilled{type_, raised, entries, capacity_, raised ? threshold_.high : threshold_.low});
}

}  // namespace host
