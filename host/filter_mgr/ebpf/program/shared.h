/* What the filter program and the daemon share beside the classifier's arrays: which maps there
 * are, and what is in those that are not the classifier's. Plain C with types of fixed width.
 *
 * All maps are arrays that the daemon maps into its memory and writes without system calls. */
#ifndef HOST_FILTER_MGR_EBPF_PROGRAM_SHARED_H_
#define HOST_FILTER_MGR_EBPF_PROGRAM_SHARED_H_

#include <linux/types.h>

/* Changes whenever the meaning of any byte below does. */
#define FILTER_LAYOUT_VERSION 2

/* What a frame has, beside CLS_HAS_*: a field of the IPv4 header is there when its bytes are, and
 * CLS_HAS_IPV4 says that all of the header's are. Without an Ethernet header there are no MAC
 * addresses, no EtherType and no tag. */
#define FILTER_HAS_TOS (1ULL << 35)
#define FILTER_HAS_PROTOCOL (1ULL << 36)
#define FILTER_HAS_SRC_IP (1ULL << 37)
#define FILTER_HAS_ETHERNET (1ULL << 38)

/* One for all. */
struct filter_config {
  __u32 zero;              /* 0, which the verifier does not know */
  __u32 layout;            /* FILTER_LAYOUT_VERSION */
  __u32 complete;          /* 1 once the maps hold all that they should */
  __u32 cpus;              /* counters and cache have a slice for each possible CPU */
  __u32 counter_slice;     /* counters of one CPU */
  __u32 cache_slice;       /* cached decisions of one CPU, a power of two, or 0 */
  __u32 port_slots;        /* of filter_ports, a power of two */
  __u32 counts_moved;      /* 1 once the counters have what those of editions before had */
  __u64 program;           /* checksum of the program that the maps were last completed with */
  __u64 unknown_interface; /* frames dropped as their interface is not in filter_ports */
  __u64 damaged;           /* frames dropped as the maps made no sense */
  __u64 pad;
};

/* Interface index (0: free) to its roots in the classifier: `root` is the L2 group's, the next one
 * the L3 group's; FILTER_PORT_BARE beside it says that the interface's frames have no Ethernet
 * header. An interface is in one of the FILTER_PORT_PROBES slots from its index on, modulo
 * the number of slots. Written and read as one word. */
#define FILTER_PORT_PROBES 8
#define FILTER_PORT_BARE (1U << 31)
struct filter_port {
  __u32 interface;
  __u32 root;
};

/* The port behind a root, for those that take over the maps. Two roots, one name. */
struct filter_port_name {
  char name[16]; /* empty: the roots are free */
};

/* Frames that an entry decided: a slice for each CPU, and behind them one that the daemon writes
 * when it moves counters. */
struct filter_counter {
  __u64 packets;
  __u64 bytes; /* link layer header aside */
};

/* A decision about frames of one key, made by one CPU and valid for one generation. `turn` is odd
 * while the line is being written, so that a context that interrupts the writer keeps off. */
struct filter_cached {
  __u64 key[4];
  __u64 generation;
  __u64 decision; /* the deciding entries of the L2 group and, upper half, the L3 group; 0: none */
  __u32 root;
  __u32 turn;
  __u64 pad;
};

#endif /* HOST_FILTER_MGR_EBPF_PROGRAM_SHARED_H_ */
