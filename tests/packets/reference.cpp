#include "tests/packets/reference.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstring>

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

// A frame taken apart. Fields that it does not have have no value.
struct Fields {
  uint16_t after_source = 0;  // the 16 bits behind the source MAC address
  std::optional<uint16_t> tci;
  std::optional<size_t> ipv4;  // offset of the header
  std::optional<uint16_t> l4_port;
};

uint16_t At16(const Frame& frame, size_t at) {
  return static_cast<uint16_t>(frame.at(at) << 8 | frame.at(at + 1));
}

bool IsTag(uint16_t type) { return type == 0x8100 || type == 0x88a8; }

std::optional<uint16_t> PortAt(const Frame& frame, uint8_t protocol, size_t header) {
  // A header that ends with the frame right behind the port is too short to have one.
  if ((protocol != 6 && protocol != 17) || header + 5 > frame.size()) return std::nullopt;
  return At16(frame, header + 2);
}

// RFC 791: internet header length in words, fragment offset in the low 13 bits of bytes 6 and 7. A
// packet that does not fit into its frame has no port, nor has one whose header is not valid.
std::optional<uint16_t> Ipv4Port(const Frame& frame, size_t ip) {
  if (ip + 20 > frame.size() || frame[ip] >> 4 != 4) return std::nullopt;
  const size_t header = static_cast<size_t>(frame[ip] & 0xf) * 4, total = At16(frame, ip + 2);
  if (header < 20 || header > total || ip + total > frame.size()) return std::nullopt;
  if ((At16(frame, ip + 6) & 0x1fff) != 0) return std::nullopt;
  return PortAt(frame, frame[ip + 9], ip + header);
}

// RFC 8200, RFC 4302: extension headers up to one that is none.
std::optional<uint16_t> Ipv6Port(const Frame& frame, size_t ip) {
  size_t at = ip + 40;
  if (at > frame.size() || frame[ip] >> 4 != 6) return std::nullopt;
  if (at + At16(frame, ip + 4) > frame.size()) return std::nullopt;
  uint8_t next = frame[ip + 6];
  for (;;) {
    const bool extension = next == 0 || next == 43 || next == 60 || next == 51 || next == 44;
    if (extension && at + 8 > frame.size()) return std::nullopt;
    if (next == 51) {
      next = frame.at(at);
      at += (static_cast<size_t>(frame.at(at + 1)) + 2) * 4;
    } else if (next == 0 || next == 43 || next == 60) {
      next = frame.at(at);
      at += (static_cast<size_t>(frame.at(at + 1)) + 1) * 8;
    } else if (next == 44) {
      if ((At16(frame, at + 2) & 0xfff8) != 0) return std::nullopt;
      next = frame.at(at);
      at += 8;
    } else {
      return PortAt(frame, next, at);
    }
  }
}

Fields Parse(const Frame& frame) {
  Fields fields;
  fields.after_source = At16(frame, 12);
  uint16_t type = fields.after_source;
  size_t payload = 14;
  if (IsTag(type)) {
    if (frame.size() < 18) return fields;
    fields.tci = At16(frame, 14);
    type = At16(frame, 16);
    payload = 18;
  }
  if (type == 0x0800) {
    fields.ipv4 = payload;
    fields.l4_port = Ipv4Port(frame, payload);
  } else if (type == 0x86dd) {
    fields.l4_port = Ipv6Port(frame, payload);
  }
  return fields;
}

template <class M>
bool MacMatches(const M& match, const Frame& frame, size_t at) {
  for (size_t i = 0; i < 6; ++i) {
    const uint8_t ignored = match.mask() ? match.mask()->ether_addr_octet[i] : 0;
    if (((frame[at + i] ^ match.address().ether_addr_octet[i]) & ~ignored & 0xff) != 0)
      return false;
  }
  return true;
}

template <class M>
bool Ipv4Matches(const M& match, const Frame& frame, std::optional<size_t> ip, size_t at) {
  if (!ip || *ip + at + sizeof(in_addr) > frame.size()) return false;
  in_addr address;
  memcpy(&address, &frame[*ip + at], sizeof(address));
  const uint32_t compared = match.mask() ? match.mask()->s_addr : ~uint32_t{0};
  return ((address.s_addr ^ match.address().s_addr) & compared) == 0;
}

// A byte of the IPv4 header; beyond all bytes where there is none.
int Ipv4Byte(const Frame& frame, const Fields& fields, size_t at) {
  return fields.ipv4 && *fields.ipv4 + at < frame.size() ? frame[*fields.ipv4 + at] : 0x1000;
}

bool MatchHolds(const Match& match, const Frame& frame, const Fields& fields) {
  if (const auto* m = dynamic_cast<const MatchDstMac*>(&match)) return MacMatches(*m, frame, 0);
  if (const auto* m = dynamic_cast<const MatchSrcMac*>(&match)) return MacMatches(*m, frame, 6);
  if (const auto* m = dynamic_cast<const MatchTPID*>(&match)) {
    return fields.after_source == m->value();
  }
  if (const auto* m = dynamic_cast<const MatchExternalVlanId*>(&match)) {
    return fields.tci && *fields.tci % 4096 == m->value();
  }
  if (const auto* m = dynamic_cast<const MatchPcp*>(&match)) {
    return fields.tci && *fields.tci / 8192 == m->value();
  }
  if (const auto* m = dynamic_cast<const MatchDSCP*>(&match)) {
    return Ipv4Byte(frame, fields, 1) / 4 == m->value();
  }
  if (const auto* m = dynamic_cast<const MatchToS*>(&match)) {
    return Ipv4Byte(frame, fields, 1) == m->value();
  }
  if (const auto* m = dynamic_cast<const MatchSrcIPv4*>(&match)) {
    return Ipv4Matches(*m, frame, fields.ipv4, 12);
  }
  if (const auto* m = dynamic_cast<const MatchDstIPv4*>(&match)) {
    return Ipv4Matches(*m, frame, fields.ipv4, 16);
  }
  if (const auto* m = dynamic_cast<const MatchIpProtocol*>(&match)) {
    return Ipv4Byte(frame, fields, 9) == m->value();
  }
  if (const auto* m = dynamic_cast<const MatchDstL4Port*>(&match)) {
    return fields.l4_port == m->value();
  }
  return false;
}

}  // namespace

bool ReferenceMatches(const FiltersEntry& entry, const Frame& frame) {
  const Fields fields = Parse(frame);
  return std::all_of(entry.getMatches().begin(), entry.getMatches().end(),
                     [&](const auto& match) { return MatchHolds(*match, frame, fields); });
}

const FiltersEntry* ReferenceDecider(const FiltersGroup& group, limid_t port, const Frame& frame) {
  const FiltersEntry* decider = nullptr;
  for (const auto& [id, entry] : group.getEntriesRef()) {
    const auto& ports = entry.getMatch<MatchIngressPorts>()->ports();
    if (std::find(ports.begin(), ports.end(), port) == ports.end()) continue;
    if (!ReferenceMatches(entry, frame)) continue;
    if (decider == nullptr || entry.getPriority() < decider->getPriority()) decider = &entry;
  }
  return decider;
}

std::optional<Frame> ReferenceFilter(const std::vector<const FiltersGroup*>& groups, limid_t port,
                                     Frame frame) {
  for (const FiltersGroup* group : groups) {
    const FiltersEntry* entry = ReferenceDecider(*group, port, frame);
    if (entry == nullptr) continue;
    if (entry->findAction(FILTERS_ACTION_DENY) != nullptr) return std::nullopt;
    const auto* set_pcp = entry->getAction<ActionSetPcpAndQueue>();
    if (set_pcp != nullptr && IsTag(At16(frame, 12))) {
      frame[14] = static_cast<uint8_t>((frame[14] & 0x1f) | set_pcp->pcp() << 5);
    }
  }
  return frame;
}

}  // namespace host
