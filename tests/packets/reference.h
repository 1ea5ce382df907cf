// What the filter should do to a frame, written from the definitions of the fields (IEEE 802.1Q,
// RFC 791, RFC 768, RFC 9293, RFC 8200) and of the groups; it shares nothing with the compiler.
#ifndef TESTS_PACKETS_REFERENCE_H_
#define TESTS_PACKETS_REFERENCE_H_

#include <optional>

#include "platform/filters_common/filters_group.h"
#include "tests/packets/packet_lab.h"

namespace host {

// Whether all of the entry's matches, ports aside, hold for the frame.
bool ReferenceMatches(const FiltersCommon::FiltersEntry& entry, const Frame& frame);

// The entry of the group that decides about a frame that enters through `port`; null for none.
const FiltersCommon::FiltersEntry* ReferenceDecider(const FiltersCommon::FiltersGroup& group,
                                                    limid_t port, const Frame& frame);

// The frame as it leaves the groups, in this order; no value when it is dropped.
std::optional<Frame> ReferenceFilter(const std::vector<const FiltersCommon::FiltersGroup*>& groups,
                                     limid_t port, Frame frame);

}  // namespace host

#endif  // TESTS_PACKETS_REFERENCE_H_
