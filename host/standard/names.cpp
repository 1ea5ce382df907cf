// Tables of names: see names.h.
#include "host/standard/names.h"

#include <cstddef>

namespace host::standard {
namespace {

struct Name {
  std::string_view name;
  uint16_t number;
};

constexpr Name kEthertypes[] = {{"ipv4", 0x0800},
                                {"arp", 0x0806},
                                {"wlan", 0x0842},
                                {"trill", 0x22f3},
                                {"srp", 0x22ea},
                                {"decnet", 0x6003},
                                {"rarp", 0x8035},
                                {"appletalk", 0x809b},
                                {"aarp", 0x80f3},
                                {"vlan", 0x8100},
                                {"ipx", 0x8137},
                                {"qnx", 0x8204},
                                {"ipv6", 0x86dd},
                                {"efc", 0x8808},
                                {"esp", 0x8809},
                                {"cobranet", 0x8819},
                                {"mpls-unicast", 0x8847},
                                {"mpls-multicast", 0x8848},
                                {"pppoe-discovery", 0x8863},
                                {"pppoe-session", 0x8864},
                                {"intel-ans", 0x886d},
                                {"jumbo-frames", 0x8870},
                                {"homeplug", 0x887b},
                                {"eap", 0x888e},
                                {"profinet", 0x8892},
                                {"hyperscsi", 0x889a},
                                {"aoe", 0x88a2},
                                {"ethercat", 0x88a4},
                                {"provider-bridging", 0x88a8},
                                {"ethernet-powerlink", 0x88ab},
                                {"goose", 0x88b8},
                                {"gse", 0x88b9},
                                {"sv", 0x88ba},
                                {"lldp", 0x88cc},
                                {"sercos", 0x88cd},
                                {"wsmp", 0x88dc},
                                {"homeplug-av-mme", 0x88e1},
                                {"mrp", 0x88e3},
                                {"macsec", 0x88e5},
                                {"pbb", 0x88e7},
                                {"cfm", 0x8902},
                                {"fcoe", 0x8906},
                                {"fcoe-ip", 0x8914},
                                {"roce", 0x8915},
                                {"tte", 0x891d},
                                {"hsr", 0x892f}};

constexpr Name kOpenConfigEthertypes[] = {{"ETHERTYPE_IPV4", 0x0800}, {"ETHERTYPE_ARP", 0x0806},
                                          {"ETHERTYPE_VLAN", 0x8100}, {"ETHERTYPE_IPV6", 0x86dd},
                                          {"ETHERTYPE_MPLS", 0x8847}, {"ETHERTYPE_LLDP", 0x88cc},
                                          {"ETHERTYPE_ROCE", 0x8915}};

constexpr Name kOpenConfigProtocols[] = {
    {"IP_TCP", 6},   {"IP_UDP", 17}, {"IP_ICMP", 1},  {"IP_IGMP", 2},   {"IP_PIM", 103},
    {"IP_RSVP", 46}, {"IP_GRE", 47}, {"IP_AUTH", 51}, {"IP_L2TP", 115}, {"IP_IN_IP", 4}};

constexpr Name kProtocols[] = {{"icmp", 1},  {"igmp", 2},   {"tcp", 6},   {"udp", 17},
                               {"gre", 47},  {"esp", 50},   {"ah", 51},   {"ospf", 89},
                               {"pim", 103}, {"vrrp", 112}, {"sctp", 132}};

template <size_t size>
std::optional<uint16_t> Find(const Name (&table)[size], std::string_view name) {
  for (const Name& entry : table) {
    if (entry.name == name) return entry.number;
  }
  return std::nullopt;
}

}  // namespace

std::optional<uint16_t> EthertypeNamed(std::string_view name) { return Find(kEthertypes, name); }

std::optional<uint16_t> OpenConfigEthertype(std::string_view identity) {
  return Find(kOpenConfigEthertypes, identity);
}

std::optional<uint8_t> OpenConfigProtocol(std::string_view identity) {
  return Find(kOpenConfigProtocols, identity);
}

std::optional<uint8_t> ProtocolNamed(std::string_view name) { return Find(kProtocols, name); }

}  // namespace host::standard
