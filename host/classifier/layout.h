/* What a searcher of the tables (a BPF program, or this process) and their builder share: the key
 * of a frame and the arrays that the tables are made of. Plain C with types of fixed width.
 *
 *   root ──► group ──┬► table ──► slots ──► head ──► head ──► 0     (a chain: one bucket)
 *                    │                       ║        ║
 *                    └► filters             entry    entry          (same index as the head)
 *
 *  - A root stands for one type of filter on one port. It names the group of tables that is in
 *    force there, and the one that will be from a later generation on.
 *  - A group has up to CLS_MAX_TABLES tables, and bitmaps that say for a value of one field which
 *    of its tables can hold a match.
 *  - A table is a hash table over the key's bits under the table's mask, with linear probing. Each
 *    entry stands in one table, whose mask has no bit that the entry's mask does not have. A slot
 *    leads to all entries that agree in the table's bits, in ascending order of their labels.
 *  - An entry is in force in the generations born <= g < died. Of the entries of one group that are
 *    in force and match, the one with the lowest label decides.
 *
 * All numbers are in the byte order of the machine; nothing here leaves it. Index 0 of heads,
 * entries and groups is never used, so that 0 says "none". `classifier.h` says which words change
 * while searches run, and why that is safe.
 */
#ifndef HOST_CLASSIFIER_LAYOUT_H_
#define HOST_CLASSIFIER_LAYOUT_H_

#include <linux/types.h>

/* Changes whenever the meaning of any byte below, or of the hash functions, does. */
#define CLS_LAYOUT_VERSION 2

#define CLS_MAX_TABLES 128    /* of one group */
#define CLS_MAX_FILTERS 6     /* of one group */
#define CLS_MAX_PROBES 32     /* slots from a key's first one in which its bucket is found */
#define CLS_CHAIN_STEP 4      /* heads that one step of the search looks at */
#define CLS_MAX_STEPS 1048576 /* no search takes that many; bounds the loop for the verifier */

/* The frame key, four words:
 *   0: destination MAC address << 16 | the 16 bits behind the source MAC address
 *   1: source MAC address << 16 | TCI of the outer tag (PCP, DEI, VLAN id)
 *   2: IPv4 source << 32 | IPv4 destination
 *   3: what the frame has (CLS_HAS_*) << 32 | IP protocol << 24 | ToS byte << 16 | destination port
 * A field that the frame does not have is 0. */
struct cls_key {
  __u64 word[4];
};
#define CLS_HAS_TAG (1ULL << 32)
#define CLS_HAS_IPV4 (1ULL << 33)
#define CLS_HAS_PORT (1ULL << 34)

enum cls_action { CLS_PERMIT, CLS_DENY, CLS_SET_PCP };

#define CLS_NEVER 0xffffffffffffffffULL /* a generation that does not come */

/* One for all. */
struct cls_control {
  __u64 generation; /* in force; one store publishes an update */
  __u32 layout;     /* CLS_LAYOUT_VERSION */
  __u32 reserved;
  __u64 pad[6];
};

/* The groups of one root: the one with the highest birth that is not after the reader's generation
 * counts. A word is birth << 24 | group; a word of 0 is not used. */
struct cls_root {
  __u64 choice[2];
};
#define CLS_GROUP_BITS 24
#define CLS_GROUP_OF(choice) ((__u32)(choice) & ((1U << CLS_GROUP_BITS) - 1))
#define CLS_BIRTH_OF(choice) ((choice) >> CLS_GROUP_BITS)

/* Bitmaps over one field: entry cls_filter_hash(key bits under the mask) from `base` on tells which
 * tables can hold a match. Tables with entries that do not compare the whole field are exempt. */
struct cls_field {
  __u64 mask;                        /* bits of one key word */
  __u64 exempt[CLS_MAX_TABLES / 64]; /* tables of which the filter says nothing */
  __u32 base;
  __u8 word; /* of the key, 0 to 3 */
  __u8 bits; /* the filter has 1 << bits bitmaps */
  __u16 pad;
};

struct cls_group {
  __u64 tables[CLS_MAX_TABLES / 64]; /* which are in use */
  __u32 table_base;                  /* the first one's index */
  __u32 table_log2;                  /* of how many there is room for */
  __u32 flags;                       /* CLS_GROUP_* */
  __u32 field_count;
  struct cls_field field[CLS_MAX_FILTERS];
  __u64 reserved[4];
};
/* No entry compares bits of the first two words of the key, the link layer's. */
#define CLS_GROUP_NO_LINK 1U

/* One cache line. */
struct cls_table {
  __u64 mask[4];
  __u64 place; /* CLS_PLACE(); one store moves the table */
  __u32 best;  /* no entry of the table has a lower label */
  __u32 pad;
  __u64 reserved[2];
};
/* Where a table's sieve and its slots begin, and the log2 of the number of slots. */
#define CLS_PLACE(sieve, first, log2) ((__u64)(sieve) << 40 | (__u64)(first) << 8 | (log2))
#define CLS_PLACE_SIEVE(place) ((__u32)((place) >> 40))
#define CLS_PLACE_FIRST(place) ((__u32)((place) >> 8))
#define CLS_PLACE_LOG2(place) ((__u32)(place)&31)
#define CLS_SIEVE_BITS 24 /* of the index of a sieve's first element */

/* A slot: 0 ends a search; otherwise 12 bits of the bucket's hash and the index of its first entry.
 * Where a bucket is gone and probes for others go on, the index is 0. */
#define CLS_SLOTS_PER_LINE 16
#define CLS_INDEX_BITS 20
#define CLS_INDEX_MASK ((1U << CLS_INDEX_BITS) - 1)
#define CLS_MAX_ENTRIES CLS_INDEX_MASK
#define CLS_SLOT_GONE (~CLS_INDEX_MASK)
struct cls_slots {
  __u32 slot[CLS_SLOTS_PER_LINE];
};

/* What a frame is compared with first; the entry itself is read only if this fits. */
struct cls_head {
  __u32 label;
  __u32 next;  /* in the chain, 0 ends it */
  __u32 value; /* the lower half of the entry's last word */
  __u16 mask;  /* index of the entry's mask */
  __u16 tag;   /* 16 bits of the hash of the entry's value */
};

/* One cache line. */
struct cls_entry {
  struct cls_key value; /* bits outside of the mask are 0 */
  __u64 born, died;     /* in force in born <= generation < died */
  __u64 cookie;         /* the owner's, carried along */
  __u32 counter;        /* the owner's, carried along */
  __u8 action;          /* enum cls_action */
  __u8 pcp;             /* of CLS_SET_PCP */
  __u16 pad;
};

/* In place of an entry's index, the result of a search that could not come to its end. The arrays
 * are damaged then: drop the frame. */
#define CLS_FAILED 0xffffffffU

struct cls_filter {
  __u64 tables[CLS_MAX_TABLES / 64];
};

/* A table has a sieve beside its slots: a word for each line of them, which leaves most of the
 * lines unread. Its lower half has two bits of each bucket whose hash leads to the line, also where
 * the bucket found its slot in a later one; its upper half is the lowest of their labels with all
 * bits inverted, 0 for no bucket. Words never take back what they tell: of buckets that are gone
 * they go on to tell until the table grows. A table of one line has an element to itself. */
#define CLS_SIEVE_WORDS 2
struct cls_sieve {
  __u64 word[CLS_SIEVE_WORDS];
};

/* The elements of the arrays. Each size is a multiple of 8, as BPF arrays pad to that. */
enum cls_array {
  CLS_CONTROL, /* struct cls_control, one */
  CLS_ROOTS,   /* struct cls_root */
  CLS_GROUPS,  /* struct cls_group */
  CLS_TABLES,  /* struct cls_table */
  CLS_FILTERS, /* struct cls_filter, and struct cls_sieve, which is as large */
  CLS_SLOTS,   /* struct cls_slots */
  CLS_HEADS,   /* struct cls_head */
  CLS_ENTRIES, /* struct cls_entry, as many as heads */
  CLS_MASKS,   /* struct cls_key */
  CLS_ARRAYS
};
#define CLS_MAX_MASKS 65536

#define CLS_INLINE static inline __attribute__((always_inline))

/* Multiplicative hashing of all four words. The products are independent of each other, so that a
 * word of 0 costs nothing where it is known, and changes nothing. The constants are odd and taken
 * from the golden ratio and the primes of xxHash. Whoever sends frames can make them collide; what
 * that costs is bounded by CLS_MAX_PROBES and the length of chains. */
#define CLS_HASH_0 0x9e3779b97f4a7c15ULL
#define CLS_HASH_1 0xc2b2ae3d27d4eb4fULL
#define CLS_HASH_2 0x165667b19e3779f9ULL
#define CLS_HASH_3 0xd6e8feb86659fd93ULL

CLS_INLINE __u64 cls_fold(__u64 word) { return word ^ (word >> 32); }

CLS_INLINE __u64 cls_hash(__u64 w0, __u64 w1, __u64 w2, __u64 w3) {
  __u64 sum = cls_fold(w0) * CLS_HASH_0 + cls_fold(w1) * CLS_HASH_1 + cls_fold(w2) * CLS_HASH_2 +
              cls_fold(w3) * CLS_HASH_3;
  return cls_fold(sum) * CLS_HASH_0;
}
#define CLS_HASH_POSITION(hash) ((__u32)((hash) >> 32))
#define CLS_HASH_FINGERPRINT(hash) ((__u32)(hash) & ~CLS_INDEX_MASK)
#define CLS_HASH_TAG(hash) ((__u16)((hash) >> 16))
/* The bits of the sieve's word that a bucket sets, in its lower half. */
#define CLS_HASH_SIEVE(hash) (1ULL << ((hash)&31) | 1ULL << ((hash) >> 5 & 31))

/* `bits` from 1 to 31. */
CLS_INLINE __u32 cls_filter_hash(__u64 value, __u32 bits) {
  return (__u32)((cls_fold(value) * CLS_HASH_1) >> (64 - bits));
}

#endif /* HOST_CLASSIFIER_LAYOUT_H_ */
