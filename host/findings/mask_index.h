// Finds, among the entries that come before one, those that take frames from it.
//
// Entries stand in a hash table per distinct mask and classes, under their value. An entry is
// covered by an earlier one exactly if that compares no bit that it does not compare itself, has
// the same value in those, and is in all of its classes: in each table whose mask is coarser, that
// is one look-up. The number of tables is the number of ways in which entries are written, hundreds
// at most in practice; all are looked at for each entry, most of them by one word (`folds_`).
//
// Of entries with the same set the first alone is kept: the others are covered by it.
#ifndef HOST_FINDINGS_MASK_INDEX_H_
#define HOST_FINDINGS_MASK_INDEX_H_

#include <cstdint>
#include <unordered_map>
#include <vector>

#include "host/findings/frame_set.h"

namespace host::findings {

class MaskIndex {
 public:
  static constexpr uint32_t kNone = ~uint32_t{0};

  // Adds the next entry's set, which is not empty. Entries are numbered from 0.
  void Add(const FrameSet& set);
  // Counts an entry that takes no frames from later ones.
  void Skip() { ++next_; }

  // The first entry that covers `set`, over complete frames; kNone when no single one does. What
  // that takes is added to `*work`, in units of some nanoseconds.
  uint32_t FirstCovering(const FrameSet& set, uint64_t* work) const;

  // Appends places of sets that meet `cube` in class `class_number`, ascending. Leaves out those
  // that cannot be found without more than kMostOfTable look-ups in their table or steps through
  // it, those that compare more than kMostBits bits beyond the cube's, and all of them when the
  // rest cannot fill the cube.
  void Meeting(const Cube& cube, size_t class_number, std::vector<uint32_t>* found,
               uint64_t* work) const;

  const FrameSet& SetAt(uint32_t place) const { return sets_[place]; }
  uint32_t EntryAt(uint32_t place) const { return entries_[place]; }
  // The set of an entry that FirstCovering() gave.
  const FrameSet& SetOf(uint32_t entry) const;

 private:
  static constexpr size_t kMostOfTable = 64;
  static constexpr int kMostBits = 40;
  static constexpr uint64_t kLookUpWork = 4, kTableWork = 2;

  struct Key {
    cls_key mask;
    Classes classes;
    bool operator==(const Key& other) const {
      return mask == other.mask && classes == other.classes;
    }
  };
  struct KeyHash {
    size_t operator()(const Key& key) const {
      return classifier::Hash(key.mask) + key.classes * CLS_HASH_3;
    }
  };
  struct Table {
    std::vector<uint32_t> slots;  // place in sets_, or kNone; a power of two of them
    std::vector<uint32_t> sets;   // the same, in order
  };
  // What a walk over all tables looks at.
  struct Extent {
    cls_key mask;
    Classes classes;
    uint32_t sets;  // number of them
  };
  // How the entries of a table that meet a cube are found.
  struct Way {
    uint32_t table;
    cls_key extra;  // bits that its entries compare beyond the cube's
    bool look_up;   // all values of those bits; otherwise go through the table
  };

  uint32_t* Slot(Table* table, const cls_key& value) const;
  uint32_t Find(const Table& table, const cls_key& value) const;
  void Insert(Table* table, uint32_t place);
  // The ways to entries that may meet the cube; false when those together are too small for it.
  bool MayFill(const Cube& cube, size_t class_number, std::vector<Way>* ways) const;

  uint32_t next_ = 0;
  std::vector<FrameSet> sets_;
  std::vector<uint32_t> entries_;  // of each set; ascending
  std::unordered_map<Key, uint32_t, KeyHash> table_of_;
  std::vector<Table> tables_;
  std::vector<Extent> extents_;  // of the tables
  std::vector<uint64_t> folds_;  // of a table's mask: no bit that the fold of a finer mask lacks
};

}  // namespace host::findings

#endif  // HOST_FINDINGS_MASK_INDEX_H_
