// Filter entries as texts.
#include "tests/support/scripted_platform.h"

namespace acl_test {
namespace {

std::string Word(const ether_addr& address) {
  return HexText(address.ether_addr_octet, sizeof address.ether_addr_octet);
}

std::string Word(const in_addr& address) { return AddressText(address); }

template <FiltersCommon::filtersMatch_t Kind, class T, unsigned int Max, int Tag>
std::string Word(const FiltersCommon::NumberMatch<Kind, T, Max, Tag>& match) {
  return std::to_string(match.value());
}

template <FiltersCommon::filtersMatch_t Kind, class Address>
std::string Word(const FiltersCommon::AddressMatch<Kind, Address>& match) {
  return Word(match.address()) + (match.mask() ? " mask " + Word(*match.mask()) : "");
}

template <class T>
void Add(const FiltersCommon::FiltersEntry& entry, const char* name, std::string* text) {
  if (const T* match = entry.getMatch<T>()) *text += name + Word(*match);
}

}  // namespace

std::string Describe(const FiltersCommon::FiltersEntry& entry) {
  std::string text = std::to_string(entry.getId()) + '/' + std::to_string(entry.getPriority());
  if (const auto* ports = entry.getMatch<FiltersCommon::MatchIngressPorts>()) {
    for (limid_t port : ports->ports()) text += " port " + std::to_string(port);
  }
  Add<FiltersCommon::MatchExternalVlanId>(entry, " vlan ", &text);
  Add<FiltersCommon::MatchTPID>(entry, " tpid ", &text);
  Add<FiltersCommon::MatchDstMac>(entry, " dst-mac ", &text);
  Add<FiltersCommon::MatchDstL4Port>(entry, " dst-port ", &text);
  Add<FiltersCommon::MatchSrcMac>(entry, " src-mac ", &text);
  Add<FiltersCommon::MatchSrcIPv4>(entry, " src-ip ", &text);
  Add<FiltersCommon::MatchDstIPv4>(entry, " dst-ip ", &text);
  Add<FiltersCommon::MatchPcp>(entry, " pcp ", &text);
  Add<FiltersCommon::MatchIpProtocol>(entry, " protocol ", &text);
  Add<FiltersCommon::MatchDSCP>(entry, " dscp ", &text);
  Add<FiltersCommon::MatchToS>(entry, " tos ", &text);
  text += " ->";
  if (entry.findAction(FiltersCommon::ActionPermit::kKind) != nullptr) text += " permit";
  if (entry.findAction(FiltersCommon::ActionDeny::kKind) != nullptr) text += " deny";
  if (const auto* set_pcp = entry.getAction<FiltersCommon::ActionSetPcpAndQueue>()) {
    text += " set-pcp " + std::to_string(set_pcp->pcp());
  }
  return text;
}

Lines Describe(const FiltersCommon::FiltersGroup& group) {
  Lines lines;
  for (const auto& [id, entry] : group.getEntriesRef()) lines.push_back(Describe(entry));
  return lines;
}

}  // namespace acl_test
