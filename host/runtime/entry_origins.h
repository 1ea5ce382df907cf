// What an entry of a filter group is, in the terms of those who configured it: the interface that
// it filters, the profile that is bound there, and the entry's priority in that profile.
//
// The groups that are submitted do not say so: their entries are numbered anew each time. But the
// order of the merge is fixed: interfaces by name, on each the profiles of the group's type by
// priority, their entries ascending. So the configuration tells where the n-th entry comes from. It
// is kept as one run per binding, which share the priorities of their profile: following a
// commit costs what it changes, and the bindings.
//
// Invariant: an origin is right or unknown, never wrong. Who attaches a GroupOrigins to a group
// compares the two first (host/filter_mgr/sent_group.h), and there are none from the moment on at
// which the group's maker and the configuration may have parted (EntryOriginSource).
#ifndef HOST_RUNTIME_ENTRY_ORIGINS_H_
#define HOST_RUNTIME_ENTRY_ORIGINS_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace host {

// The priorities of a profile's entries, ascending. Shared, and not changed while it is.
using AcePriorities = std::vector<uint16_t>;

// One entry's origin. The texts belong to the GroupOrigins that it is from.
struct EntryOrigin {
  const std::string* interface = nullptr;  // null: unknown
  const std::string* profile = nullptr;
  uint16_t ace_priority = 0;

  bool known() const { return interface != nullptr; }
};

// The origins of all entries of one group.
class GroupOrigins {
 public:
  // The entries that one binding gives, in the group's order.
  struct Run {
    std::string interface;
    std::string profile;
    std::shared_ptr<const AcePriorities> priorities;
    size_t first = 0;  // position of the first of them in the group

    size_t end() const { return first + priorities->size(); }
  };

  // Adds the entries of the next binding.
  void Append(std::string interface, std::string profile,
              std::shared_ptr<const AcePriorities> priorities);

  // Number of entries.
  size_t size() const { return runs_.empty() ? 0 : runs_.back().end(); }
  const std::vector<Run>& runs() const { return runs_; }
  // Where the entry at `position` of the group's order comes from; unknown beyond the last.
  EntryOrigin Of(size_t position) const;

 private:
  std::vector<Run> runs_;  // without empty ones
};

// Where the Filter Manager asks for the origins of a group that it is sent. The part of the process
// that has the configuration answers.
class EntryOriginSource {
 public:
  // Answers for the group of a type, "l2" or "l3", made from the configuration as it is now.
  using Answer = std::function<std::shared_ptr<const GroupOrigins>(const std::string& type)>;

  void Set(Answer answer) { answer_ = std::move(answer); }
  // The configuration no longer tells what is submitted, for the rest of the process's life: a part
  // of a commit was not taken.
  void Distrust() { trusted_ = false; }
  bool trusted() const { return trusted_; }
  // Null when nobody can tell.
  std::shared_ptr<const GroupOrigins> Of(const std::string& type) const {
    return trusted_ && answer_ ? answer_(type) : nullptr;
  }

 private:
  Answer answer_;
  bool trusted_ = true;
};

}  // namespace host

#endif  // HOST_RUNTIME_ENTRY_ORIGINS_H_
