// How full the filter groups are: see fill_level.h.
#include "host/filter_mgr/fill_level.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "host/runtime/log.h"

namespace host {

FillLevel::FillLevel(std::string type, std::string name, unsigned int capacity,
                     FillThreshold threshold, const Events* events, const std::string& directory)
    : type_(std::move(type)),
      name_(std::move(name)),
      capacity_(capacity),
      threshold_(threshold),
      events_(events),
      file_(directory.empty() ? "" : directory + "/nearly-full-" + type_),
      raised_(!file_.empty() && access(file_.c_str(), F_OK) == 0) {}

bool FillLevel::Reaches(size_t entries, unsigned int percent) const {
  return entries > 0 && entries * 100 >= size_t{capacity_} * percent;
}

void FillLevel::Remember() const {
  if (file_.empty()) return;
  if (!raised_) {
    if (unlink(file_.c_str()) == 0 || errno == ENOENT) return;
  } else {
    const int fd = open(file_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0) {
      close(fd);
      return;
    }
  }
  Log(LogLevel::kWarning, "the next start will not know how full the %s group was: %s: %s",
      name_.c_str(), file_.c_str(), std::strerror(errno));
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
  if (events_ != nullptr) {
    events_->Publish(
        GroupFilled{type_, raised, entries, capacity_, raised ? threshold_.high : threshold_.low});
  }
  Remember();  // last: what was not told yet had better be told twice than never
}

}  // namespace host
