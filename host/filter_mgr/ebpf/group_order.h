// The entries of a group in order, laid flat: what an update compares first.
//
// Of two groups that follow each other, most entries are the same at both ends. To find that out by
// their trees would take a walk over two of them, through all of memory; the flat rows of pointers
// are compared in some ten microseconds for tens of thousands of entries.
#ifndef HOST_FILTER_MGR_EBPF_GROUP_ORDER_H_
#define HOST_FILTER_MGR_EBPF_GROUP_ORDER_H_

#include <cstddef>
#include <list>
#include <vector>

#include "platform/filters_common/filters_group.h"

namespace host {

class GroupOrder {
 public:
  using PortList = std::list<limid_t>;

  // Entries that follow each other and share their list of ports, from `first` on. Null for none.
  struct Run {
    const PortList* ports;
    size_t first;
  };

  // What is here points into the group, or a copy of it that is as long in use and not changed.
  explicit GroupOrder(const FiltersCommon::FiltersGroup& group);

  size_t size() const { return entries_.size(); }
  const FiltersCommon::FiltersEntry& entry(size_t i) const { return *entries_[i]; }
  // In order; they cover all entries.
  const std::vector<Run>& runs() const { return runs_; }
  // Where the run ends, exclusively.
  size_t EndOf(size_t run) const { return run + 1 < runs_.size() ? runs_[run + 1].first : size(); }

  // How many entries the two have in common at their fronts: with the same content and ports.
  static size_t CommonFront(const GroupOrder& a, const GroupOrder& b);
  // The same at their backs, `most` at most.
  static size_t CommonBack(const GroupOrder& a, const GroupOrder& b, size_t most);

 private:
  void Add(const FiltersCommon::FiltersEntry& entry);

  std::vector<const FiltersCommon::FiltersEntry*> entries_;
  std::vector<const void*> identities_;  // of their content
  std::vector<Run> runs_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_GROUP_ORDER_H_
