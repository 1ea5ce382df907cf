// What has to be known of profiles before their entries are told as access lists: what the lists
// are called, of which kinds they are, and where they are bound.
#ifndef HOST_NETCONF_VIEW_SURVEY_H_
#define HOST_NETCONF_VIEW_SURVEY_H_

#include <cstdint>
#include <map>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/netconf/view/profile_walk.h"
#include "host/standard/list_outline.h"

namespace host {

// The first of the two times that a profile is gone through (list_outline.h), and what the second
// adds.
struct ListedProfile {
  standard::Profile profile;  // without entries
  standard::ListOutline outline;
  // Added while the list is made: what it is called, and entries that are not called by their
  // ace-priority.
  std::string name;
  std::map<uint16_t, std::string> ace_names;
};

struct BoundProfiles {
  std::string interface;
  std::vector<size_t> profiles;  // places of theirs, in the order of evaluation
};

class Survey : public ProfileVisitor {
 public:
  // In the order of the walk.
  std::vector<ListedProfile>& listed() { return listed_; }
  // Of the lists; the second time is to be asked for in the same order.
  standard::TaggedNames& names() { return names_; }
  const std::vector<BoundProfiles>& bindings() const { return bindings_; }

  void OnProfile(const standard::Profile& profile) override;
  void OnDescription(std::string text) override;
  void OnPriority(uint16_t priority) override;
  void OnEntry(standard::ProfileEntry entry) override;
  void OnProfileEnd() override;
  void OnInterface(std::string name, std::vector<std::string> profiles) override;

 private:
  const standard::ExportOptions options_{};  // with our own module, lists say all that there is
  std::vector<ListedProfile> listed_;
  standard::TaggedNames names_{standard::ListTags(options_.to), standard::LongestName(options_.to)};
  std::unordered_map<std::string, size_t> places_;  // of profiles, by name
  std::vector<BoundProfiles> bindings_;
};

}  // namespace host

#endif  // HOST_NETCONF_VIEW_SURVEY_H_
