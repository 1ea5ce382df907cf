// The entries in the arrays (their heads, values and masks), and what this process knows of each.
//
// An entry is linked into a table at most once in its life: a search that stands on an entry which
// was unlinked goes on along its `next`, which therefore never changes its meaning. Whatever has to
// stand elsewhere, or to be in force again, becomes a new entry.
#ifndef HOST_CLASSIFIER_ENTRY_STORE_H_
#define HOST_CLASSIFIER_ENTRY_STORE_H_

#include <vector>

#include "host/classifier/mask_table.h"

namespace host::classifier {

class EntryStore {
 public:
  explicit EntryStore(Memory* memory)
      : memory_(memory),
        pool_(memory, CLS_HEADS, CLS_ENTRIES, 1, CLS_MAX_ENTRIES),
        masks_(memory) {}

  // An entry that is in no table and in force in no generation; 0 when there is no room.
  uint32_t Create(const Rule& rule, Refusal* refusal);
  // Its memory is used again at once, so no search may see it any more.
  void Free(uint32_t entry);

  cls_head& head(uint32_t entry) const { return memory_->At<cls_head>(CLS_HEADS, 0)[entry]; }
  cls_entry& body(uint32_t entry) const { return memory_->At<cls_entry>(CLS_ENTRIES, 0)[entry]; }
  const cls_key& mask(uint32_t entry) const {
    return memory_->At<cls_key>(CLS_MASKS, 0)[head(entry).mask];
  }
  const cls_key& value(uint32_t entry) const { return body(entry).value; }
  Rule RuleOf(uint32_t entry) const;

  enum class State : uint8_t { kLoose, kLinked, kUnlinked };  // an entry's life, in order
  struct Known {
    uint8_t table = 0;  // the number in its group of the one that it stands in
    State state = State::kLoose;
    bool dying = false;  // its death is decided, published or not
    bool fresh = false;  // made by an update that is not published
    bool claimed = false;
  };
  Known& known(uint32_t entry) { return known_[entry]; }
  const Known& known(uint32_t entry) const { return known_[entry]; }

  // Restart: takes what the arrays hold.
  bool Claim(uint32_t entry);
  bool EndClaims() { return pool_.EndClaims() && masks_.EndClaims(); }

 private:
  void Know(uint32_t entry) {
    if (known_.size() <= entry) known_.resize(entry + 1);
    known_[entry] = {};
  }

  Memory* memory_;
  Pool pool_;
  MaskTable masks_;
  std::vector<Known> known_;
};

}  // namespace host::classifier

#endif  // HOST_CLASSIFIER_ENTRY_STORE_H_
