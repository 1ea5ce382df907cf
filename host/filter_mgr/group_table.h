// The filter groups of the Filter Manager: what clients send, and what of it is in force.
//
// Every group is checked first (known type and stage, capacity) and prepared by the back end. A
// submission brings the L2 group and then the L3 group, so the L3 group has both put in force in
// one switch, and its answer is that of both: when either cannot be put in force, neither is. A
// group that comes alone waits for Finish(), which is called before the process next waits.
//
// A group that the back end has taken and not yet put in force (Standing::kPending) is answered as
// taken: nobody has to send it again, nothing but newer content takes its place, and it will be
// what the capacity was reckoned with. groups() tells only what is in force.
#ifndef HOST_FILTER_MGR_GROUP_TABLE_H_
#define HOST_FILTER_MGR_GROUP_TABLE_H_

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/errors.h"
#include "host/filter_mgr/fill_level.h"
#include "host/filter_mgr/sent_group.h"

namespace host {

class GroupTable {
 public:
  using Key = std::pair<FiltersCommon::filtersGroupStage_t, unsigned short>;  // stage, id
  using Groups = std::map<Key, SentGroup>;

  // `backend` is not owned; `why` says, for people, why it is that one. `capacity` is the number of
  // entries that one group holds at most; the thresholds say when one is nearly full, of which
  // `events` (null: nobody; not owned) are told, and the next process by files in `directory`
  // (empty: it is not).
  GroupTable(Backend* backend, unsigned int capacity, std::string why = "", FillThreshold l2 = {},
             FillThreshold l3 = {}, const Events* events = nullptr,
             const std::string& directory = "")
      : backend_(backend),
        capacity_(capacity),
        why_(std::move(why)),
        levels_{FillLevel("l2", "L2", capacity, l2, events, directory),
                FillLevel("l3", "L3", capacity, l3, events, directory)} {}

  // Makes a group known, and puts its entries in force if it has any. FILTER_MGR_ERR_EXISTS when a
  // group of its id and stage is known.
  FilterMgrError Create(const SentGroup& group);
  // Lets the group have so many entries, whatever the capacity.
  void Accept(FiltersCommon::filtersGroupType_t type, size_t entries) { accepted_[type] = entries; }
  // Replaces the group of the same id and stage whole. A group that is not known, for instance as
  // its creation failed, is made known: the content is what counts. No value while the group waits
  // for the other one of its submission.
  std::optional<Standing> Update(const SentGroup& group);
  // Puts in force what waits; no value when nothing does.
  std::optional<Standing> Finish();

  // Puts nothing in force any more: what is sent is taken, and pending for `reason`.
  void Hold(const std::string& reason) { hold_ = reason; }
  // Ends that; how what was taken stands now, no value when nothing was.
  std::optional<Standing> Release();
  // Has the back end do what there is to do (Backend::Poll). `changed` gets how what was taken last
  // stands, when that has changed.
  bool Poll(std::optional<Standing>* changed);

  // The groups that are taken and not in force yet.
  const Groups& pending() const { return pending_; }
  // The groups in force.
  const Groups& groups() const { return groups_; }
  // Grows whenever other groups come into force.
  uint64_t generation() const { return generation_; }
  // Whether the groups in force are those that were sent last: none waits or was refused.
  bool current() const { return pending_.empty() && prepared_.empty() && !refused_; }
  // Whether what was sent last was refused, and nothing that was sent before filters in its place.
  bool refused_into_nothing() const;
  unsigned int capacity() const { return capacity_; }
  Backend& backend() const { return *backend_; }
  const std::string& why() const { return why_; }
  // How full the group in force is.
  const FillLevel& LevelOf(FiltersCommon::filtersGroupType_t type) const {
    return levels_.at(SlotOf(type));
  }
  bool NearlyFull(FiltersCommon::filtersGroupType_t type) const { return LevelOf(type).raised(); }

 private:
  // Whether the group can be held at all; logs why not.
  FilterMgrError Check(const FiltersCommon::FiltersGroup& group) const;
  // Drops what is prepared.
  Standing Refuse(FilterMgrError error);
  Standing Publish();
  // Notes what became of the prepared groups and the pending ones.
  void Note(const Standing& standing);

  Backend* backend_;
  unsigned int capacity_;
  const std::string why_;
  std::array<FillLevel, 2> levels_;  // by slot
  std::map<FiltersCommon::filtersGroupType_t, size_t> accepted_;
  Groups groups_, prepared_, pending_;
  uint64_t generation_ = 0;
  bool refused_ = false;  // what was sent last
  std::string hold_;      // why nothing is put in force; empty: no such reason
};

// "L2" or "L3", "?" for no valid type.
const char* GroupTypeName(FiltersCommon::filtersGroupType_t type);

}  // namespace host

#endif  // HOST_FILTER_MGR_GROUP_TABLE_H_
