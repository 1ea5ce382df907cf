// The standards' counters, from what our entries have hit.
//
// A counter is of an entry of a list on one interface. It is there only where it is known, and says
// of the entry that it stands with what that has hit: an entry of ours that became several of a
// list (a port of TCP and of UDP) has none, for nobody counts these apart, nor has one that lost
// conditions on the way, for its frames were fewer. An end that the list has and the profile has
// not was never counted.
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
// `*document`, for the standard `to`. Of counters that are there and cannot be told `*report`
// tells.
void AddStatistics(const AccessLists& lists, const HitsByOrigin& hits, Standard to,
                   Document* document, Report* report);

}  // namespace host::standard

#endif  // HOST_STANDARD_STATISTICS_H_
