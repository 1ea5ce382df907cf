#include "tests/packets/frames.h"

#include <arpa/inet.h>

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

using Bytes = std::vector<uint8_t>;

// Pools of values; matches and frames draw from the same.
constexpr uint8_t kMacEnds[] = {0x01, 0x02, 0x11};
constexpr uint16_t kVids[] = {0, 5, 100, 4095};
constexpr uint8_t kPcps[] = {0, 3, 7};
constexpr uint8_t kToses[] = {0x00, 0xb8, 0xb9};
constexpr uint32_t kAddresses[] = {0x0a010203, 0x0a010303, 0xc0a80001};
constexpr uint16_t kPorts[] = {22, 80, 65535};

template <class T, size_t N>
T Pick(const T (&pool)[N], unsigned int variant) {
  return pool[variant % N];
}

void Append(Bytes* bytes, const Bytes& more) {
  bytes->insert(bytes->end(), more.begin(), more.end());
}

void Append16(Bytes* bytes, unsigned int value) {
  bytes->push_back(static_cast<uint8_t>(value >> 8));
  bytes->push_back(static_cast<uint8_t>(value));
}

void Append32(Bytes* bytes, uint32_t value) {
  Append16(bytes, value >> 16);
  Append16(bytes, value & 0xffff);
}

// Ports, and zeroes as the rest of a TCP or UDP header.
Bytes L4(unsigned int variant) {
  Bytes bytes;
  Append16(&bytes, 22);  // the source port must not be taken for the destination
  Append16(&bytes, Pick(kPorts, variant));
  bytes.resize(24);
  return bytes;
}

Bytes Ipv4Packet(uint8_t protocol, unsigned int variant, uint16_t fragment, bool options) {
  const Bytes payload = L4(variant);
  const size_t header = options ? 28 : 20;
  Bytes bytes = {static_cast<uint8_t>(0x40 | header / 4), Pick(kToses, variant)};
  Append16(&bytes, static_cast<unsigned int>(header + payload.size()));
  Append16(&bytes, 1);
  Append16(&bytes, fragment);
  Append(&bytes, {64, protocol, 0, 0});
  Append32(&bytes, Pick(kAddresses, variant));
  Append32(&bytes, Pick(kAddresses, variant / 3 + 1));
  if (options) Append(&bytes, {0x94, 4, 0, 0, 1, 1, 1, 1});  // router alert, no-operations
  Append(&bytes, payload);
  return bytes;
}

Bytes Ipv6Packet(const Bytes& extension, uint8_t next, unsigned int variant) {
  const Bytes payload = L4(variant);
  Bytes bytes = {0x60, 0, 0, 0};
  Append16(&bytes, static_cast<unsigned int>(extension.size() + payload.size()));
  Append(&bytes, {next, 64});
  bytes.resize(40, 0x20);
  Append(&bytes, extension);
  Append(&bytes, payload);
  return bytes;
}

// The packet with another byte at `at`.
Bytes With(Bytes packet, size_t at, uint8_t byte) {
  packet[at] = byte;
  return packet;
}

// An authentication header (RFC 4302) of 24 bytes, before a header of kind `next`.
Bytes Authentication(uint8_t next) {
  Bytes bytes = {next, 4};
  bytes.resize(24, 0x51);
  return bytes;
}

Bytes Then(Bytes bytes, const Bytes& more) {
  Append(&bytes, more);
  return bytes;
}

// An IP packet that claims to be longer than it is, by the high byte of its length.
Bytes TooLong(Bytes packet, size_t length_at) {
  packet[length_at] += 4;
  return packet;
}

// The types and payloads that may follow the last tag.
std::vector<std::pair<uint16_t, Bytes>> Payloads(unsigned int v) {
  constexpr uint16_t kIpv4 = 0x0800, kIpv6 = 0x86dd, kMoreFragments = 0x2000;
  constexpr uint8_t kIcmp = 1, kTcp = 6, kUdp = 17, kSctp = 132;
  return {
      {kIpv4, Ipv4Packet(kTcp, v, 0, false)},
      {kIpv4, Ipv4Packet(kUdp, v + 1, 0, true)},
      {kIpv4, Ipv4Packet(kIcmp, v + 2, 0, false)},
      {kIpv4, Ipv4Packet(kSctp, v, 0, false)},
      {kIpv4, Ipv4Packet(kUdp, v, kMoreFragments, false)},
      {kIpv4, Ipv4Packet(kUdp, v, 8, false)},
      {kIpv4, TooLong(Ipv4Packet(kTcp, v, 0, false), 2)},
      {kIpv6, Ipv6Packet({}, kTcp, v)},
      {kIpv6, TooLong(Ipv6Packet({}, kUdp, v), 4)},
      {kIpv6, Ipv6Packet({kUdp, 0, 1, 4, 0, 0, 0, 0}, 0, v)},         // hop-by-hop options
      {kIpv6, Ipv6Packet({kUdp, 0, 0x00, 0x41, 0, 0, 0, 1}, 44, v)},  // a later fragment
      {kIpv6, Ipv6Packet({}, 58, v)},                                 // ICMPv6
      {kIpv6, Ipv6Packet(Authentication(kTcp), 51, v)},
      {kIpv6, Ipv6Packet(Then(Authentication(60), {kUdp, 0, 1, 4, 0, 0, 0, 0}), 51, v)},
      {kIpv4, With(Ipv4Packet(kUdp, v, 0, false), 0, 0x44)},  // a header shorter than headers are
      {kIpv4, With(Ipv4Packet(kUdp, v, 0, false), 0, 0x65)},  // another version
      {kIpv6, With(Ipv6Packet({}, kUdp, v), 0, 0x40)},
      {kIpv4, With(Ipv4Packet(kUdp, v, 0, false), 3, 20)},  // its payload is the frame's padding
      {kIpv4, With(Ipv4Packet(kUdp, v, 0, false), 3, 19)},  // its header is longer than itself
      {0x0806, Bytes(28, 0x06)},                            // ARP
      {0x0040, Bytes(64, 0x42)},                            // a length
      {0x88b5, Bytes(46, 0x11)},                            // experimental
  };
}

void AppendTag(Bytes* bytes, uint16_t tpid, unsigned int variant) {
  Append16(bytes, tpid);
  const bool dei = variant % 2 == 1;
  Append16(bytes, static_cast<unsigned int>(Pick(kPcps, variant) << 13 | (dei ? 0x1000 : 0) |
                                            Pick(kVids, variant / 2)));
}

ether_addr Mac(uint8_t end) { return {{0x02, 0, 0, 0, 0, end}}; }

}  // namespace

std::vector<Frame> AllFrames() {
  const std::vector<std::vector<uint16_t>> taggings = {
      {}, {0x8100}, {0x88a8}, {0x8100, 0x8100}, {0x88a8, 0x8100}, {0x8100}, {0x88a8, 0x88a8}};
  std::vector<Frame> frames;
  unsigned int v = 0;
  for (const auto& tagging : taggings) {
    for (unsigned int round = 0; round < 2; ++round) {
      for (const auto& [type, payload] : Payloads(v)) {
        ++v;
        Frame frame = {0x02, 0, 0, 0, 0, Pick(kMacEnds, v),
                       0x02, 0, 0, 0, 0, Pick(kMacEnds, v / 3)};
        for (uint16_t tpid : tagging) AppendTag(&frame, tpid, v + (tpid == 0x88a8 ? 1 : 0));
        Append16(&frame, type);
        Append(&frame, payload);
        frame.resize(std::max<size_t>(frame.size(), 60) + PacketLab::kIdSize);
        frames.push_back(frame);
      }
    }
  }
  return frames;
}

void AddMatch(FiltersEntry* entry, int kind, unsigned int v) {
  const ether_addr half_ignored = {{0, 0xff, 0, 0xff, 0, 0xf0}};
  const in_addr masks[] = {{htonl(0xffffff00)}, {htonl(0xff000000)}, {htonl(0xff00ff00)}, {0}};
  const in_addr address = {htonl(Pick(kAddresses, v))};
  const bool masked = v % 3 == 2;
  switch (kind) {
    case 0:
      return void(masked ? entry->setMatch(MatchDstMac(Mac(Pick(kMacEnds, v)), half_ignored))
                         : entry->setMatch(MatchDstMac(Mac(Pick(kMacEnds, v)))));
    case 1:
      return void(masked ? entry->setMatch(MatchSrcMac(Mac(Pick(kMacEnds, v)), half_ignored))
                         : entry->setMatch(MatchSrcMac(Mac(Pick(kMacEnds, v)))));
    case 2:
      return void(entry->setMatch(MatchExternalVlanId(Pick(kVids, v))));
    case 3: {
      constexpr uint16_t kTypes[] = {0x8100, 0x0800, 0x88a8, 0x86dd, 0x0806, 0x0040};
      return void(entry->setMatch(MatchTPID(Pick(kTypes, v))));
    }
    case 4:
      return void(entry->setMatch(MatchPcp(Pick(kPcps, v))));
    case 5:
      return void(entry->setMatch(MatchDSCP(Pick(kToses, v) / 4)));
    case 6:
      return void(entry->setMatch(MatchToS(Pick(kToses, v))));
    case 7:
      return void(masked ? entry->setMatch(MatchSrcIPv4(address, Pick(masks, v / 3)))
                         : entry->setMatch(MatchSrcIPv4(address)));
    case 8:
      return void(masked ? entry->setMatch(MatchDstIPv4(address, Pick(masks, v / 3)))
                         : entry->setMatch(MatchDstIPv4(address)));
    case 9: {
      constexpr uint8_t kProtocols[] = {6, 17, 1, 132};
      return void(entry->setMatch(MatchIpProtocol(Pick(kProtocols, v))));
    }
    default:
      return void(entry->setMatch(MatchDstL4Port(Pick(kPorts, v))));
  }
}

void AddAction(FiltersEntry* entry, int kind, unsigned int variant) {
  if (kind == 0) entry->setAction(ActionDeny());
  if (kind == 1) entry->setAction(ActionPermit());
  if (kind == 2) entry->setAction(ActionSetPcpAndQueue(static_cast<uint8_t>(1 + variant % 6)));
}

FiltersEntry RandomEntry(std::mt19937* random) {
  FiltersEntry entry(0);
  for (auto count = (*random)() % 5; count > 0; --count) {
    AddMatch(&entry, static_cast<int>((*random)() % kMatchKinds), (*random)());
  }
  for (int kind = 0; kind < kActionKinds; ++kind) {
    if ((*random)() % 3 == 0) AddAction(&entry, kind, (*random)());
  }
  return entry;
}

}  // namespace host
