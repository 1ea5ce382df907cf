// Writers of the standards' documents, from lists that hold nothing but what the standard has
// (ToAccessLists() sees to that) and, unless standard_only, what acl-app-standard adds to it.
#ifndef HOST_STANDARD_WRITERS_H_
#define HOST_STANDARD_WRITERS_H_

#include "host/standard/acl.h"
#include "host/standard/document.h"

namespace host::standard {

// ietf-access-control-list (RFC 8519); with `enhanced` VLANs as ietf-acl-enh has them (RFC 9899),
// where that is possible.
void WriteRfc8519(const AccessLists& lists, bool enhanced, Document* document);

// openconfig-acl. Nothing of acl-app-standard has a place there.
void WriteOpenConfig(const AccessLists& lists, Document* document);

}  // namespace host::standard

#endif  // HOST_STANDARD_WRITERS_H_
