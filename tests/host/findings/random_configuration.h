// Random configurations over few values, so that entries cover each other often, and frames that
// have just those values; for comparisons with what the filter does (host/filter_mgr/match).
#ifndef TESTS_HOST_FINDINGS_RANDOM_CONFIGURATION_H_
#define TESTS_HOST_FINDINGS_RANDOM_CONFIGURATION_H_

#include <random>
#include <string>
#include <utility>
#include <vector>

#include "host/findings/configuration.h"
#include "platform/filters_common/filters_entry.h"
#include "tests/packets/packet_lab.h"

namespace host::findings {

// An entry in both forms.
struct KnownEntry {
  FiltersCommon::FiltersEntry filter{0};
  Matches matches;
  std::string profile;
  uint16_t ace_priority = 0;
  bool deny = false;
};

struct RandomConfiguration {
  explicit RandomConfiguration(std::mt19937* random);

  // The entries of the L2 or L3 group of `interface`, as they are searched.
  std::vector<KnownEntry> EntriesOf(const std::string& interface, bool l3) const;

  Configuration configuration;
  std::map<std::string, std::vector<KnownEntry>> entries;  // by profile
};

// What a frame has behind its source address.
enum class Payload {
  kBare,
  kNothing,
  kToTos,
  kToProtocol,
  kToSource,
  kIpv4,
  kTcp,
  kUdp,
  kIpv6,
  kIpv6Port
};
struct Shape {
  uint16_t type;  // 0: that of the key
  bool tagged;
  Payload payload;

  bool complete() const { return payload == Payload::kNothing || payload >= Payload::kIpv4; }
};
// All that there are, as far as the filter treats them differently.
const std::vector<Shape>& AllShapes();
// A frame with the values of `key` (frame_set.h).
Frame FrameOf(const Shape& shape, const cls_key& key);

}  // namespace host::findings

#endif  // TESTS_HOST_FINDINGS_RANDOM_CONFIGURATION_H_
