// Filter entries as texts.
#include "tests/support/scripted_platform.h"

namespace acl_test {
namespace {

using namespace FiltersCommon;

std::string Word(const ether_addr& address) {
  return HexText(address.ether_addr_octet, sizeof address.ether_addr_octet);
}

std::string Word(const in_addr& address) { return AddressText(address); }

template <filtersMatch_t Kind, class T, unsigned int Max, int Tag>
std::string Word(const NumberMatch<Kind, T, Max, Tag>& match) {
  return std::to_string(match.value());
}

template <filtersMatch_t Kind, class Address>
std::string Word(const AddressMatch<Kind, Address>& match) {
  return Word(match.address()) + (match.mask() ? " mask " + Word(*match.mask()) : "");
}

template <class T>
void Add(const FiltersEntry& entry, const char* name, std::string* text) {
  if (const T* match = entry.getMatch<T>()) *text += name + Word(*match);
}

}  // namespace

std::string Describe(const FiltersEntry& entry) {
  std::string text = std::to_string(entry.getId()) + '/' + std::to_string(entry.getPriority());
  if (const auto* ports = entry.getMatch<MatchIngressPorts>()) {
    for (limid_t port : ports->ports()) text += " port " + std::to_string(port);
  }
  Add<MatchExternalVlanId>(entry, " vlan ", &text);
  Add<MatchTPID>(entry, " tpid ", &text);
  Add<MatchDstMac>(entry, " dst-mac ", &text);
  Add<MatchDstL4Port>(entry, " dst-port ", &text);
  Add<MatchSrcMac>(entry, " src-mac ", &text);
  Add<MatchSrcIPv4>(entry, " src-ip ", &text);
  Add<MatchDstIPv4>(entry, " dst-ip ", &text);
  Add<MatchPcp>(entry, " pcp ", &text);
  Add<MatchIpProtocol>(entry, " protocol ", &text);
  Add<MatchDSCP>(entry, " dscp ", &text);
  Add<MatchToS>(entry, " tos ", &text);
  text += " ->";
  if (entry.findAction(ActionPermit::kKind) != nullptr) text += " permit";
  if (entry.findAction(ActionDeny::kKind) != nullptr) text += " deny";
  if (const auto* set_pcp = entry.getAction<ActionSetPcpAndQueue>()) {
    text += " set-pcp " + std::to_string(set_pcp->pcp());
  }
  return text;
}

Lines Describe(const FiltersGroup& group) {
  Lines lines;
  for (const auto& [id, entry] : group.getEntriesRef()) lines.push_back(Describe(entry));
  return lines;
}

}  // namespace acl_test
