// Everything that the groups of tables are made of, and what waits until no search needs it.
#ifndef HOST_CLASSIFIER_ARENA_H_
#define HOST_CLASSIFIER_ARENA_H_

#include <cstdint>
#include <deque>
#include <memory>

#include "host/classifier/entry_store.h"
#include "host/classifier/pool.h"

namespace host::classifier {

class TableGroup;

// What nothing leads to any more, or will not soon, and what becomes of it when the searches that
// may still use it are over. Oldest first.
struct Retired {
  enum Kind : uint8_t {
    kDeadEntry,      // dies in the generation in force, is still linked: unlink
    kUnlinkedEntry,  // free
    kSlots,          // free
    kSieve,          // free
    kGroup,          // free with all it holds
  };
  uint64_t ticket;
  Kind kind;
  uint32_t log2 = 0;                  // of the number of lines or elements, of kSlots and kSieve
  uint32_t index = 0;                 // of the entry; the first line or element
  uint32_t root = 0;                  // of kGroup
  std::shared_ptr<TableGroup> group;  // of kDeadEntry and kGroup
};

struct Arena {
  explicit Arena(Memory* from)
      : memory(from),
        entries(from),
        groups(from, CLS_GROUPS, CLS_GROUPS, 1, 1U << CLS_GROUP_BITS),
        tables(from, CLS_TABLES, CLS_TABLES, 0, UINT32_MAX),
        filters(from, CLS_FILTERS, CLS_FILTERS, 0, 1U << CLS_SIEVE_BITS),
        slots(from, CLS_SLOTS, CLS_SLOTS, 0, UINT32_MAX / CLS_SLOTS_PER_LINE) {}

  void Retire(Retired what) {
    what.ticket = ticket;
    retired.push_back(std::move(what));
  }

  Memory* memory;
  EntryStore entries;
  Pool groups;
  Pool tables;
  Pool filters;
  Pool slots;
  uint64_t ticket = 1;  // of what is retired now
  std::deque<Retired> retired;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_ARENA_H_
