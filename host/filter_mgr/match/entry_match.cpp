#include "host/filter_mgr/match/entry_match.h"

#include <arpa/inet.h>

#include <algorithm>

#include "host/filter_mgr/entry_order.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

// The mask of a MAC match has ones where bits do not matter.
template <class M>
bool MacHolds(const Match& match, const ether_addr& have) {
  const auto& mac = static_cast<const M&>(match);
  for (size_t i = 0; i < ETH_ALEN; ++i) {
    const unsigned int ignored = mac.mask() ? mac.mask()->ether_addr_octet[i] : 0;
    const unsigned int differs =
        have.ether_addr_octet[i] ^ static_cast<unsigned int>(mac.address().ether_addr_octet[i]);
    if ((differs & ~ignored) != 0) return false;
  }
  return true;
}

template <class M>
bool Ipv4Holds(const Match& match, const std::optional<uint32_t>& have) {
  const auto& ipv4 = static_cast<const M&>(match);
  const uint32_t compared = ipv4.mask() ? ntohl(ipv4.mask()->s_addr) : ~uint32_t{0};
  return have && ((*have ^ ntohl(ipv4.address().s_addr)) & compared) == 0;
}

template <class M, class Field>
bool ValueHolds(const Match& match, const std::optional<Field>& have) {
  return have && *have == static_cast<const M&>(match).value();
}

bool IsFor(const FiltersEntry& entry, limid_t port) {
  const auto* match =
      static_cast<const MatchIngressPorts*>(entry.findMatch(FILTERS_MATCH_INGRESS_PORTS));
  if (match == nullptr) return false;
  const auto& ports = match->ports();
  return std::find(ports.begin(), ports.end(), port) != ports.end();
}

}  // namespace

bool MatchHolds(const Match& match, const FrameFields& fields) {
  switch (match.kind()) {
    case FILTERS_MATCH_DST_MAC:
      return MacHolds<MatchDstMac>(match, fields.destination);
    case FILTERS_MATCH_SRC_MAC:
      return MacHolds<MatchSrcMac>(match, fields.source);
    case FILTERS_MATCH_TPID:
      return fields.after_source == static_cast<const MatchTPID&>(match).value();
    case FILTERS_MATCH_EXTERNAL_VLAN_ID:
      return ValueHolds<MatchExternalVlanId>(match, fields.vlan());
    case FILTERS_MATCH_PCP:
      return ValueHolds<MatchPcp>(match, fields.pcp());
    case FILTERS_MATCH_SRC_IPV4:
      return Ipv4Holds<MatchSrcIPv4>(match, fields.source_ip);
    case FILTERS_MATCH_DST_IPV4:
      return Ipv4Holds<MatchDstIPv4>(match, fields.destination_ip);
    case FILTERS_MATCH_TOS:
      if (const auto* dscp = dynamic_cast<const MatchDSCP*>(&match)) {
        return fields.tos && *fields.tos >> 2 == dscp->value();
      }
      return ValueHolds<MatchToS>(match, fields.tos);
    case FILTERS_MATCH_IP_PROTOCOL:
      return ValueHolds<MatchIpProtocol>(match, fields.protocol);
    case FILTERS_MATCH_DST_L4_PORT:
      return ValueHolds<MatchDstL4Port>(match, fields.destination_port);
    default:
      return false;
  }
}

bool EntryMatches(const FiltersEntry& entry, const FrameFields& fields) {
  const auto& matches = entry.getMatches();
  return std::all_of(matches.begin(), matches.end(),
                     [&fields](const auto& match) { return MatchHolds(*match, fields); });
}

const FiltersEntry* FindDecider(const FiltersGroup& group, limid_t port, const FrameFields& fields,
                                const std::function<void(const FiltersEntry&)>& before) {
  for (const FiltersEntry* entry : EntriesInOrder(group)) {
    if (!IsFor(*entry, port)) continue;
    if (EntryMatches(*entry, fields)) return entry;
    if (before) before(*entry);
  }
  return nullptr;
}

Effect EffectOf(const FiltersEntry& entry) {
  Effect effect;
  effect.drop = entry.findAction(FILTERS_ACTION_DENY) != nullptr;
  const auto* set_pcp = entry.getAction<ActionSetPcpAndQueue>();
  if (!effect.drop && set_pcp != nullptr) effect.pcp = set_pcp->pcp();
  return effect;
}

void ApplyEffect(const Effect& effect, Frame* frame) {
  constexpr size_t kTci = 14;
  if (!effect.pcp || !ParseFrame(*frame).tci) return;
  (*frame)[kTci] = static_cast<uint8_t>(((*frame)[kTci] & 0x1f) | *effect.pcp << 5);
}

}  // namespace host
