// What is behind the classifier's interface: the roots, and the unpublished changes of each.
//
// A change writes new entries and groups into the arrays as they are to stand, with a birth (and
// for old entries a death) in the generation to come. What this process knows of the old state is
// kept beside it, so that Discard() can go back: each node of the list as it was before its first
// change, and what was made new. At Publish() that is let go, and what died is retired (arena.h).
#ifndef HOST_CLASSIFIER_CORE_H_
#define HOST_CLASSIFIER_CORE_H_

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "host/classifier/arena.h"
#include "host/classifier/classifier.h"
#include "host/classifier/entry_list.h"
#include "host/classifier/match_index.h"
#include "host/classifier/table_group.h"

namespace host::classifier {

// What a root is apart from its group: what an update may replace whole.
struct RootContent {
  EntryId sentinel = kNoEntry;  // of its ring; made with the first entry
  uint32_t entries = 0;
  uint32_t shadowed = 0;
  MatchIndex index;
};

// The unpublished changes of one root.
struct RootUpdate {
  struct IndexChange {
    bool added;
    EntryId id;
  };

  uint32_t serial;
  bool refused = false;
  bool linked = false;  // an entry was linked or has died: there is something to publish
  std::vector<std::pair<EntryId, Node>> before;  // nodes as they were
  std::vector<EntryId> created, removed;
  std::vector<IndexChange> index_changes;
  std::vector<uint32_t> fresh;    // entries made
  std::vector<uint32_t> dying;    // published entries whose death is written
  std::vector<uint32_t> dropped;  // entries that were in no table and are not needed any more

  // A new group takes the old one's place; from then on, what is made goes to `fresh_in_new`, and
  // dies at once.
  bool regrouped = false;
  std::shared_ptr<TableGroup> old_group;
  std::vector<uint32_t> fresh_in_new;

  // All entries are new (Replace).
  bool replaced = false;
  // The root as it was, with its index when it is replaced.
  RootContent old_content;
};

struct Root {
  RootContent content;
  std::shared_ptr<TableGroup> group;  // as after the next Publish(); null: none
  uint8_t choice = 1;                 // the word of cls_root that names the published group
  std::unique_ptr<RootUpdate> update;
};

class Classifier::Core {
 public:
  explicit Core(Memory* memory) : memory_(memory), arena_(memory) {}

  bool Format();
  bool Adopt(std::string* problem);
  // The reading part of Adopt(): writes nothing.
  std::string Read();

  bool Replace(uint32_t root, const Rule* rules, size_t count, EntryId* ids, Refusal* refusal);
  EntryId Insert(uint32_t root, EntryId after, const Rule& rule, Refusal* refusal);
  bool Remove(EntryId id, Refusal* refusal);
  bool Tidy();

  bool changed() const;
  void Publish();
  void Discard(uint32_t root);
  void DiscardAll();

  uint64_t TakeTicket() { return arena_.ticket++; }
  void GracePassed(uint64_t ticket);

  EntryId Step(EntryId from, uint32_t root) const;  // the next that is not removed
  const EntryList& list() const { return list_; }
  const Arena& arena() const { return arena_; }
  const std::vector<std::unique_ptr<Root>>& roots() const { return roots_; }
  uint64_t generation() const { return generation_; }
  Memory* memory() const { return memory_; }

 private:
  uint64_t next_generation() const { return generation_ + 1; }
  cls_root& Words(uint32_t root) const { return *memory_->At<cls_root>(CLS_ROOTS, root); }

  // The root, with an update begun; null when the arrays have no room for it.
  Root* Begin(uint32_t number, Refusal* refusal);
  void Touch(Root* root, EntryId id);
  uint32_t NewRecord(Root* root, const Rule& rule, Refusal* refusal);

  // The parts of Insert() and Remove().
  uint32_t MakeLabel(uint32_t number, EntryId before, bool tight, Refusal* refusal);
  bool Relabel(uint32_t number, EntryId around, Refusal* refusal);
  void JoinTwins(Root* root, EntryId id, EntryId first);
  void LeaveTwins(Root* root, EntryId id);
  bool IsFirstTwin(EntryId id) const;
  void AddToIndex(Root* root, EntryId id);
  void EraseFromIndex(Root* root, EntryId id);
  bool Activate(uint32_t number, EntryId id, Refusal* refusal);
  void Kill(Root* root, EntryId id);
  bool Demote(Root* root, EntryId id, Refusal* refusal);

  // A new group for the root's entries, in place of the one that was.
  bool Regroup(uint32_t number, Refusal* refusal);
  bool SwitchGroup(uint32_t number, std::shared_ptr<TableGroup> group);

  void Settle(uint32_t number);
  void TakeBack(uint32_t number);

  // Restart: reads and checks all; what is wrong, empty when nothing is.
  std::string ReadRoot(uint32_t number);
  void Take(uint32_t number);

  Memory* memory_;
  Arena arena_;
  EntryList list_;
  std::vector<std::unique_ptr<Root>> roots_;
  std::vector<uint32_t> updated_;  // roots with an update
  uint32_t serial_ = 0;
  uint64_t generation_ = 1;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_CORE_H_
