// How full the filter groups are, so that somebody hears of it before a commit is refused.
//
// A group's alarm is raised when its entries take `high` percent of the capacity, and cleared when
// they take no more than `low`: between the two it stays as it is, so that a group at the edge does
// not raise and clear it with every commit. Both are logged and told to others, once.
//
// As long as it is raised there is a file, empty, for the next process: a restart neither raises
// the alarm again nor forgets one whose group is between the two.
#ifndef HOST_FILTER_MGR_FILL_LEVEL_H_
#define HOST_FILTER_MGR_FILL_LEVEL_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>

#include "host/filter_mgr/fill_threshold.h"
#include "host/runtime/events.h"

namespace host {

class FillLevel {
 public:
  // Of the group `type`, "l2" or "l3", that the log calls `name`, of `capacity` entries at most.
  // `events` (null: none) must outlive the object. The file is in `directory`; empty: there is
  // none.
  FillLevel(std::string type, std::string name, unsigned int capacity, FillThreshold threshold,
            const Events* events, const std::string& directory);

  // The group has so many entries in force from now on.
  void Note(size_t entries);
  bool raised() const { return raised_; }
  // How often it was raised.
  uint64_t times_raised() const { return times_raised_; }
  const FillThreshold& threshold() const { return threshold_; }

 private:
  // Whether `entries` are at least that share of the capacity.
  bool Reaches(size_t entries, unsigned int percent) const;
  // Makes or removes the file.
  void Remember() const;

  const std::string type_, name_;
  const unsigned int capacity_;
  const FillThreshold threshold_;
  const Events* const events_;
  const std::string file_;
  bool raised_ = false;
  uint64_t times_raised_ = 0;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_FILL_LEVEL_H_
