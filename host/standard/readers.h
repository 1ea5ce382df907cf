// Readers of the standards' documents. Each takes the statements of its models, by tables; a
// statement that is in none of them becomes a problem, so that whatever else a document has is told
// of and never passed over. Only state (counters) is.
#ifndef HOST_STANDARD_READERS_H_
#define HOST_STANDARD_READERS_H_

#include <cstddef>
#include <string>

#include "host/standard/acl.h"
#include "host/standard/document.h"

namespace host::standard {

// How many entries one may become when a condition has to be taken apart.
inline constexpr size_t kMostAlternatives = 256;

// ietf-access-control-list (RFC 8519), with the augmentations of ietf-acl-enh (RFC 9899) and of
// acl-app-standard. Empty, or why the document is none.
std::string ReadRfc8519(const Document& document, size_t most_alternatives, AccessLists* lists);

// openconfig-acl, with the sets of openconfig-defined-sets.
std::string ReadOpenConfig(const Document& document, size_t most_alternatives, AccessLists* lists);

}  // namespace host::standard

#endif  // HOST_STANDARD_READERS_H_
