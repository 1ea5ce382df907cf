// The change of one root (one group's entries on one port): what is in force, what is wanted, and
// the way from one to the other.
//
// The wanted entries are fed in order, and mostly are the ones in force: they are told by the
// identity of their content, at the price of one comparison each. Where the two part, wanted
// entries are put aside until some of them in a row are found in force in a row, or none are left;
// then what lies between is aligned: by identity first, so that of equal entries each goes on with
// its own hits, and by what the entries say where no identity tells, as after a restart or for an
// entry that has got another priority. As many as possible stay, in order. An entry that stays is
// not touched; one that changes its place is written anew, and goes on with its counter.
#ifndef HOST_FILTER_MGR_EBPF_ROOT_UPDATE_H_
#define HOST_FILTER_MGR_EBPF_ROOT_UPDATE_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/classifier/classifier.h"
#include "platform/filters_common/filters_entry.h"

namespace host {

// An entry in force. What is behind `identity` is kept alive by whoever keeps this.
struct HeldEntry {
  const void* identity;
  classifier::EntryId id;
  uint32_t counter;
};

// The identity of an entry that was found in force, and stands for no object of this process.
const void* UnknownIdentity();

// Gives out the slots in which entries count.
class CounterSlots {
 public:
  virtual ~CounterSlots() = default;
  // A slot that counts from zero; false, and why, when there is no room for one more.
  virtual bool Take(uint32_t* slot, classifier::Refusal* refusal) = 0;
  // Gives back a slot that no entry in force has, and none had since the last grace period.
  virtual void Release(uint32_t slot) = 0;
};

class RootUpdate {
 public:
  // `classifier` and `held` must outlive the update, and not change before Commit(). So must the
  // entries, until Finish().
  RootUpdate(classifier::Classifier* classifier, uint32_t root, const std::vector<HeldEntry>* held)
      : classifier_(classifier), root_(root), held_(held), end_(held->size()) {}

  // So many more entries at the front of those in force, and at their back, stay as they are and
  // are not fed. Before the first Next().
  void KeepEnds(size_t front, size_t back) {
    cursor_ += front;
    end_ -= back;
  }

  // The next wanted entry. False, and why in `reason`, when it cannot be enforced.
  bool Next(const FiltersCommon::FiltersEntry& entry, std::string* reason) {
    if (cursor_ < end_ && pending_.empty() && !aligning_ &&
        (*held_)[cursor_].identity == entry.contentIdentity()) {
      ++cursor_;
      return true;
    }
    return Part(entry, reason);
  }
  // No more entries come.
  void Finish();
  // Whether nothing is to be written.
  bool empty() const { return edits_.empty(); }
  // New entries.
  size_t added() const { return added_.size(); }
  // Writes the change, unpublished, with counters from `slots`. After a failure the root has to be
  // discarded; nothing is taken from `slots` then.
  bool Write(CounterSlots* slots, classifier::Refusal* refusal);
  // Undoes what Write() took from `slots`; the root's change itself has been discarded.
  void Undo(CounterSlots* slots);
  // Brings `held`, which is the vector given, up to what was written. The counters of entries that
  // are gone are added to `freed`.
  void Commit(std::vector<HeldEntry>* held, std::vector<uint32_t>* freed);

  uint32_t root() const { return root_; }

 private:
  struct Wanted {
    const void* identity;
    classifier::Rule rule;
    std::optional<size_t> from{};  // the place in force whose counter it goes on with
    classifier::EntryId id = classifier::kNoEntry;  // once written
  };
  // In place of `erased` entries from position `at` on come `count` ones from added_[first] on.
  struct Edit {
    size_t at, erased, first, count;
  };
  struct Renaming {
    size_t at;
    const void* identity;
  };

  bool Part(const FiltersCommon::FiltersEntry& entry, std::string* reason);
  // Where in force, not far from the cursor, there is an entry like this; end_ if nowhere.
  size_t FindNear(const Wanted& wanted) const;
  // The wanted entry is the one at `at`, and what is pending stands before it.
  void Meet(size_t at, const void* identity);
  // Finds the places in force between the cursor and `end` of the pending entries; each is found
  // once.
  std::vector<size_t> FindPlaces(size_t end) const;
  // Finds out which of the pending entries stay where they are in force, and goes on from `end`.
  void Align(size_t end);
  bool WriteEdits(classifier::Refusal* refusal);
  bool WriteWhole(classifier::Refusal* refusal);
  // Calls `keep` for the entries that stay, and `add` for the new ones, in their order.
  void ForEach(const std::function<void(size_t)>& keep, const std::function<void(Wanted*)>& add);

  classifier::Classifier* classifier_;
  uint32_t root_;
  const std::vector<HeldEntry>* held_;
  size_t cursor_ = 0, end_;      // the part of `held_` that is compared
  bool aligning_ = false;        // all that follows is pending
  size_t last_ = 0, row_ = 0;    // where the last pending entry is in force, and how many in a row
  std::vector<Wanted> pending_;  // since the two have parted
  std::vector<Wanted> added_;
  std::vector<Edit> edits_;
  std::vector<Renaming> renamed_;
  std::vector<classifier::EntryId> ids_;  // of all, once written as a whole
  size_t counters_given_ = 0;             // to added_, from the first on
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_ROOT_UPDATE_H_
