// The words of entries: see match_words.h.
#include "tools/client/match_words.h"

#include "tools/client/data.h"

namespace client {

using Kind = MatchWord::Kind;

const std::vector<MatchWord>& MatchWords() {
  static const std::vector<MatchWord> kWords = {
      {"dst-mac", "dmac", "destination-mac-address", Kind::kMac},
      {"src-mac", "smac", "source-mac-address", Kind::kMac},
      {"ethertype", "ether", "ethertype"},
      {"vlan", "vlan", "vlan"},
      {"pcp", "pcp", "pcp"},
      {"dscp", "dscp", "dscp"},
      {"tos", "tos", "tos"},
      {"src-ip", "src", "source-ipv4-address", Kind::kIpv4},
      {"dst-ip", "dst", "destination-ipv4-address", Kind::kIpv4},
      {"protocol", "proto", "ip-protocol"},
      {"dst-port", "dport", "destination-port"},
  };
  return kWords;
}

std::string MaskOf(const MatchWord& word) { return std::string(word.node) + "-mask"; }

std::string MatchText(const lyd_node* match) {
  std::string text;
  for (const MatchWord& word : MatchWords()) {
    const lyd_node* node = FindChild(match, word.node);
    while (lyd_child(node) != nullptr) node = lyd_child(node);  // an address is wrapped in its form
    if (node == nullptr) continue;
    const std::string mask = word.kind == Kind::kMac ? ChildText(match, MaskOf(word)) : "";
    text += (text.empty() ? "" : " ") + std::string(word.word) + " " +
            std::string(host::XmlText(node)) + (mask.empty() ? "" : "/" + mask);
  }
  return text.empty() ? "any" : text;
}

std::string ActionText(const lyd_node* action) {
  const lyd_node* handling = lyd_child(FindChild(action, "packet-handling"));
  std::string text = handling == nullptr ? "" : std::string(host::XmlName(handling));
  const std::string pcp = ChildText(FindChild(action, "set"), "pcp");
  if (!pcp.empty()) text += (text.empty() ? "set-pcp " : ", set-pcp ") + pcp;
  return text.empty() ? "none" : text;
}

}  // namespace client
