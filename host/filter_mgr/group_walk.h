// Goes from group to group, for readers that show them in pieces between which the loop does other
// work: the hits of a group are read first, in steps of their own, and then the group is taken as
// it is at that moment.
#ifndef HOST_FILTER_MGR_GROUP_WALK_H_
#define HOST_FILTER_MGR_GROUP_WALK_H_

#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "host/filter_mgr/group_slot.h"
#include "host/filter_mgr/group_table.h"

namespace host {

class GroupWalk {
 public:
  // The table must outlive the object.
  explicit GroupWalk(const GroupTable& table) : table_(table) {
    for (const auto& [key, group] : table.groups()) keys_.push_back(key);
  }

  // Whether all groups were gone through.
  bool done() const { return next_ == keys_.size(); }
  // The group at work; none while its hits are read.
  const std::optional<SentGroup>& group() const { return group_; }
  // Its hits by entry id; none where they are not counted.
  const std::optional<std::vector<Hits>>& hits() const { return hits_; }

  // Takes a step towards the group whose turn it is: true when it is at work from now on. Not to be
  // called when done(), or with a group at work.
  bool Begin() {
    const auto it = table_.groups().find(keys_[next_]);
    if (it == table_.groups().end()) {
      ++next_;
      return false;
    }
    if (!reading_started_) {
      reading_ = table_.backend().ReadHits(SlotOf(it->second->getType()));
      reading_started_ = true;
    }
    hits_.reset();
    if (reading_ != nullptr) {
      if (reading_->Next() == HitsReading::Progress::kMore) return false;
      hits_ = std::move(reading_->hits);
    }
    reading_.reset();
    reading_started_ = false;
    group_ = it->second;
    return true;
  }

  // The group at work is gone through.
  void End() {
    group_.reset();
    ++next_;
  }

 private:
  const GroupTable& table_;
  std::vector<GroupTable::Key> keys_;
  size_t next_ = 0;
  std::unique_ptr<HitsReading> reading_;  // of the next one's hits, where they are counted
  bool reading_started_ = false;
  std::optional<std::vector<Hits>> hits_;
  std::optional<SentGroup> group_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_WALK_H_
