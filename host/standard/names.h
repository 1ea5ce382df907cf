// Names that the standards give to numbers.
#ifndef HOST_STANDARD_NAMES_H_
#define HOST_STANDARD_NAMES_H_

#include <cstdint>
#include <optional>
#include <string_view>

namespace host::standard {

// EtherTypes of the module ietf-ethertypes (in an appendix of RFC 8519).
std::optional<uint16_t> EthertypeNamed(std::string_view name);
// Identities of ETHERTYPE and IP_PROTOCOL in openconfig-packet-match-types.
std::optional<uint16_t> OpenConfigEthertype(std::string_view identity);
std::optional<uint8_t> OpenConfigProtocol(std::string_view identity);
// Protocols by IANA's names, in lower case: what a protocol set of RFC 9899 may have.
std::optional<uint8_t> ProtocolNamed(std::string_view name);

}  // namespace host::standard

#endif  // HOST_STANDARD_NAMES_H_
