// What enforces the filter groups: the contract of every back end.
//
// A back end holds at most one group of each type. An update has two steps, so that both groups of
// a submission come into force together: Prepare() takes one group, checks it and does all that can
// fail without touching what is in force; Publish() then makes everything that is prepared valid
// in one switch. A frame is decided by both groups as they were before a Publish(), or by both as
// they are after it, on every port.
//
// What an earlier process left in the kernel is found when the back end is opened and stays in
// force, group by group, until the first Publish() that has that group. Filters outlive the
// process.
//
// A passing reason (another program was faster, the kernel is short of memory) does not refuse a
// group: the back end keeps it as pending and tries again in Poll() until it is in force, is
// refused for a lasting reason, or newer groups take its place.
//
// What the fields mean, for frames that carry none, one or two tags (a tag is what follows a TPID
// of 0x8100 or 0x88a8 behind the source MAC address):
//  - the TPID match compares the 16 bits behind the source MAC address, whatever they are;
//  - VLAN id and PCP are those of the outer tag; a frame without a tag has neither;
//  - IPv4 addresses, the ToS byte and the IP protocol are those of an IPv4 header that follows the
//    EtherType of a frame with at most one tag; behind two tags there is none;
//  - the destination port is TCP's or UDP's, over IPv4 or IPv6, in a first fragment of a packet
//    that fits into its frame: one that claims to be longer has none, nor has a header that ends,
//    with the frame, right behind the port.
// Within a group the first matching entry of the frame's port, by ascending priority, decides; an
// entry that denies drops the frame, whatever the other group says.
#ifndef HOST_FILTER_MGR_BACKEND_H_
#define HOST_FILTER_MGR_BACKEND_H_

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/filter_mgr/errors.h"
#include "host/filter_mgr/group_slot.h"
#include "host/filter_mgr/sent_group.h"
#include "host/runtime/events.h"
#include "host/runtime/hits.h"
#include "host/runtime/submissions.h"
#include "host/search_cost/search_cost.h"

namespace host {

// The hits of a group's entries, as they are read bit by bit. A reading goes on when the group
// changes; what cannot be read at the moment counts as it was last read.
class HitsReading {
 public:
  enum class Progress { kMore, kDone };

  virtual ~HitsReading() = default;
  // Goes on for some milliseconds at most.
  virtual Progress Next() = 0;

  std::vector<Hits> hits;  // once done: by entry id of the group that is in force by then
};

enum class PortState { kEnforced, kAbsent, kFailed };

class Backend {
 public:
  virtual ~Backend() = default;
  virtual const char* name() const = 0;
  // Ports for which an earlier process's filters were found in the kernel.
  virtual size_t Left() const { return 0; }

  // Prepares the group's whole content, in place of what was prepared of its type. After a failure,
  // which is logged, nothing of its type is prepared; the other group stays so.
  virtual FilterMgrError Prepare(const SentGroup& group) = 0;
  // Puts in force what is prepared, together with what is pending of the other type; after that
  // nothing is prepared. kPartial where ports fail that Ports() tells of. A refusal is logged, and
  // leaves what was pending before pending. The error is a FilterMgrError.
  virtual Standing Publish() = 0;
  // Drops what is prepared.
  virtual void Discard() = 0;

  // How the groups stand that were taken last. Changes in Publish() and Poll() only.
  virtual const Standing& standing() const = 0;
  // Descriptors that are readable when there is something for Poll() to take in.
  virtual std::vector<int> fds() const { return {}; }
  // Takes in what the kernel has announced, puts right what it concerns, and tries again what is
  // pending. False when something is left to be tried: Poll() should be called again after a while.
  virtual bool Poll() { return true; }
  // Whether Poll() has something to do that no descriptor tells of.
  virtual bool Pending() const { return false; }

  // Starts to read the hits of the group in force; the reading must end before the back end does.
  // Null where hits are not counted.
  virtual std::unique_ptr<HitsReading> ReadHits(GroupSlot slot) = 0;
  // What the group in force costs a frame, on the port where that is most. None where nothing is
  // enforced. Answers at once: the most is of now, the rest is of the last SampleCost() of each
  // port, and the most where there was none.
  virtual std::optional<SearchCost> CostOf(GroupSlot /*slot*/) { return std::nullopt; }
  // Finds out the rest for ports that have changed, from number `*next` on, in some two
  // milliseconds at most, and moves it on. False at the end, which is reached however often ports
  // change meanwhile.
  virtual bool SampleCost(GroupSlot /*slot*/, uint32_t* /*next*/) { return false; }
  // Does what can wait until after an answer, such as giving back the memory of what was replaced.
  virtual void Idle() {}
  // The ports that the groups in force name.
  virtual std::map<std::string, PortState> Ports() const = 0;

  // Has others told when somebody else has changed the filters. Not owned.
  void SetEvents(const Events* events) { events_ = events; }

 protected:
  void Tell(const FiltersTouched& touched) const {
    if (events_ != nullptr) events_->Publish(touched);
  }

 private:
  const Events* events_ = nullptr;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_BACKEND_H_
