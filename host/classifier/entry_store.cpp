#include "host/classifier/entry_store.h"

namespace host::classifier {

uint32_t EntryStore::Create(const Rule& rule, Refusal* refusal) {
  const uint32_t mask = masks_.Acquire(rule.mask, refusal);
  if (mask == Pool::kNone) return 0;
  const uint32_t entry = pool_.Allocate(0, refusal);
  if (entry == Pool::kNone) {
    masks_.Release(mask);
    return 0;
  }
  Know(entry);
  cls_head& to = head(entry);
  to.label = UINT32_MAX;
  to.next = 0;
  to.value = static_cast<uint32_t>(rule.value.word[3]);
  to.mask = static_cast<uint16_t>(mask);
  to.tag = CLS_HASH_TAG(Hash(rule.value));
  body(entry) = {rule.value,   CLS_NEVER,   CLS_NEVER, rule.cookie,
                 rule.counter, rule.action, rule.pcp,  0};
  return entry;
}

void EntryStore::Free(uint32_t entry) {
  masks_.Release(head(entry).mask);
  pool_.Free(entry, 0);
}

Rule EntryStore::RuleOf(uint32_t entry) const {
  const cls_entry& from = body(entry);
  return {from.value, mask(entry), from.action, from.pcp, from.counter, from.cookie};
}

bool EntryStore::Claim(uint32_t entry) {
  if (entry < known_.size() && known_[entry].claimed) return false;
  if (!pool_.Claim(entry, 0) || !masks_.Claim(head(entry).mask)) return false;
  Know(entry);
  known_[entry].claimed = true;
  return true;
}

}  // namespace host::classifier
