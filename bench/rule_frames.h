// Rule sets (rule_sets.h) as the daemon and the kernel meet them: a filter group of such rules, and
// frames of such keys.
#ifndef BENCH_RULE_FRAMES_H_
#define BENCH_RULE_FRAMES_H_

#include <cstdint>
#include <vector>

#include "bench/rule_sets.h"
#include "platform/filters_common/filters_group.h"

namespace bench {

// The group of these rules, on port 0; of type L2 when they compare the link layer.
FiltersCommon::FiltersGroup GroupOf(const std::vector<host::classifier::Rule>& rules);

// A frame that the key is of: its addresses, its tag if it has one, and an IPv4 packet with its
// addresses, protocol and destination port.
std::vector<uint8_t> FrameOf(const cls_key& key);

}  // namespace bench

#endif  // BENCH_RULE_FRAMES_H_
