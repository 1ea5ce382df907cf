// Descriptions that conversions make: lines of text that keep what ours has no place for.
//
// What is imported without a number or a priority of ours has its name in a tag (tags.h). What has
// them has not, since an export makes the name from them; unless somebody gave it another one.
#ifndef HOST_STANDARD_DESCRIPTIONS_H_
#define HOST_STANDARD_DESCRIPTIONS_H_

#include <string>
#include <vector>

#include "host/standard/profiles.h"

namespace host::standard {

// `text` as a description: one line of 255 characters at most. What it loses by that is noted with
// `path`, unless the report is null.
std::string Describe(const std::string& text, const std::string& path, Report* report);

// As much of a text as may matter for a description.
std::string StartOf(const std::string& text);

// What a profile is made from.
struct ProfileOrigin {
  const Acl* acl;
  std::vector<const Ace*> aces;  // by entry; null: the end of the list
  bool ends_as_profiles;         // its last entry stands for the end of a profile
};

// Gives tags to lists with a priority or a profile's name and to entries with a number of ours
// whose names an export would change. Where it changes them all the same, that is noted. `origins`
// has those of all profiles, in their order.
void KeepOwnNames(const std::vector<ProfileOrigin>& origins, Profiles* profiles, Report* report);

}  // namespace host::standard

#endif  // HOST_STANDARD_DESCRIPTIONS_H_
