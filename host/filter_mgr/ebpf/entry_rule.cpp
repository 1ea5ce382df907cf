#include "host/filter_mgr/ebpf/entry_rule.h"

#include <arpa/inet.h>

#include "host/filter_mgr/ebpf/program/shared.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

// Where the fields are in the key's words (classifier/layout.h).
constexpr int kMacShift = 16, kSourceIpShift = 32, kTosShift = 16, kProtocolShift = 24;
constexpr uint64_t kVidBits = 0x0fff, kPcpBits = 7 << kPcpShift;

class KeyBuilder {
 public:
  explicit KeyBuilder(classifier::Rule* rule) : rule_(rule) {}

  // False for a match that is not known.
  bool Add(const Match& match);

 private:
  void Compare(int word, uint64_t value, uint64_t mask) {
    rule_->mask.word[word] |= mask;
    rule_->value.word[word] |= value & mask;
  }
  // Only frames that have this match.
  void Require(uint64_t has) { Compare(3, has, has); }
  template <class M>
  void AddMac(const Match& match, int word) {
    const auto& mac = static_cast<const M&>(match);
    uint64_t value = 0, mask = 0;
    for (int i = 0; i < ETH_ALEN; ++i) {
      const uint8_t ignored = mac.mask() ? mac.mask()->ether_addr_octet[i] : 0;
      value = value << 8 | mac.address().ether_addr_octet[i];
      mask = mask << 8 | static_cast<uint8_t>(~ignored);
    }
    Compare(word, value << kMacShift, mask << kMacShift);
    if (mask != 0) Require(FILTER_HAS_ETHERNET);
  }
  template <class M>
  void AddIpv4(const Match& match, int shift, uint64_t has) {
    const auto& ipv4 = static_cast<const M&>(match);
    const in_addr mask = ipv4.mask().value_or(in_addr{INADDR_BROADCAST});
    Compare(2, uint64_t{ntohl(ipv4.address().s_addr)} << shift,
            uint64_t{ntohl(mask.s_addr)} << shift);
    Require(has);
  }
  void AddTag(uint64_t value, uint64_t mask) {
    Compare(1, value, mask);
    Require(CLS_HAS_TAG);
  }
  void AddIpByte(uint64_t value, uint64_t mask, int shift, uint64_t has) {
    Compare(3, value << shift, mask << shift);
    Require(has);
  }

  classifier::Rule* rule_;
};

bool KeyBuilder::Add(const Match& match) {
  switch (match.kind()) {
    case FILTERS_MATCH_DST_MAC:
      AddMac<MatchDstMac>(match, 0);
      return true;
    case FILTERS_MATCH_SRC_MAC:
      AddMac<MatchSrcMac>(match, 1);
      return true;
    case FILTERS_MATCH_TPID:
      Compare(0, static_cast<const MatchTPID&>(match).value(), 0xffff);
      Require(FILTER_HAS_ETHERNET);
      return true;
    case FILTERS_MATCH_EXTERNAL_VLAN_ID:
      AddTag(static_cast<const MatchExternalVlanId&>(match).value(), kVidBits);
      return true;
    case FILTERS_MATCH_PCP:
      AddTag(uint64_t{static_cast<const MatchPcp&>(match).value()} << kPcpShift, kPcpBits);
      return true;
    case FILTERS_MATCH_SRC_IPV4:
      AddIpv4<MatchSrcIPv4>(match, kSourceIpShift, FILTER_HAS_SRC_IP);
      return true;
    case FILTERS_MATCH_DST_IPV4:
      AddIpv4<MatchDstIPv4>(match, 0, CLS_HAS_IPV4);
      return true;
    case FILTERS_MATCH_TOS:
      if (const auto* dscp = dynamic_cast<const MatchDSCP*>(&match)) {
        AddIpByte(static_cast<uint64_t>(dscp->value()) << 2, 0xfc, kTosShift, FILTER_HAS_TOS);
      } else {
        AddIpByte(static_cast<const MatchToS&>(match).value(), 0xff, kTosShift, FILTER_HAS_TOS);
      }
      return true;
    case FILTERS_MATCH_IP_PROTOCOL:
      AddIpByte(static_cast<const MatchIpProtocol&>(match).value(), 0xff, kProtocolShift,
                FILTER_HAS_PROTOCOL);
      return true;
    case FILTERS_MATCH_DST_L4_PORT:
      Compare(3, static_cast<const MatchDstL4Port&>(match).value(), 0xffff);
      Require(CLS_HAS_PORT);
      return true;
    default:
      return false;
  }
}

}  // namespace

std::optional<classifier::Rule> RuleOfEntry(const FiltersEntry& entry, std::string* reason) {
  classifier::Rule rule;
  KeyBuilder key(&rule);
  for (const auto& match : entry.getMatches()) {
    if (key.Add(*match)) continue;
    *reason = "its match of kind " + std::to_string(match->kind()) + " is not known";
    return std::nullopt;
  }
  if (entry.findAction(FILTERS_ACTION_DENY) != nullptr) {
    rule.action = CLS_DENY;
  } else if (const auto* set_pcp = entry.getAction<ActionSetPcpAndQueue>()) {
    rule.action = CLS_SET_PCP;
    rule.pcp = set_pcp->pcp();
  }
  return rule;
}

bool SameEffect(const classifier::Rule& a, const classifier::Rule& b) {
  return a.value == b.value && a.mask == b.mask && a.action == b.action && a.pcp == b.pcp;
}

}  // namespace host
