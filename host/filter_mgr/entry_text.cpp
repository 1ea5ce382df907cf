#include "host/filter_mgr/entry_text.h"

#include <arpa/inet.h>

#include <cstdio>

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

void MacText(const ether_addr& mac, bool complement, char (&text)[18]) {
  const unsigned int flip = complement ? 0xff : 0;
  const auto& b = mac.ether_addr_octet;
  snprintf(text, sizeof(text), "%02x:%02x:%02x:%02x:%02x:%02x", b[0] ^ flip, b[1] ^ flip,
           b[2] ^ flip, b[3] ^ flip, b[4] ^ flip, b[5] ^ flip);
}

template <class M>
void SinkMac(const Match& match, const char* leaf, const char* mask_leaf, const LeafSink& sink) {
  const auto& mac = static_cast<const M&>(match);
  char text[18];
  MacText(mac.address(), false, text);
  sink(leaf, text);
  if (!mac.mask()) return;
  MacText(*mac.mask(), true, text);
  sink(mask_leaf, text);
}

// The length of a mask of leading ones, -1 for one with holes.
int PrefixLength(in_addr mask) {
  const uint32_t bits = ntohl(mask.s_addr);
  const int length = __builtin_popcount(bits);
  const uint32_t leading = length == 0 ? 0 : ~uint32_t{0} << (32 - length);
  return bits == leading ? length : -1;
}

template <class M>
void SinkIpv4(const Match& match, const char* leaf, const LeafSink& sink) {
  const auto& ipv4 = static_cast<const M&>(match);
  char text[2 * INET_ADDRSTRLEN];
  inet_ntop(AF_INET, &ipv4.address(), text, INET_ADDRSTRLEN);
  if (ipv4.mask()) {
    char* const end = text + std::char_traits<char>::length(text);
    const int length = PrefixLength(*ipv4.mask());
    if (length >= 0) {
      snprintf(end, 4, "/%d", length);
    } else {
      *end = '/';
      inet_ntop(AF_INET, &*ipv4.mask(), end + 1, INET_ADDRSTRLEN);
    }
  }
  sink(leaf, text);
}

void SinkNumber(unsigned int value, const char* leaf, const char* format, const LeafSink& sink) {
  char text[16];
  snprintf(text, sizeof(text), format, value);
  sink(leaf, text);
}

template <class M>
unsigned int Value(const Match& match) {
  return static_cast<const M&>(match).value();
}

void SinkMatch(const Match& match, const LeafSink& sink) {
  switch (match.kind()) {
    case FILTERS_MATCH_EXTERNAL_VLAN_ID:
      return SinkNumber(Value<MatchExternalVlanId>(match), "vlan", "%u", sink);
    case FILTERS_MATCH_TPID:
      return SinkNumber(Value<MatchTPID>(match), "ethertype", "0x%04x", sink);
    case FILTERS_MATCH_DST_MAC:
      return SinkMac<MatchDstMac>(match, "destination-mac-address", "destination-mac-address-mask",
                                  sink);
    case FILTERS_MATCH_DST_L4_PORT:
      return SinkNumber(Value<MatchDstL4Port>(match), "destination-port", "%u", sink);
    case FILTERS_MATCH_SRC_MAC:
      return SinkMac<MatchSrcMac>(match, "source-mac-address", "source-mac-address-mask", sink);
    case FILTERS_MATCH_SRC_IPV4:
      return SinkIpv4<MatchSrcIPv4>(match, "source-ipv4-address", sink);
    case FILTERS_MATCH_DST_IPV4:
      return SinkIpv4<MatchDstIPv4>(match, "destination-ipv4-address", sink);
    case FILTERS_MATCH_PCP:
      return SinkNumber(Value<MatchPcp>(match), "pcp", "%u", sink);
    case FILTERS_MATCH_IP_PROTOCOL:
      return SinkNumber(Value<MatchIpProtocol>(match), "ip-protocol", "%u", sink);
    case FILTERS_MATCH_TOS:
      if (const auto* dscp = dynamic_cast<const MatchDSCP*>(&match)) {
        return SinkNumber(dscp->value(), "dscp", "%u", sink);
      }
      return SinkNumber(Value<MatchToS>(match), "tos", "%u", sink);
    case FILTERS_MATCH_INGRESS_PORTS:
    case FILTERS_MATCH_NONE:
      return;
  }
}

}  // namespace

void ForEachMatchLeaf(const FiltersEntry& entry, const LeafSink& sink) {
  for (const auto& match : entry.getMatches()) SinkMatch(*match, sink);
}

void ForEachActionLeaf(const FiltersEntry& entry, const LeafSink& sink) {
  for (const auto& action : entry.getActions()) {
    switch (action->kind()) {
      case FILTERS_ACTION_PERMIT:
        sink("permit", "");
        break;
      case FILTERS_ACTION_DENY:
        sink("deny", "");
        break;
      case FILTERS_ACTION_SET_PCP_AND_QUEUE:
        SinkNumber(static_cast<const ActionSetPcpAndQueue&>(*action).pcp(), "set-pcp", "%u", sink);
        break;
    }
  }
}

namespace {

// Adds leaves to a text.
LeafSink AppendTo(std::string* text) {
  return [text, first = true](const char* leaf, const char* value) mutable {
    if (!first) *text += ", ";
    first = false;
    *text += leaf;
    if (*value != '\0') text->append(" ").append(value);
  };
}

}  // namespace

std::string MatchText(const Match& match) {
  std::string text;
  SinkMatch(match, AppendTo(&text));
  return text;
}

std::string EntryText(const FiltersEntry& entry) {
  std::string text;
  ForEachMatchLeaf(entry, AppendTo(&text));
  text += text.empty() ? "any frame: " : ": ";
  ForEachActionLeaf(entry, AppendTo(&text));
  if (entry.getActions().empty()) text += "no action";
  return text;
}

}  // namespace host
