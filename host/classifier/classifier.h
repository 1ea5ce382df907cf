// Finds the first of tens of thousands of rules that matches a frame, at a cost that hardly depends
// on their number, and changes single rules in microseconds while searches run.
//
// WHAT. Rules compare the bits of a frame key under a mask (rule.h); rules of one root (a filter
// type on one port) are ordered, and the first that matches decides. The classifier writes them to
// arrays (layout.h) which a BPF program, or this process, searches (search.h) without a lock.
//
// HOW.
//  - Tables. Rules of one mask could stand in one hash table, but configurations have hundreds of
//    masks, and a search must look into all tables. So a table's mask is coarser than its rules'
//    masks (TupleMerge: Daly et al., IEEE/ACM ToN 2019), at the price of several rules in one
//    bucket. table_plan.h chooses the masks; a bucket holds kMaxChain rules at most. Bitmaps over
//    single fields (field_filters.h) take out the tables that hold no rule with the frame's value.
//  - Sieves. Slots, heads and entries of tens of thousands of rules do not fit into a processor's
//    own caches, and a look at them is a wait for memory. So each line of slots has a word beside
//    it which tells of most buckets that they are not there, and the best label of those that are
//    (layout.h). Most tables are left out by that word, as it can hold no better rule than the one
//    found. Tables of few rules are searched first: they are the ones of wide masks, whose rules
//    many frames match, and what is found early leaves out the more.
//  - Order. An entry has a label, lower ones decide. Labels have gaps, so that an insertion touches
//    no other entry; where a gap is used up, some neighbours get new labels (entry_order.h), which
//    is an ordinary replacement of these entries.
//  - Equal matches. Of entries with the same value and mask only the first can ever decide, so it
//    alone stands in the tables. When it goes, the next takes its place.
//  - Generations. An entry is in force from the generation in which it is born until before the one
//    in which it dies; a group of tables is, from its birth until another takes its place. A frame
//    reads the generation once. So changes of any number of roots can be written into the arrays
//    that are in use, are invisible, and all become valid with one store of the generation.
//  - Reclaiming. What died may still be wanted by searches that began before. It is unlinked one
//    grace period after its death is published, and its memory is used again one grace period after
//    that. The caller says when a period is over; a BPF program's ends with membarrier(2).
//
// INVARIANTS, at every single store to the arrays:
//  1. A search in the generation in force, or in an earlier one that is not reclaimed, finds just
//     what was in force in it.
//  2. A process that finds the arrays, left by another one that died between any two stores, finds
//     by the generation alone what was in force (Adopt).
//  3. An entry is reachable through one table only. Its bucket is found within CLS_MAX_PROBES
//     slots. Chains ascend in labels.
//  4. What is reachable is complete: a chain's head, entry and mask are written before they are
//     linked, a table before its bit is set in the group, a group before a root names it.
//
// MEMORY ORDER. Links (slots, next, place, choice) are stored with release order; a search gets to
// what is behind them by their value, which orders its loads on all machines that run Linux. Words
// that only matter to entries not yet in force (bits of filters, bits of tables, a table's best
// label, sieves, flags) are stored before the generation, which is stored with release order and
// read with acquire order. Words change in one store each, of at most 8 bytes; on 32-bit machines,
// where such a store is two, no search may run while the classifier writes.
//
// Changes are made per root, unpublished, and can be dropped per root (Discard) until Publish(). A
// refused change spoils the root's others: nothing can follow but its Discard(), which Publish()
// does by itself.
// Nothing here blocks, except as Memory::WaitForReaders() says.
#ifndef HOST_CLASSIFIER_CLASSIFIER_H_
#define HOST_CLASSIFIER_CLASSIFIER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/classifier/memory.h"
#include "host/classifier/refusal.h"
#include "host/classifier/rule.h"

namespace host::classifier {

// Names an entry for the life of this process, from Insert() until its removal is published.
using EntryId = uint32_t;
constexpr EntryId kNoEntry = 0;

// What a search pays, over sample frames of a configuration. Tables at worst are no sample: no
// frame is looked up in more than there are.
struct Cost {
  double mean_tables = 0;   // hash tables looked into
  double mean_probes = 0;   // slots read
  double mean_entries = 0;  // entries compared, by their heads
  uint32_t worst_tables = 0;
  uint32_t worst_probes = 0;
  uint32_t worst_entries = 0;
};

// What a root holds.
struct Usage {
  uint32_t entries = 0;   // in force after the next Publish()
  uint32_t shadowed = 0;  // of them, behind one with the same match: they take no room
  uint32_t tables = 0;
};

class Classifier {
 public:
  static constexpr uint32_t kMaxChain = 16;

  // `memory` is not owned. Call Format() or Adopt() first.
  explicit Classifier(Memory* memory);
  ~Classifier();
  Classifier(const Classifier&) = delete;
  Classifier& operator=(const Classifier&) = delete;

  // Starts with empty arrays, which must be zero. False when the memory cannot hold even that.
  bool Format();
  // Takes over what the arrays hold: everything in force in their generation; what was not yet
  // published is dropped. Checks all of it first. False, with what is wrong, when the arrays are
  // damaged or of another layout; nothing is written then. Searches that ran beside the process
  // that left the arrays must be over.
  bool Adopt(std::string* problem);

  // Roots are numbered by the caller, from 0, without gaps worth mentioning: each takes 16 bytes.
  // A root without entries matches nothing.

  // Replaces all entries of `root`; `ids`, which may be null, gets `count` ids. Builds new tables
  // beside the old ones, so it is for the first load and for large changes; it costs about 0.5 us a
  // rule.
  bool Replace(uint32_t root, const Rule* rules, size_t count, EntryId* ids, Refusal* refusal);
  // Inserts behind `after`, an entry of `root`, or in front of all (kNoEntry). kNoEntry when
  // refused.
  EntryId Insert(uint32_t root, EntryId after, const Rule& rule, Refusal* refusal);
  // Removes an entry; an equal one behind it takes its place, which may be refused.
  bool Remove(EntryId id, Refusal* refusal);

  // The entries of `root` in order, as they will be after the next Publish(): the first, and the
  // one behind an entry; kNoEntry at the end.
  EntryId First(uint32_t root) const;
  EntryId Next(EntryId id) const;
  Rule RuleOf(EntryId id) const;
  // Roots that hold entries or have unpublished changes are below this.
  uint32_t root_count() const;

  // Whether anything is to be published.
  bool changed() const;
  // Puts all changes of all roots in force, with one store.
  void Publish();
  // Takes back the unpublished changes of a root, or of all.
  void Discard(uint32_t root);
  void DiscardAll();
  uint64_t generation() const;

  // Reclaiming. While there is something to reclaim: take a ticket, let a grace period pass (it
  // must begin after the ticket was taken), and hand the ticket in. Two rounds reclaim all.
  bool reclaimable() const;
  uint64_t TakeTicket();
  void GracePassed(uint64_t ticket);

  // Builds new tables for one root whose tables suit its entries no longer, since many were added
  // one by one. An unpublished change like others; for idle times, costs as Replace(). False when
  // no root needs it.
  bool Tidy();

  Usage UsageOf(uint32_t root) const;
  // Searches `samples` keys made from the entries of `root`, as they are in force.
  Cost CostOf(uint32_t root, uint32_t samples = 1024) const;

  // Checks the invariants over all arrays. An empty text when they hold. For tests and `Adopt`.
  std::string Check() const;

 private:
  class Core;
  std::unique_ptr<Core> core_;
};

// What one search looked at.
struct SearchCount {
  uint32_t tables = 0;   // looked into, or left out for their best label or by their sieve
  uint32_t probes = 0;   // slots
  uint32_t heads = 0;    // entries, by their heads
  uint32_t entries = 0;  // entries, whole
};

// The index of the entry of `root` that decides for `key` in `generation`, 0 when none does,
// CLS_FAILED when the arrays are damaged. `count` may be null.
uint32_t Search(const Memory& memory, uint32_t root, const cls_key& key, uint64_t generation,
                SearchCount* count = nullptr);

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_CLASSIFIER_H_
