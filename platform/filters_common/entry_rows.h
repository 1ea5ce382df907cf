// Entries in the order of their evaluation, laid flat: what a group is compared by.
//
// Of two groups that follow each other, most entries are the same at both ends. To find that out by
// their trees would take a walk over two of them, through all of memory; flat rows are compared in
// some ten microseconds for tens of thousands of entries. And while a group is built, what its rows
// need of an entry is at hand.
#ifndef PLATFORM_FILTERS_COMMON_ENTRY_ROWS_H_
#define PLATFORM_FILTERS_COMMON_ENTRY_ROWS_H_

#include <cstddef>
#include <list>
#include <vector>

#include "platform/filters_common/filters_entry.h"

namespace FiltersCommon {

class EntryRows {
 public:
  using PortList = std::list<limid_t>;

  // Entries that follow each other and share their list of ports, from `first` on. Null for none.
  struct Run {
    const PortList* ports;
    size_t first;
  };

  // Adds the entry behind the others; it must outlive its row, unchanged.
  void Add(const FiltersEntry& entry);

  size_t size() const { return entries_.size(); }
  const FiltersEntry& entry(size_t i) const { return *entries_[i]; }
  // Null where there are none.
  const FiltersEntry* last() const { return entries_.empty() ? nullptr : entries_.back(); }
  // In order; they cover all entries.
  const std::vector<Run>& runs() const { return runs_; }
  // Where the run ends, exclusively.
  size_t EndOf(size_t run) const { return run + 1 < runs_.size() ? runs_[run + 1].first : size(); }

  // Ends what the entries from `first` on hold, without touching them: their memory may go, and
  // they are not destroyed.
  void ReleaseFrom(size_t first);

  // How many entries the two have in common at their fronts: with the same content and ports.
  static size_t CommonFront(const EntryRows& a, const EntryRows& b);
  // The same at their backs, `most` at most.
  static size_t CommonBack(const EntryRows& a, const EntryRows& b, size_t most);

 private:
  std::vector<const FiltersEntry*> entries_;
  std::vector<const void*> identities_;  // of their content
  std::vector<Run> runs_;
};

}  // namespace FiltersCommon

#endif  // PLATFORM_FILTERS_COMMON_ENTRY_ROWS_H_
