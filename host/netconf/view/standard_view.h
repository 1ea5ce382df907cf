// The configuration as the access lists of RFC 8519, for controllers that know nothing else: state
// of the module ietf-access-control-list, for reading alone (yang/standard/acl-app-standard-view).
//
// The lists are translated while they are read, by the conversion that exports them
// (host/standard), a page of entries at a time, so that nobody else waits and nothing large is
// kept: running is gone through twice, as it was at one moment. The first time tells what lists are
// called and of which types they are, the second time the entries become pieces of state. Then come
// the interfaces, with what each entry has hit there.
//
// Invariants: lists, interfaces and counters are of one moment, that at which the hits are read; a
// counter that is not known for sure is not there.
#ifndef HOST_NETCONF_VIEW_STANDARD_VIEW_H_
#define HOST_NETCONF_VIEW_STANDARD_VIEW_H_

#include <memory>

#include "host/cdb/datastore.h"
#include "host/cdb/tree_pages.h"
#include "host/runtime/state_providers.h"

namespace host {

// Shows running as access lists, with the hits that `providers` tells, as long as the registration
// lives. `providers` and `datastore` must outlive it and all readers.
StateProviders::Registration ShowAsAccessLists(StateProviders* providers, Datastore& datastore,
                                               std::shared_ptr<PageMemory> memory);

}  // namespace host

#endif  // HOST_NETCONF_VIEW_STANDARD_VIEW_H_
