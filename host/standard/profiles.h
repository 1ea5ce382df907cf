// Our configuration as plain data, and the conversion between it and access lists (acl.h).
//
// What ours has and lists have not is kept in the document by the module acl-app-standard: the
// priority and the group of a profile, the number of an entry, descriptions, and where a list ends
// as profiles do, passing what no entry matches. What lists have and ours has not is kept in the
// descriptions (tags.h).
#ifndef HOST_STANDARD_PROFILES_H_
#define HOST_STANDARD_PROFILES_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/standard/acl.h"
#include "host/standard/report.h"

namespace host::standard {

struct ProfileEntry {
  uint16_t ace_priority = 0;
  std::string description;
  std::array<std::optional<Value>, kFieldCount> matches;
  Handling handling = Handling::kNone;
  std::optional<uint8_t> set_pcp;
};

struct Profile {
  std::string name;
  bool l3 = false;
  uint16_t priority = 0;
  std::string description;
  std::vector<ProfileEntry> entries;  // ascending
};

struct Profiles {
  std::vector<Profile> profiles;
  std::map<std::string, std::vector<std::string>> bindings;  // profiles by interface
};

// What becomes of frames that no entry of a list matches, where the list does not say: RFC 8519
// means a deny, OpenConfig leaves it to the element.
enum class End { kDeny, kPermit };

// How many entries a conversion has in all. Each takes about a kilobyte until it is printed.
inline constexpr size_t kMostEntries = 262144;

struct ImportOptions {
  Allowance allowance;
  End end = End::kDeny;
  uint32_t first_priority = 100;  // of profiles, 10 apart
  size_t most_entries = 256;      // that one entry may become
};

// Converts lists to profiles. What cannot be is in the report; without a refusal there the profiles
// are whole.
Profiles ToProfiles(const AccessLists& lists, const ImportOptions& options, Report* report);

enum class Standard { kRfc8519, kRfc9899, kOpenConfig };

struct ExportOptions {
  Allowance allowance;
  Standard to = Standard::kRfc8519;
  bool standard_only = false;  // nothing of acl-app-standard; always so with OpenConfig
};

// Converts profiles to lists, which writers then take.
AccessLists ToAccessLists(const Profiles& profiles, const ExportOptions& options, Report* report);

}  // namespace host::standard

#endif  // HOST_STANDARD_PROFILES_H_
