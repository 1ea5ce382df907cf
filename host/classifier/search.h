/* The search of the tables, for a BPF program and for this process alike: what the tests prove here
 * is what runs in the kernel.
 *
 * It is one flat step over a state, driven by bpf_loop() there and by a plain loop here, since the
 * verifier follows nested loops into its limit of a million instructions. A step takes the next
 * table when the last one is done, then a slot, then up to CLS_CHAIN_STEP entries of its chain.
 *
 * Whoever includes this header defines before
 *   CLS_MEMORY          the type of what leads to the arrays, the first argument of all accessors
 *   CLS_AT_ROOT(m, i), CLS_AT_GROUP(m, i), CLS_AT_TABLE(m, i), CLS_AT_FILTER(m, i),
 *   CLS_AT_SIEVE(m, i), CLS_AT_SLOTS(m, i), CLS_AT_HEAD(m, i), CLS_AT_ENTRY(m, i),
 *   CLS_AT_MASK(m, i)
 *                       a pointer to the element (const struct cls_...), null when there is none
 *   CLS_LOAD(pointer)   one untorn load of a word that the builder may be changing; in BPF, whose
 *                       loads the compiler orders by address, volatile is enough
 *   CLS_LOWEST_BIT(x)   the number of the lowest bit set in the 64-bit x, which is not 0
 * and may define
 *   CLS_LOOK(m, s, record, no_link)
 *                       cls_look() behind a call, which a verifier walks once and not for each of
 *                       the ways that lead to it
 *   CLS_COUNTING        the state counts what the search looked at (struct cls_count)
 *
 *   struct cls_search s;
 *   if (cls_begin(m, &s, &key, root, generation, zero) == 0)
 *     while (!cls_step(m, &s, 0)) {}                       // or bpf_loop(CLS_MAX_STEPS, ...)
 *   cls_result(&s)
 *
 * The verifier of Linux 6.1 walks a bpf_loop() callback once, with the state of the first call, and
 * removes the branches that this state cannot take. So no field of the state may start as a value
 * that the verifier knows: `zero` is a 0 that it does not know, read from a volatile variable.
 */
#ifndef HOST_CLASSIFIER_SEARCH_H_
#define HOST_CLASSIFIER_SEARCH_H_

#include "host/classifier/layout.h"

#ifdef CLS_COUNTING
struct cls_count {
  __u32 tables; /* looked into, or left out for their best label or by their sieve */
  __u32 probes; /* slots read */
  __u32 heads;
  __u32 entries;
};
#define CLS_COUNT(s, what) ((s)->count.what++)
#else
#define CLS_COUNT(s, what) ((void)0)
#endif

#ifndef CLS_LOOK
#define CLS_LOOK cls_look
#endif

struct cls_search {
  __u64 key[4];
  __u64 tables[2]; /* still to be searched */
  __u64 generation;
  __u32 table_base;
  __u32 flags;  /* the group's, CLS_GROUP_* */
  __u32 best;   /* label of the best match so far */
  __u32 hit;    /* its index, 0: none */
  __u32 record; /* the entry to look at next, 0: none */
  __u32 phase;  /* CLS_PHASE_* */
  /* Of the table that is being probed: the next probe and the end of the probes, as positions that
   * are not yet cut to the table's size. */
  __u32 probe, probe_end;
  __u32 first, slot_mask, fingerprint;
  __u32 pad; /* what a call gets has no byte that was never written */
#ifdef CLS_COUNTING
  struct cls_count count;
#endif
};

enum { CLS_PHASE_NEXT_TABLE, CLS_PHASE_PROBING, CLS_PHASE_DONE };

/* Starts a search for `key` in the tables of `root`, as they are in `generation`, which the caller
 * reads once per frame, before anything else and with acquire order. Returns 0, or 1 when nothing
 * is to be searched: take the result at once. */
CLS_INLINE long cls_begin(CLS_MEMORY m, struct cls_search* s, const struct cls_key* key, __u32 root,
                          __u64 generation, __u64 zero) {
  const struct cls_root* r = CLS_AT_ROOT(m, root);
  const struct cls_group* g;
  __u64 choice, other, t0, t1;
  __u32 f;

  s->key[0] = key->word[0] ^ zero;
  s->key[1] = key->word[1] ^ zero;
  s->key[2] = key->word[2] ^ zero;
  s->key[3] = key->word[3] ^ zero;
  s->generation = generation ^ zero;
  s->tables[0] = s->tables[1] = zero;
  s->best = ~(__u32)zero;
  s->table_base = s->flags = s->hit = s->record = s->pad = (__u32)zero;
  s->probe = s->probe_end = s->first = s->slot_mask = s->fingerprint = (__u32)zero;
  s->phase = CLS_PHASE_NEXT_TABLE ^ (__u32)zero;
  if (!r) goto failed;

  choice = CLS_LOAD(&r->choice[0]);
  other = CLS_LOAD(&r->choice[1]);
  if (CLS_BIRTH_OF(choice) > generation ||
      (CLS_BIRTH_OF(other) <= generation && CLS_BIRTH_OF(other) > CLS_BIRTH_OF(choice)))
    choice = other;
  if (!CLS_GROUP_OF(choice) || CLS_BIRTH_OF(choice) > generation) {
    s->phase = CLS_PHASE_DONE ^ (__u32)zero;
    return 1;
  }
  g = CLS_AT_GROUP(m, CLS_GROUP_OF(choice));
  if (!g) goto failed;

  t0 = CLS_LOAD(&g->tables[0]);
  t1 = CLS_LOAD(&g->tables[1]);
  s->table_base = g->table_base;
  s->flags = CLS_LOAD(&g->flags);
  for (f = 0; f < CLS_MAX_FILTERS; f++) {
    const struct cls_field* field = &g->field[f];
    const struct cls_filter* filter;
    __u64 word;
    if (f >= g->field_count) break;
    /* Not an index: a stack read at a variable place takes more privileges. */
    word = field->word == 0   ? s->key[0]
           : field->word == 1 ? s->key[1]
           : field->word == 2 ? s->key[2]
                              : s->key[3];
    filter = CLS_AT_FILTER(m, field->base + cls_filter_hash(word & field->mask, field->bits & 31));
    if (!filter) goto failed;
    t0 &= CLS_LOAD(&filter->tables[0]) | CLS_LOAD(&field->exempt[0]);
    t1 &= CLS_LOAD(&filter->tables[1]) | CLS_LOAD(&field->exempt[1]);
  }
  s->tables[0] = t0;
  s->tables[1] = t1;
  return 0;

failed:
  s->hit = CLS_FAILED;
  return 1;
}

/* Looks at the entry `record`, and makes it the hit when it matches. Returns the next one to look
 * at, 0 when the rest of the chain cannot be better, or CLS_FAILED. */
CLS_INLINE __u32 cls_look(CLS_MEMORY m, struct cls_search* s, __u32 record, const int no_link) {
  const struct cls_head* head = CLS_AT_HEAD(m, record);
  const struct cls_key* mask;
  __u64 w3;
  if (!head) return CLS_FAILED;
  CLS_COUNT(s, heads);
  /* The rest of the chain is worse still. The bucket may be another one of the same fingerprint, so
   * the table's probes go on. */
  if (head->label >= s->best) return 0;
  mask = CLS_AT_MASK(m, head->mask);
  if (!mask) return CLS_FAILED;
  w3 = s->key[3] & mask->word[3];
  if ((__u32)w3 == head->value) {
    __u64 w0 = no_link ? 0 : s->key[0] & mask->word[0];
    __u64 w1 = no_link ? 0 : s->key[1] & mask->word[1];
    __u64 w2 = s->key[2] & mask->word[2];
    if (CLS_HASH_TAG(cls_hash(w0, w1, w2, w3)) == head->tag) {
      const struct cls_entry* entry = CLS_AT_ENTRY(m, record);
      __u64 differ;
      if (!entry) return CLS_FAILED;
      CLS_COUNT(s, entries);
      differ = (w2 ^ entry->value.word[2]) | (w3 ^ entry->value.word[3]);
      if (!no_link) differ |= (w0 ^ entry->value.word[0]) | (w1 ^ entry->value.word[1]);
      if (!differ && CLS_LOAD(&entry->born) <= s->generation &&
          s->generation < CLS_LOAD(&entry->died)) {
        s->best = head->label;
        s->hit = record;
        s->phase = CLS_PHASE_NEXT_TABLE;
        return 0;
      }
    }
  }
  return CLS_LOAD(&head->next);
}

/* One step; returns 1 when the search is over. `no_link` is a constant that may be 1 when the state
 * has CLS_GROUP_NO_LINK: the link layer's half of the key is left out, which halves the work. */
CLS_INLINE long cls_step(CLS_MEMORY m, struct cls_search* s, const int no_link) {
  __u32 record = s->record;
  int i;

  if (!record) {
    const struct cls_slots* line;
    __u32 position, slot;
    if (s->phase != CLS_PHASE_PROBING) {
      const struct cls_table* table;
      const struct cls_sieve* sieve;
      __u64 place, hash, word;
      __u32 number, mask;
      if (s->tables[0]) {
        number = CLS_LOWEST_BIT(s->tables[0]);
        s->tables[0] &= s->tables[0] - 1;
      } else if (s->tables[1]) {
        number = 64 + CLS_LOWEST_BIT(s->tables[1]);
        s->tables[1] &= s->tables[1] - 1;
      } else {
        s->phase = CLS_PHASE_DONE;
        return 1;
      }
      table = CLS_AT_TABLE(m, s->table_base + number);
      if (!table) goto failed;
      CLS_COUNT(s, tables);
      if (CLS_LOAD(&table->best) >= s->best) return 0;
      place = CLS_LOAD(&table->place);
      mask = (1U << CLS_PLACE_LOG2(place)) - 1;
      hash = no_link ? cls_hash(0, 0, s->key[2] & table->mask[2], s->key[3] & table->mask[3])
                     : cls_hash(s->key[0] & table->mask[0], s->key[1] & table->mask[1],
                                s->key[2] & table->mask[2], s->key[3] & table->mask[3]);
      position = (CLS_HASH_POSITION(hash) & mask) / CLS_SLOTS_PER_LINE;
      sieve = CLS_AT_SIEVE(m, CLS_PLACE_SIEVE(place) + position / CLS_SIEVE_WORDS);
      if (!sieve) goto failed;
      word = CLS_LOAD(&sieve->word[position % CLS_SIEVE_WORDS]);
      /* No better label in the line, or no such bucket. */
      if ((word >> 32) <= (__u32)~s->best) return 0;
      if (!(word >> (hash & 31) & word >> (hash >> 5 & 31) & 1)) return 0;
      s->phase = CLS_PHASE_PROBING;
      s->first = CLS_PLACE_FIRST(place);
      s->slot_mask = mask;
      s->fingerprint = CLS_HASH_FINGERPRINT(hash);
      s->probe = CLS_HASH_POSITION(hash);
      s->probe_end = s->probe + CLS_MAX_PROBES;
    }
    position = s->first + (s->probe & s->slot_mask);
    line = CLS_AT_SLOTS(m, position / CLS_SLOTS_PER_LINE);
    if (!line) goto failed;
    CLS_COUNT(s, probes);
    slot = CLS_LOAD(&line->slot[position % CLS_SLOTS_PER_LINE]);
    s->probe++;
    if (!slot || s->probe == s->probe_end) s->phase = CLS_PHASE_NEXT_TABLE;
    if ((slot ^ s->fingerprint) & ~CLS_INDEX_MASK) return 0;
    record = slot & CLS_INDEX_MASK;
    if (!record) return 0;
  }

  for (i = 0; i < CLS_CHAIN_STEP && record; i++) {
    record = CLS_LOOK(m, s, record, no_link);
    if (record == CLS_FAILED) goto failed;
  }
  s->record = record;
  return 0;

failed:
  s->hit = CLS_FAILED;
  s->phase = CLS_PHASE_DONE;
  return 1;
}

/* The index of the entry that decides, 0 when none matches, CLS_FAILED when the search did not come
 * to its end. */
CLS_INLINE __u32 cls_result(const struct cls_search* s) {
  return s->phase == CLS_PHASE_DONE ? s->hit : CLS_FAILED;
}

#endif /* HOST_CLASSIFIER_SEARCH_H_ */
