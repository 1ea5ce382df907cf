// Frames to send: every form that a field's meaning depends on.
#ifndef TESTS_PACKETS_FRAMES_H_
#define TESTS_PACKETS_FRAMES_H_

#include <random>
#include <vector>

#include "platform/filters_common/filters_entry.h"
#include "tests/packets/packet_lab.h"

namespace host {

// Untagged, with one and with two tags of either type, over: IPv4 with TCP, UDP, ICMP, options,
// fragments, a wrong length; IPv6 with TCP, UDP, extension headers, fragments; ARP; a length
// instead of a type; something unknown. Addresses and values vary within the pools of
// EntryMatches().
std::vector<Frame> AllFrames();

// One matching value of each kind (11 of them, DSCP and ToS both), some with masks, all of which
// some of the frames have and some have not. `variant` chooses among values.
constexpr int kMatchKinds = 11;
void AddMatch(FiltersCommon::FiltersEntry* entry, int kind, unsigned int variant);

// Deny, permit, set-PCP, by number.
constexpr int kActionKinds = 3;
void AddAction(FiltersCommon::FiltersEntry* entry, int kind, unsigned int variant);

// An entry of up to four matches and any action, or none.
FiltersCommon::FiltersEntry RandomEntry(std::mt19937* random);

}  // namespace host

#endif  // TESTS_PACKETS_FRAMES_H_
