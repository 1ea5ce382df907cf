// What has to be known of profiles before their entries are told as access lists: what the lists
// are called, of which types they are, and where they are bound.
#ifndef HOST_NETCONF_VIEW_SURVEY_H_
#define HOST_NETCONF_VIEW_SURVEY_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/netconf/view/profile_walk.h"
#include "host/standard/profiles.h"

namespace host {

struct ListedProfile {
  standard::Profile profile;  // without entries
  std::string name;           // of the list
  standard::Kind kind = standard::Kind::kEthernet;
  // Entries that are not called by their ace-priority, and what they are called. Those that bear
  // another's number are known once the list is made.
  std::map<uint16_t, std::string> ace_names;
  std::set<std::string> taken;  // these names
};

struct BoundProfiles {
  std::string interface;
  std::vector<size_t> profiles;  // places of theirs, in the order of evaluation
};

// The profile, which may be a part of one, as a list.
standard::Acl ListOf(standard::Profile profile);

// `wanted`, or else a name like it that is not in `*names`, where it is put. `instead` is what one
// that would be too long begins with.
std::string UniqueIn(std::set<std::string>* names, const std::string& wanted,
                     const std::string& instead);

class Survey : public ProfileVisitor {
 public:
  // In the order of the walk.
  std::vector<ListedProfile>& listed() { return listed_; }
  const std::vector<BoundProfiles>& bindings() const { return bindings_; }

  void OnProfile(const standard::Profile& profile) override;
  void OnDescription(std::string text) override;
  void OnPriority(uint16_t priority) override;
  void OnEntry(standard::ProfileEntry entry) override;
  void OnProfileEnd() override;
  void OnInterface(std::string name, std::vector<std::string> profiles) override;

 private:
  void Judge();

  std::vector<ListedProfile> listed_;
  std::vector<standard::ProfileEntry> entries_;  // of the last one, not judged yet
  std::set<std::string> names_;
  std::map<std::string, size_t> places_;  // of profiles, by name
  std::vector<BoundProfiles> bindings_;
};

}  // namespace host

#endif  // HOST_NETCONF_VIEW_SURVEY_H_
