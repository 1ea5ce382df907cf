// The filter program, at the ingress of every port that has entries.
//
// A frame is taken apart into a key, the generation is read once, and the key is searched in the
// tables of the port's L2 group and then, unless that denies, of its L3 group. What the deciding
// entries say is counted and done. Whatever cannot be done (no memory, maps that make no sense)
// drops the frame: a filter fails closed.
//
// The program is written for Linux 6.1 and later. The verifier of 6.1 walks the callback of
// bpf_loop() once, with the state of the first call, and removes branches that this state cannot
// take; so nothing in such a state may start as a value that the verifier knows. Nothing from this
// machine's kernel (vmlinux.h) goes in: a program at this hook needs stable interfaces alone.
#include <linux/bpf.h>
#include <linux/pkt_cls.h>

#include <bpf/bpf_helpers.h>

#include "host/filter_mgr/ebpf/program/parse.h"
#include "host/filter_mgr/ebpf/program/shared.h"

char LICENSE[] SEC("license") = "GPL";

// The sizes are set by the daemon, which makes the maps.
#define ARRAY(name, element)           \
  struct {                             \
    __uint(type, BPF_MAP_TYPE_ARRAY);  \
    __uint(max_entries, 1);            \
    __uint(map_flags, BPF_F_MMAPABLE); \
    __type(key, __u32);                \
    __type(value, element);            \
  } name SEC(".maps")

#include "host/classifier/layout.h"

ARRAY(control, struct cls_control);
ARRAY(roots, struct cls_root);
ARRAY(groups, struct cls_group);
ARRAY(tables, struct cls_table);
ARRAY(filters, struct cls_filter);
ARRAY(slots, struct cls_slots);
ARRAY(heads, struct cls_head);
ARRAY(entries, struct cls_entry);
ARRAY(masks, struct cls_key);
ARRAY(config, struct filter_config);
ARRAY(ports, struct filter_port);
ARRAY(port_names, struct filter_port_name);
ARRAY(counters, struct filter_counter);
ARRAY(cache, struct filter_cached);

static __always_inline void* at(void* map, __u32 index) { return bpf_map_lookup_elem(map, &index); }

// The lowest set bit's number, by a De Bruijn sequence: the instruction set has none for it.
static const __u8 kBitNumber[64] = {0,  1,  48, 2,  57, 49, 28, 3,  61, 58, 50, 42, 38, 29, 17, 4,
                                    62, 55, 59, 36, 53, 51, 43, 22, 45, 39, 33, 30, 24, 18, 12, 5,
                                    63, 47, 56, 27, 60, 41, 37, 16, 54, 35, 52, 21, 44, 32, 23, 11,
                                    46, 26, 40, 15, 34, 20, 31, 10, 25, 14, 19, 9,  13, 8,  7,  6};
static __always_inline __u32 lowest_bit(__u64 x) {
  return kBitNumber[((x & -x) * 0x03f79d71b4cb0a89ULL) >> 58];
}

#define CLS_MEMORY int  // the maps are global: nothing leads to them
#define CLS_AT_ROOT(m, i) ((const struct cls_root*)at(&roots, i))
#define CLS_AT_GROUP(m, i) ((const struct cls_group*)at(&groups, i))
#define CLS_AT_TABLE(m, i) ((const struct cls_table*)at(&tables, i))
#define CLS_AT_FILTER(m, i) ((const struct cls_filter*)at(&filters, i))
#define CLS_AT_SIEVE(m, i) ((const struct cls_sieve*)at(&filters, i))
#define CLS_AT_SLOTS(m, i) ((const struct cls_slots*)at(&slots, i))
#define CLS_AT_HEAD(m, i) ((const struct cls_head*)at(&heads, i))
#define CLS_AT_ENTRY(m, i) ((const struct cls_entry*)at(&entries, i))
#define CLS_AT_MASK(m, i) ((const struct cls_key*)at(&masks, i))
struct cls_search;
__u32 filter_look(struct cls_search* s, __u32 record);
__u32 filter_look_no_link(struct cls_search* s, __u32 record);
#define CLS_LOOK(m, s, record, no_link) \
  ((no_link) ? filter_look_no_link(s, record) : filter_look(s, record))
#define CLS_LOAD(p) (*(const volatile __typeof__(*(p))*)(p))
#define CLS_LOWEST_BIT(x) lowest_bit(x)
#include "host/classifier/search.h"

// Functions that are global are walked by the verifier once each and by themselves. So what it
// knows behind one (which of a frame's fields are there, the protocol behind a test for it) neither
// multiplies the work of the next nor gets into the state of a loop. In one piece the program takes
// the verifier ten times as long, a fifth of a second each time the maps grow.

// As cls_look().
__noinline __u32 filter_look(struct cls_search* s, __u32 record) {
  return s ? cls_look(0, s, record, 0) : CLS_FAILED;
}
__noinline __u32 filter_look_no_link(struct cls_search* s, __u32 record) {
  return s ? cls_look(0, s, record, 1) : CLS_FAILED;
}

static long step(__u32 unused, struct cls_search* s) { return cls_step(0, s, 0); }
static long step_no_link(__u32 unused, struct cls_search* s) { return cls_step(0, s, 1); }

// As parse(), with all that it finds out unknown to the verifier.
__noinline int filter_parse(struct __sk_buff* skb, struct frame* f, __u32 zero, __u32 bare) {
  if (!f) return -1;
  return parse(skb, f, zero, bare) != 0 ? -1 : 0;
}

// The entry that decides about the key, 0 when none does, CLS_FAILED.
__noinline __u32 filter_search(const struct cls_key* key, __u32 root, __u64 generation,
                               __u32 zero) {
  struct cls_search s;
  if (!key) return CLS_FAILED;
  if (cls_begin(0, &s, key, root, generation, zero)) return cls_result(&s);
  if (s.flags & CLS_GROUP_NO_LINK) {
    bpf_loop(CLS_MAX_STEPS, step_no_link, &s, 0);
  } else {
    bpf_loop(CLS_MAX_STEPS, step, &s, 0);
  }
  return cls_result(&s);
}

// Later loads of the classifier's arrays come after that of the generation. The instruction set has
// no load with that promise, but atomic operations that return a value are full barriers.
static __always_inline __u64 read_generation(const struct cls_control* c) {
  __u64 generation = CLS_LOAD(&c->generation);
#ifndef FILTER_STRONG_ORDER
  __u64 scratch = generation;
  generation += __sync_fetch_and_add(&scratch, 0) - generation;
#endif
  return generation;
}

// The L2 root of the interface's port, with FILTER_PORT_BARE beside it; CLS_FAILED when it is not
// one of ours.
static __always_inline __u32 find_root(const struct filter_config* c, __u32 interface) {
  for (__u32 i = 0; i < FILTER_PORT_PROBES; i++) {
    const struct filter_port* slot = at(&ports, (interface + i) & (c->port_slots - 1));
    if (!slot) break;
    // One load: the slot may become another interface's.
    union {
      __u64 word;
      struct filter_port port;
    } read = {CLS_LOAD((const __u64*)slot)};
    if (read.port.interface == interface) return read.port.root;
  }
  return CLS_FAILED;
}

static __always_inline void make_key(const struct frame* f, struct cls_key* key) {
  key->word[0] = f->dst_mac << 16 | f->tpid;
  key->word[1] = f->src_mac << 16 | f->tci;
  key->word[2] = (__u64)f->src_ip << 32 | f->dst_ip;
  key->word[3] = (__u64)f->protocol << 24 | (__u64)f->tos << 16 | f->dst_port;
  if (f->has_ethernet) key->word[3] |= FILTER_HAS_ETHERNET;
  if (f->tagged) key->word[3] |= CLS_HAS_TAG;
  if (f->has_tos) key->word[3] |= FILTER_HAS_TOS;
  if (f->has_protocol) key->word[3] |= FILTER_HAS_PROTOCOL;
  if (f->has_src_ip) key->word[3] |= FILTER_HAS_SRC_IP;
  if (f->has_dst_ip) key->word[3] |= CLS_HAS_IPV4;
  if (f->has_port) key->word[3] |= CLS_HAS_PORT;
}

#define PCP_SHIFT 13
#define PCP_BITS (7 << PCP_SHIFT)

// The entries that decide about the key: the L2 group's, and the L3 group's in the upper half.
__noinline __u64 filter_decide(const struct cls_key* frame_key, __u32 root, __u64 generation,
                               __u32 zero) {
  struct cls_key key;
  __u64 l2, l3;
  if (!frame_key) return CLS_FAILED;
  l2 = filter_search(frame_key, root, generation, zero);
  if (l2 == CLS_FAILED) return l2;
  key = *frame_key;
  if (l2 != 0) {
    const struct cls_entry* entry = at(&entries, l2);
    if (!entry) return CLS_FAILED;
    if (entry->action == CLS_DENY) return l2;
    // The L3 group sees the frame as the L2 group has left it.
    if (entry->action == CLS_SET_PCP && (key.word[3] & CLS_HAS_TAG)) {
      key.word[1] = (key.word[1] & ~(__u64)PCP_BITS) | (__u64)(entry->pcp & 7) << PCP_SHIFT;
    }
  }
  l3 = filter_search(&key, root + 1, generation, zero);
  return l2 | l3 << 32;
}

static __always_inline __u64 decide_cached(const struct filter_config* c, const struct cls_key* key,
                                           __u32 root, __u64 generation) {
  __u32 slice = c->cache_slice, turn;
  __u64 hash = cls_hash(key->word[0], key->word[1], key->word[2], key->word[3] ^ (__u64)root << 40);
  __u64 differ, decision;
  struct filter_cached* line =
      at(&cache, bpf_get_smp_processor_id() * slice + ((__u32)(hash >> 32) & (slice - 1)));
  if (slice == 0 || !line) return filter_decide(key, root, generation, CLS_LOAD(&c->zero));
  turn = CLS_LOAD(&line->turn);
  differ = (line->key[0] ^ key->word[0]) | (line->key[1] ^ key->word[1]) |
           (line->key[2] ^ key->word[2]) | (line->key[3] ^ key->word[3]) |
           (line->generation ^ generation) | (line->root ^ root) | (turn & 1);
  if (!differ) {
    decision = CLS_LOAD(&line->decision);
    if (CLS_LOAD(&line->turn) == turn) return decision;
  }
  decision = filter_decide(key, root, generation, CLS_LOAD(&c->zero));
  turn = CLS_LOAD(&line->turn);
  if (turn & 1) return decision;
  *(volatile __u32*)&line->turn = turn + 1;
  barrier();
  line->key[0] = key->word[0];
  line->key[1] = key->word[1];
  line->key[2] = key->word[2];
  line->key[3] = key->word[3];
  line->generation = generation;
  line->root = root;
  line->decision = decision;
  barrier();
  *(volatile __u32*)&line->turn = turn + 2;
  return decision;
}

// Writes the PCP into the outer tag. 0, or a negative error when the frame cannot be changed.
//
// A tag in the metadata cannot be written there, and taking it out and putting another one in
// garbles frames with a second tag on 6.1. A dummy tag in its place pushes it into the bytes, where
// it can be written, and its removal takes it back.
static __always_inline long write_pcp(struct __sk_buff* skb, const struct frame* f, __u8 pcp) {
  __be16 tci = bpf_htons((f->tci & ~PCP_BITS) | (pcp & 7) << PCP_SHIFT);
  long error;
  if (f->tag_in_bytes) {
    return bpf_skb_store_bytes(skb, ETH_HLEN, &tci, sizeof(tci), BPF_F_RECOMPUTE_CSUM);
  }
  error = bpf_skb_vlan_push(skb, bpf_htons(ETH_P_8021Q), 0);
  if (!error) error = bpf_skb_store_bytes(skb, ETH_HLEN, &tci, sizeof(tci), BPF_F_RECOMPUTE_CSUM);
  if (!error) error = bpf_skb_vlan_pop(skb);
  return error;
}

// Counts the frame and does what the entry says. Whether the frame goes on.
static __always_inline int carry_out(struct __sk_buff* skb, const struct filter_config* c,
                                     struct frame* f, __u32 hit, __u32 bytes) {
  const struct cls_entry* entry = at(&entries, hit);
  if (!entry) return 0;
  __u32 slot = bpf_get_smp_processor_id() * c->counter_slice + entry->counter;
  struct filter_counter* counter = at(&counters, slot);
  if (counter) {
    counter->packets++;
    counter->bytes += bytes;
  }
  if (entry->action == CLS_DENY) return 0;
  if (entry->action == CLS_SET_PCP) {
    __u8 pcp = entry->pcp & 7;
    if (f->tagged) {
      if (write_pcp(skb, f, pcp) != 0) return 0;
      f->tci = (f->tci & ~PCP_BITS) | pcp << PCP_SHIFT;
    }
    skb->priority = pcp;
  }
  return 1;
}

static __always_inline int drop_and_count(__u64* count) {
  __sync_fetch_and_add(count, 1);
  return TC_ACT_SHOT;
}

SEC("tc")
int acl_filter(struct __sk_buff* skb) {
  struct filter_config* c = at(&config, 0);
  struct cls_control* ctl = at(&control, 0);
  struct frame f = {};
  struct cls_key key;
  if (!c || !ctl) return TC_ACT_SHOT;
  __u32 root = find_root(c, skb->ifindex);
  if (root == CLS_FAILED) return drop_and_count(&c->unknown_interface);
  if (filter_parse(skb, &f, CLS_LOAD(&c->zero), root & FILTER_PORT_BARE) != 0) return TC_ACT_SHOT;
  make_key(&f, &key);
  root &= ~FILTER_PORT_BARE;
  __u64 decision = decide_cached(c, &key, root, read_generation(ctl));
  __u32 l2 = (__u32)decision, l3 = decision >> 32, bytes = skb->len - f.header;
  if (l2 == CLS_FAILED || l3 == CLS_FAILED) return drop_and_count(&c->damaged);
  if (l2 != 0 && !carry_out(skb, c, &f, l2, bytes)) return TC_ACT_SHOT;
  if (l3 != 0 && !carry_out(skb, c, &f, l3, bytes)) return TC_ACT_SHOT;
  return TC_ACT_UNSPEC;
}
