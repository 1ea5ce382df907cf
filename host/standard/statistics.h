// The standards' counters, from what our entries have hit.
//
// A counter is of an entry of a list on one interface. It is there only where it is known: an entry
// of ours that became several of a list (a port of TCP and of UDP) has none, for nobody counts
// these apart, and neither has an end that the list has and the profile has not.
#ifndef HOST_STANDARD_STATISTICS_H_
#define HOST_STANDARD_STATISTICS_H_

#include <string>

#include "host/runtime/hits.h"
#include "host/standard/document.h"
#include "host/standard/profiles.h"

namespace host::standard {

// Adds what the entry `ace` has hit to a list that is attached, a node of RFC 8519's acl-set.
void AddAceStatistics(const std::string& ace, const Hits& hits, Node* acl_set);

// Adds the counters to the lists that ToAccessLists() has made and a writer has put into
// `*document`, for the standard `to`.
void AddStatistics(const AccessLists& lists, const HitsByOrigin& hits, Standard to,
                   Document* document);

}  // namespace host::standard

#endif  // HOST_STANDARD_STATISTICS_H_
