// The filter program's parser: from a frame at the ingress hook to the fields that entries compare.
//
// What the fields mean, and which frames have them, is the back ends' common contract
// (host/filter_mgr/backend.h). In short: one tag at most is looked behind; a field of the IPv4
// header is read where the frame has its bytes, whatever the header is like; a destination port is
// TCP's or UDP's, in a packet whose IP header is valid, that fits into its frame and is no later
// fragment.
//
// Interfaces of other kinds (tun, tunnels, PPP) have frames without an Ethernet header: what these
// are, and where their network header begins, the kernel knows.
//
// A tag can be in the frame's bytes or beside them: on its way to the hook the kernel moves the
// outer tag into the buffer's metadata, unless there is no room for that. The bytes of a buffer can
// be spread; those that are read directly are gathered first.
#ifndef HOST_FILTER_MGR_EBPF_PROGRAM_PARSE_H_
#define HOST_FILTER_MGR_EBPF_PROGRAM_PARSE_H_

#include <linux/bpf.h>
#include <linux/if_ether.h>
#include <linux/in.h>

#include <bpf/bpf_endian.h>
#include <bpf/bpf_helpers.h>

#define TAG_BYTES 4
#define IPV4_BYTES 20
#define IPV4_LONGEST 60
#define IPV6_BYTES 40
#define PORT_BYTES 5  // of TCP's or UDP's header: with less, there is no port
// All that is read directly: link layer with one tag, the longest IPv4 header, the ports.
#define PULLED_BYTES (ETH_HLEN + TAG_BYTES + IPV4_LONGEST + PORT_BYTES)
// What is in front of a network header, in bytes, has no more bits; told to the verifier.
#define HEADER_BITS 0xff
// More extension headers than the longest IPv6 packet can hold.
#define MAX_EXTENSIONS 8192

// IPv6 extension headers that are looked behind (RFC 8200, RFC 4302).
enum { EXT_HOP = 0, EXT_ROUTING = 43, EXT_FRAGMENT = 44, EXT_AUTH = 51, EXT_DESTINATION = 60 };

// A frame's fields, in host byte order; zero where it has none.
struct frame {
  __u64 dst_mac, src_mac;
  __u32 src_ip, dst_ip;
  __u32 header;  // bytes in front of the network header, as the buffer holds them
  __u16 tpid;    // the 16 bits behind the source MAC address
  __u16 tci;
  __u16 dst_port;
  __u8 tos, protocol;
  __u8 has_ethernet, tagged, tag_in_bytes, has_tos, has_protocol, has_src_ip, has_dst_ip, has_port;
};

static __always_inline __u16 get16(const void* p) { return bpf_ntohs(*(const __be16*)p); }
static __always_inline __u32 get32(const void* p) { return bpf_ntohl(*(const __be32*)p); }
static __always_inline int is_tag(__u16 type) {
  return type == ETH_P_8021Q || type == ETH_P_8021AD;
}

// Gathers the first `want` bytes. 0, or a negative error when there is no memory.
static __always_inline long gather(struct __sk_buff* skb, __u32 want) {
  if (want > skb->len) want = skb->len;
  if (skb->data_end - skb->data >= want) return 0;
  return bpf_skb_pull_data(skb, want);
}

static __always_inline void parse_ipv4(struct __sk_buff* skb, struct frame* f) {
  const __u8* ip = (const __u8*)(long)skb->data + (f->header & HEADER_BITS);
  const __u8* end = (const __u8*)(long)skb->data_end;
  if (ip + 2 > end) return;
  f->has_tos = 1;
  f->tos = ip[1];
  if (ip + 10 > end) return;
  f->has_protocol = 1;
  f->protocol = ip[9];
  if (ip + 16 > end) return;
  f->has_src_ip = 1;
  f->src_ip = get32(ip + 12);
  if (ip + IPV4_BYTES > end) return;
  f->has_dst_ip = 1;
  f->dst_ip = get32(ip + 16);
  if (f->protocol != IPPROTO_TCP && f->protocol != IPPROTO_UDP) return;
  __u32 header = (ip[0] & 15) * 4, room = skb->len - f->header;
  __u32 total = get16(ip + 2);
  if (total == 0 && skb->gso_size != 0) total = room;  // merged segments, too long for the field
  int valid = ip[0] >> 4 == 4 && header >= IPV4_BYTES && header <= total && total <= room;
  if (!valid || (get16(ip + 6) & 0x1fff) != 0) return;
  const __u8* ports = ip + header;
  if (ports + PORT_BYTES > end) return;
  f->dst_port = get16(ports + 2);
  f->has_port = 1;
}

// The walk over a packet's extension headers.
struct walk {
  struct __sk_buff* skb;
  __u32 at;    // bytes in front of the next header
  __u32 next;  // what it is
  __u32 later_fragment;
  __u32 broken;
};

static long walk_extension(__u32 unused, struct walk* w) {
  __u8 bytes[4];
  __u32 kind = w->next;
  if (kind != EXT_HOP && kind != EXT_ROUTING && kind != EXT_FRAGMENT && kind != EXT_AUTH &&
      kind != EXT_DESTINATION) {
    return 1;
  }
  if (bpf_skb_load_bytes(w->skb, w->at, bytes, sizeof(bytes)) != 0) {
    w->broken = 1;
    return 1;
  }
  w->next = bytes[0];
  __u32 length = (bytes[1] + 1) * 8;
  if (kind == EXT_AUTH) length = (bytes[1] + 2) * 4;
  if (kind == EXT_FRAGMENT) {
    length = 8;
    if (((bytes[2] << 8 | bytes[3]) & 0xfff8) != 0) {
      w->later_fragment = 1;
      return 1;
    }
  }
  w->at += length;
  return 0;
}

// `zero` is 0, but the verifier must not know (see unknown_zero).
static __always_inline void parse_ipv6(struct __sk_buff* skb, struct frame* f, __u32 zero) {
  const __u8* ip = (const __u8*)(long)skb->data + (f->header & HEADER_BITS);
  const __u8* end = (const __u8*)(long)skb->data_end;
  if (ip + IPV6_BYTES > end) return;
  if (ip[0] >> 4 != 6 || f->header + IPV6_BYTES + get16(ip + 4) > skb->len) return;
  __u32 at = f->header + IPV6_BYTES, protocol = ip[6];
  if (protocol != IPPROTO_TCP && protocol != IPPROTO_UDP) {
    struct walk w = {skb, at + zero, protocol, zero, zero};
    bpf_loop(MAX_EXTENSIONS, walk_extension, &w, 0);
    if (w.broken || w.later_fragment) return;
    at = w.at;
    protocol = w.next;
    if (protocol != IPPROTO_TCP && protocol != IPPROTO_UDP) return;
  }
  __u8 ports[PORT_BYTES];
  if (bpf_skb_load_bytes(skb, at, ports, sizeof(ports)) != 0) return;
  f->dst_port = ports[2] << 8 | ports[3];
  f->has_port = 1;
}

// Whether the network header begins at least so many bytes behind the buffer's first: then as many
// are missing behind that. Only that way the program can find out.
static __always_inline int network_is_behind(struct __sk_buff* skb, __u32 bytes) {
  __u32 size = skb->data_end - skb->data;
  __u8 byte;
  return bytes <= size &&
         bpf_skb_load_bytes_relative(skb, size - bytes, &byte, 1, BPF_HDR_START_NET) != 0;
}

// Takes a frame apart that has no Ethernet header. What is in front of the network header, most
// often nothing, is of a kind that no entry compares.
static __always_inline long parse_bare(struct __sk_buff* skb, struct frame* f, __u32 zero) {
  __u16 type = bpf_ntohs((__be16)skb->protocol);
  if (network_is_behind(skb, 1)) {
    for (__u32 bytes = (HEADER_BITS + 1) / 2; bytes != 0; bytes /= 2) {
      if (network_is_behind(skb, f->header + bytes)) f->header += bytes;
    }
    if (network_is_behind(skb, f->header + 1)) return -1;
    if (gather(skb, (f->header & HEADER_BITS) + PULLED_BYTES) != 0) return -1;
  }
  if (type == ETH_P_IP) parse_ipv4(skb, f);
  if (type == ETH_P_IPV6) parse_ipv6(skb, f, zero);
  return 0;
}

// Takes the frame apart, `bare` when its interface has none with an Ethernet header. 0, or a
// negative error when it cannot be read.
static __always_inline long parse(struct __sk_buff* skb, struct frame* f, __u32 zero, __u32 bare) {
  long error = gather(skb, PULLED_BYTES);
  if (error != 0) return error;
  if (bare) return parse_bare(skb, f, zero);
  const __u8 *data = (const __u8*)(long)skb->data, *end = (const __u8*)(long)skb->data_end;
  if (data + ETH_HLEN > end) return -1;
  f->has_ethernet = 1;
  f->dst_mac = (__u64)get16(data) << 32 | get32(data + 2);
  f->src_mac = (__u64)get32(data + 6) << 16 | get16(data + 10);
  __u16 type = get16(data + 12);
  f->tpid = type;
  f->header = ETH_HLEN;
  if (skb->vlan_present) {
    f->tagged = 1;
    f->tpid = bpf_ntohs((__be16)skb->vlan_proto);
    f->tci = (__u16)skb->vlan_tci;
  } else if (is_tag(type)) {
    if (data + ETH_HLEN + TAG_BYTES > end) return 0;
    f->tagged = f->tag_in_bytes = 1;
    f->tci = get16(data + 14);
    type = get16(data + 16);
    f->header += TAG_BYTES;
  }
  if (type == ETH_P_IP) parse_ipv4(skb, f);
  if (type == ETH_P_IPV6) parse_ipv6(skb, f, zero);
  return 0;
}

#endif  // HOST_FILTER_MGR_EBPF_PROGRAM_PARSE_H_
