#include "bench/rule_frames.h"

#include <arpa/inet.h>

#include <tuple>

namespace bench {
namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout
using host::classifier::Rule;

constexpr uint64_t kVidBits = 0xfff;

ether_addr Mac(uint64_t bits) {
  ether_addr mac{};
  for (int i = 0; i < ETH_ALEN; ++i) {
    mac.ether_addr_octet[i] = static_cast<uint8_t>(bits >> (56 - 8 * i));
  }
  return mac;
}

in_addr Ipv4(uint64_t bits) { return in_addr{htonl(static_cast<uint32_t>(bits))}; }

FiltersEntry EntryOf(const Rule& rule) {
  const auto& [value, mask] = std::tie(rule.value.word, rule.mask.word);
  FiltersEntry entry(0);
  // A mask of MAC addresses tells what is not compared.
  if (mask[0] >> 16 != 0) entry.setMatch(MatchDstMac(Mac(value[0]), Mac(~mask[0])));
  if (mask[1] >> 16 != 0) entry.setMatch(MatchSrcMac(Mac(value[1]), Mac(~mask[1])));
  if ((mask[0] & 0xffff) != 0) entry.setMatch(MatchTPID(static_cast<uint16_t>(value[0])));
  if ((mask[1] & kVidBits) != 0) {
    entry.setMatch(MatchExternalVlanId(static_cast<uint16_t>(value[1] & kVidBits)));
  }
  if (mask[2] >> 32 != 0) {
    entry.setMatch(MatchSrcIPv4(Ipv4(value[2] >> 32), Ipv4(mask[2] >> 32)));
  }
  if (static_cast<uint32_t>(mask[2]) != 0) {
    entry.setMatch(MatchDstIPv4(Ipv4(value[2]), Ipv4(mask[2])));
  }
  if ((mask[3] & 0xff000000) != 0) {
    entry.setMatch(MatchIpProtocol(static_cast<uint8_t>(value[3] >> 24)));
  }
  if ((mask[3] & 0xffff) != 0) entry.setMatch(MatchDstL4Port(static_cast<uint16_t>(value[3])));
  if (rule.action == CLS_DENY) {
    entry.setAction(ActionDeny());
  } else {
    entry.setAction(ActionPermit());
  }
  return entry;
}

void Append(std::vector<uint8_t>* frame, uint64_t value, int bytes) {
  for (int i = bytes - 1; i >= 0; --i) frame->push_back(static_cast<uint8_t>(value >> (8 * i)));
}

}  // namespace

FiltersGroup GroupOf(const std::vector<Rule>& rules) {
  bool link = false;
  for (const Rule& rule : rules) link |= (rule.mask.word[0] | rule.mask.word[1]) != 0;
  FiltersGroup group(link ? 0 : 1);
  group.setStage(FILTERS_GROUP_STAGE_PRE_INGRESS);
  group.setType(link ? FILTERS_GROUP_TYPE_L2 : FILTERS_GROUP_TYPE_L3);
  const MatchIngressPorts port(std::list<limid_t>{0});
  unsigned short id = 0;
  for (const Rule& rule : rules) {
    FiltersEntry entry = EntryOf(rule);
    entry.setId(id);
    entry.setPriority(id++);
    entry.setMatch(port);
    group.insertEntry(entry);
  }
  return group;
}

std::vector<uint8_t> FrameOf(const cls_key& key) {
  constexpr uint64_t kIpv4 = 0x0800, kPacket = 40;  // EtherType; bytes of header and segment
  std::vector<uint8_t> frame;
  Append(&frame, key.word[0] >> 16, ETH_ALEN);
  Append(&frame, key.word[1] >> 16, ETH_ALEN);
  if ((key.word[3] & CLS_HAS_TAG) != 0) {
    Append(&frame, key.word[0], 2);
    Append(&frame, key.word[1], 2);
  }
  Append(&frame, kIpv4, 2);
  Append(&frame, 0x45000000 | kPacket, 4);  // version, header length, total length
  Append(&frame, 0, 4);
  Append(&frame, 64, 1);
  Append(&frame, key.word[3] >> 24, 1);
  Append(&frame, 0, 2);
  Append(&frame, key.word[2], 8);
  Append(&frame, 80, 2);
  Append(&frame, key.word[3], 2);
  frame.resize(64);
  return frame;
}

}  // namespace bench
