// The entries of all roots as this process knows them: their order, and which have equal matches.
//
// The entries of a root form a ring through a sentinel, in order; their labels ascend, with gaps.
// Entries with the same value and mask form a ring of twins, also in order; the first of them alone
// is linked into tables, as the others can never decide.
//
// A removed entry stays in its root's ring until the removal is published, so that it can come
// back.
#ifndef HOST_CLASSIFIER_ENTRY_LIST_H_
#define HOST_CLASSIFIER_ENTRY_LIST_H_

#include <cstdint>
#include <vector>

#include "host/classifier/classifier.h"

namespace host::classifier {

struct Node {
  uint32_t record = 0;  // its entry in the arrays
  uint32_t label = 0;
  EntryId prev = 0, next = 0;
  EntryId twin_prev = 0, twin_next = 0;  // itself, when it has no twin
  uint32_t root = 0;
  uint32_t touched = 0;  // serial of the update that has kept its state before
  bool linked = false;   // its record is in a table
  bool removed = false;
};

// Labels lie between these two, which are the sentinel's as the ring's begin and end.
constexpr uint32_t kFirstLabel = 0;
constexpr uint32_t kLastLabel = UINT32_MAX;

class EntryList {
 public:
  EntryList() : nodes_(1) {}

  Node& operator[](EntryId id) { return nodes_[id]; }
  const Node& operator[](EntryId id) const { return nodes_[id]; }
  bool Holds(EntryId id) const { return id != kNoEntry && id < nodes_.size(); }

  // A node that is its own ring in both ways.
  EntryId Create(uint32_t root) {
    EntryId id;
    if (!free_.empty()) {
      id = free_.back();
      free_.pop_back();
    } else {
      id = static_cast<EntryId>(nodes_.size());
      nodes_.emplace_back();
    }
    nodes_[id] = Node();
    Node& node = nodes_[id];
    node.prev = node.next = node.twin_prev = node.twin_next = id;
    node.root = root;
    return id;
  }
  void Free(EntryId id) { free_.push_back(id); }

  // The label in front of which `id` must be; kLastLabel at the ring's end.
  uint32_t LabelBehind(EntryId id, EntryId sentinel) const {
    const EntryId next = nodes_[id].next;
    return next == sentinel ? kLastLabel : nodes_[next].label;
  }

  // A label behind that of `id`, 0 when there is none between it and the next. One that decides
  // nothing (`tight`) takes as little of the gap as it can.
  uint32_t LabelAfter(EntryId id, EntryId sentinel, bool tight) const;

  // The entries around `id`, as many as need new labels so that there is a gap again: the first and
  // the last of them, and labels for them in `first_label`, `step`.
  struct Spread {
    EntryId first;
    size_t count;
    uint32_t first_label;
    uint32_t step;
  };
  Spread SpreadAround(EntryId id, EntryId sentinel) const;

 private:
  std::vector<Node> nodes_;
  std::vector<EntryId> free_;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_ENTRY_LIST_H_
