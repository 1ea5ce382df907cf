#include "host/filter_mgr/match/frame_fields.h"

#include <netinet/in.h>

#include <cstring>

namespace host {
namespace {

constexpr uint16_t kEtherTypeIpv4 = 0x0800, kEtherTypeIpv6 = 0x86dd;
constexpr size_t kTagBytes = 4, kIpv4Bytes = 20, kIpv6Bytes = 40;
// A header that ends, with the frame, right behind the port is too short to have one.
constexpr size_t kPortBytes = 5;

class Parser {
 public:
  explicit Parser(const Frame& frame) : frame_(frame) {}

  FrameFields Parse() {
    memcpy(&fields_.destination, frame_.data(), ETH_ALEN);
    memcpy(&fields_.source, frame_.data() + ETH_ALEN, ETH_ALEN);
    fields_.after_source = At16(12);
    uint16_t type = fields_.after_source;
    size_t payload = kShortestFrame;
    if (IsTagTpid(type)) {
      fields_.tags = 1;
      if (!Has(payload, kTagBytes)) return fields_;
      fields_.tci = At16(14);
      type = At16(16);
      payload += kTagBytes;
      if (IsTagTpid(type)) fields_.tags = 2;
    }
    fields_.ethertype = type;
    if (type == kEtherTypeIpv4) ParseIpv4(payload);
    if (type == kEtherTypeIpv6) ParseIpv6(payload);
    return fields_;
  }

 private:
  bool Has(size_t at, size_t bytes) const { return at + bytes <= frame_.size(); }
  uint16_t At16(size_t at) const { return static_cast<uint16_t>(frame_[at] << 8 | frame_[at + 1]); }
  uint32_t At32(size_t at) const { return uint32_t{At16(at)} << 16 | At16(at + 2); }
  void NoPort(const char* why) { fields_.why_no_port = why; }

  // RFC 791. Fields of the header count as far as the frame goes, whatever the header is like; a
  // port takes a valid header.
  void ParseIpv4(size_t ip) {
    if (Has(ip + 1, 1)) fields_.tos = frame_[ip + 1];
    if (Has(ip + 9, 1)) fields_.protocol = frame_[ip + 9];
    if (Has(ip + 12, 4)) fields_.source_ip = At32(ip + 12);
    if (Has(ip + 16, 4)) fields_.destination_ip = At32(ip + 16);
    if (!Has(ip, kIpv4Bytes)) return NoPort("the IPv4 header is cut off");
    const size_t header = static_cast<size_t>(frame_[ip] & 0xf) * 4, total = At16(ip + 2);
    if (frame_[ip] >> 4 != 4) return NoPort("the IP version is not 4");
    if (header < kIpv4Bytes || header > total) return NoPort("the IPv4 header's length is wrong");
    if (!Has(ip, total)) return NoPort("the IPv4 packet is longer than its frame");
    if ((At16(ip + 6) & 0x1fff) != 0) return NoPort("it is a later fragment");
    ParsePort(frame_[ip + 9], ip + header);
  }

  // RFC 8200, RFC 4302: extension headers up to one that is none.
  void ParseIpv6(size_t ip) {
    size_t at = ip + kIpv6Bytes;
    if (at > frame_.size()) return NoPort("the IPv6 header is cut off");
    if (frame_[ip] >> 4 != 6) return NoPort("the IP version is not 6");
    if (!Has(at, At16(ip + 4))) return NoPort("the IPv6 packet is longer than its frame");
    uint8_t next = frame_[ip + 6];
    for (;;) {
      const bool extension = next == IPPROTO_HOPOPTS || next == IPPROTO_ROUTING ||
                             next == IPPROTO_DSTOPTS || next == IPPROTO_FRAGMENT ||
                             next == IPPROTO_AH;
      if (!extension) return ParsePort(next, at);
      if (!Has(at, 8)) return NoPort("an extension header is cut off");
      if (next == IPPROTO_FRAGMENT && (At16(at + 2) & 0xfff8) != 0) {
        return NoPort("it is a later fragment");
      }
      const size_t length = frame_[at + 1];
      const size_t bytes = next == IPPROTO_FRAGMENT ? 8
                           : next == IPPROTO_AH     ? (length + 2) * 4
                                                    : (length + 1) * 8;
      next = frame_[at];
      at += bytes;
    }
  }

  void ParsePort(uint8_t protocol, size_t header) {
    if (protocol != IPPROTO_TCP && protocol != IPPROTO_UDP) return NoPort("neither TCP nor UDP");
    if (!Has(header, kPortBytes)) return NoPort("the TCP or UDP header is cut off");
    fields_.destination_port = At16(header + 2);
  }

  const Frame& frame_;
  FrameFields fields_;
};

}  // namespace

FrameFields ParseFrame(const Frame& frame) { return Parser(frame).Parse(); }

}  // namespace host
