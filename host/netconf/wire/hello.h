// The <hello> exchange (RFC 6241 section 8.1).
#ifndef HOST_NETCONF_WIRE_HELLO_H_
#define HOST_NETCONF_WIRE_HELLO_H_

#include <cstdint>
#include <string>
#include <vector>

#include "host/xml/generic_xml.h"

namespace host {

inline constexpr char kBase10[] = "urn:ietf:params:netconf:base:1.0";
inline constexpr char kBase11[] = "urn:ietf:params:netconf:base:1.1";

// The capabilities of a server whose schema is `context`: protocol versions, optional features and
// the modules (RFC 6241 section 8, RFC 6020 section 5.6.4).
std::vector<std::string> ServerCapabilities(const ly_ctx* context);

// Identifies the modules of `context` (RFC 8525); another set of modules has another.
std::string YangLibraryContentId(const ly_ctx* context);

// The hello of a server.
std::string ServerHello(uint32_t session_id, const std::vector<std::string>& capabilities);
// The hello of a client.
std::string ClientHello(const std::vector<std::string>& capabilities);

struct PeerHello {
  std::vector<std::string> capabilities;
  uint32_t session_id = 0;  // 0: none

  bool Has(const std::string& capability) const;
};

// Reads a peer's hello. False with the reason in `error` when it is none.
bool ParseHello(std::string message, const GenericXml& xml, PeerHello* hello, std::string* error);

}  // namespace host

#endif  // HOST_NETCONF_WIRE_HELLO_H_
