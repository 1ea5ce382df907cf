// The parts of the reader of ietf-access-control-list (read_rfc8519.cpp): the sets that entries
// name, and the conditions of an entry.
#ifndef HOST_STANDARD_RFC8519_PARTS_H_
#define HOST_STANDARD_RFC8519_PARTS_H_

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/standard/statements.h"

namespace host::standard {

// The name of a node of ietf-access-control-list or ietf-acl-enh, or that of a node of
// acl-app-standard with "own:" in front.
std::string_view NameInRfc8519(const Node& node);

// The ports that port-range-or-operator says (RFC 8519, section 4.2); nothing where it says none.
std::optional<Ranges> PortsOfRfc8519(const Node& node);

// The container defined-sets of RFC 9899; what there is to tell of it goes into the lists.
DefinedSets ReadRfc9899Sets(const Node& sets, const std::string& path, AccessLists* lists);

// The container `matches` of an entry of a list of that kind; `path` is its own.
void ReadRfc8519Matches(const Node& matches, const std::string& path, Kind kind, Reading* reading);

}  // namespace host::standard

#endif  // HOST_STANDARD_RFC8519_PARTS_H_
