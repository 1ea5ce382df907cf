// A configuration as the findings see it: plain data that stay as they are, whatever becomes of
// what they were read from.
#ifndef HOST_FINDINGS_CONFIGURATION_H_
#define HOST_FINDINGS_CONFIGURATION_H_

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/findings/frame_set.h"

namespace host::findings {

struct Entry {
  enum class Action : uint8_t { kNone, kPermit, kSetPcp, kDeny };

  uint16_t ace_priority = 0;
  Action action = Action::kNone;
  uint8_t pcp = 0;  // of kSetPcp
  Matches matches;
};

struct Profile {
  bool l3 = false;
  int priority = 0;
  std::vector<Entry> entries;  // ascending
};

struct Interface {
  bool absent = false;  // the system has none of that name
  std::vector<std::string> profiles;
};

struct Configuration {
  std::map<std::string, Profile> profiles;
  std::map<std::string, Interface> interfaces;
};

}  // namespace host::findings

#endif  // HOST_FINDINGS_CONFIGURATION_H_
