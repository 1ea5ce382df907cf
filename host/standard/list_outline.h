// How a profile becomes a list, entry by entry.
//
// A profile is gone through twice, in one order: the first time tells what has to be known before
// anything can be said (of which kind the list is, which names are given away), the second time
// converts. So who sees a configuration in parts, while it goes by, comes to the same lists as who
// has all of it.
//
// What names are: a name that a tag in the description says is given out before all others, so that
// what was imported is called as it was; the rest are called by what is their own, with a number
// behind it where somebody else has that name.
#ifndef HOST_STANDARD_LIST_OUTLINE_H_
#define HOST_STANDARD_LIST_OUTLINE_H_

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "host/standard/profiles.h"
#include "host/standard/tags.h"

namespace host::standard {

// Names of lists, or of the entries of one.
class TaggedNames {
 public:
  // `tags` are those that say a name, of which the first that is there counts; names have at most
  // `longest` characters.
  TaggedNames(std::vector<const char*> tags, size_t longest)
      : tags_(std::move(tags)), longest_(longest), names_(" ", longest) {}

  // The first time: the next one has this description.
  void See(const std::string& description);
  // The second time: the name of the next one, which is `own` unless a tag says another.
  std::string Next(const std::string& own);
  // The second time: a name for what has no description.
  std::string Take(const std::string& wanted) { return names_.Take(wanted); }

 private:
  std::vector<const char*> tags_;
  size_t longest_;
  UniqueNames names_;
  std::vector<std::pair<size_t, std::string>> tagged_;  // by place, ascending
  size_t seen_ = 0, named_ = 0;                         // how many, the first and the second time
  size_t next_tagged_ = 0;
};

// Of names in the standard; OpenConfig has no bound.
size_t LongestName(Standard to);
// The tags by which profiles say what their lists were called.
std::vector<const char*> ListTags(Standard to);

class ListOutline {
 public:
  explicit ListOutline(const ExportOptions& options);

  // The first time: the next entry.
  void See(const ProfileEntry& entry);
  // The narrowest kind of list that has all these entries.
  Kind KindFor(bool l3) const;

  // The second time: the next entry, under its name, with all that ours has. `last`: of the
  // profile.
  Ace Convert(const ProfileEntry& entry, bool last);
  // What no entry matches passes, which a list says in an entry of its own: to be asked for behind
  // all of them.
  Ace End(Kind kind);
  // Another name, for an entry beside those of the profile.
  std::string TakeName(const std::string& wanted) { return names_.Take(wanted); }

 private:
  TaggedNames names_;
  bool all_ipv4_ = true, any_ethernet_ = false, any_ip_ = false, any_version_ = false;
};

// Whether the entry says itself that it stands for the end of a list that was read.
bool IsListEnd(const ProfileEntry& entry, bool last);

// The profile as a list without entries, with all that ours has.
Acl AclOf(const Profile& profile, const std::string& name, Kind kind);

}  // namespace host::standard

#endif  // HOST_STANDARD_LIST_OUTLINE_H_
