// The search in this process, by the same header as the BPF program's.
#include <cstdint>

#include "host/classifier/classifier.h"

#define CLS_MEMORY const host::classifier::Memory&
#define CLS_AT_ROOT(m, i) (m).At<const cls_root>(CLS_ROOTS, i)
#define CLS_AT_GROUP(m, i) (m).At<const cls_group>(CLS_GROUPS, i)
#define CLS_AT_TABLE(m, i) (m).At<const cls_table>(CLS_TABLES, i)
#define CLS_AT_FILTER(m, i) (m).At<const cls_filter>(CLS_FILTERS, i)
#define CLS_AT_SIEVE(m, i) (m).At<const cls_sieve>(CLS_FILTERS, i)
#define CLS_AT_SLOTS(m, i) (m).At<const cls_slots>(CLS_SLOTS, i)
#define CLS_AT_HEAD(m, i) (m).At<const cls_head>(CLS_HEADS, i)
#define CLS_AT_ENTRY(m, i) (m).At<const cls_entry>(CLS_ENTRIES, i)
#define CLS_AT_MASK(m, i) (m).At<const cls_key>(CLS_MASKS, i)
#define CLS_LOWEST_BIT(x) static_cast<uint32_t>(__builtin_ctzll(x))
#define CLS_COUNTING
#if __SIZEOF_POINTER__ == 8
#define CLS_LOAD(pointer) __atomic_load_n(pointer, __ATOMIC_ACQUIRE)
#else  // 8 bytes are two loads there, and no search runs while the builder writes
#define CLS_LOAD(pointer) (*(pointer))
#endif
#include "host/classifier/search.h"

namespace host::classifier {

uint32_t Search(const Memory& memory, uint32_t root, const cls_key& key, uint64_t generation,
                SearchCount* count) {
  cls_search search;
  search.count = {};
  if (cls_begin(memory, &search, &key, root, generation, 0) == 0) {
    uint32_t steps = 0;
    if ((search.flags & CLS_GROUP_NO_LINK) != 0) {
      while (steps++ < CLS_MAX_STEPS && cls_step(memory, &search, 1) == 0) {
      }
    } else {
      while (steps++ < CLS_MAX_STEPS && cls_step(memory, &search, 0) == 0) {
      }
    }
  }
  if (count != nullptr) {
    *count = {search.count.tables, search.count.probes, search.count.heads, search.count.entries};
  }
  return cls_result(&search);
}

}  // namespace host::classifier
