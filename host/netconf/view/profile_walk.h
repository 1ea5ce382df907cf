// Goes through a configuration as it is at one moment, part by part, while commits go on
// (tree_view.h), and tells a visitor of profiles and bindings in plain data.
#ifndef HOST_NETCONF_VIEW_PROFILE_WALK_H_
#define HOST_NETCONF_VIEW_PROFILE_WALK_H_

#include <memory>
#include <string>
#include <vector>

#include "host/cdb/tree_pages.h"
#include "host/netconf/reply/tree_view.h"
#include "host/standard/configuration.h"

namespace host {

class ProfileVisitor {
 public:
  virtual ~ProfileVisitor() = default;
  // A profile begins: its name and group. What else it has comes before its first entry.
  virtual void OnProfile(const standard::Profile& /*profile*/) {}
  virtual void OnDescription(std::string /*text*/) {}
  virtual void OnPriority(uint16_t /*priority*/) {}
  virtual void OnEntry(standard::ProfileEntry /*entry*/) {}
  virtual void OnProfileEnd() {}
  // Behind all profiles: an interface and what is bound there.
  virtual void OnInterface(std::string /*name*/, std::vector<std::string> /*profiles*/) {}
};

class ProfileWalk {
 public:
  enum class Progress { kMore, kEnd, kFailed };

  // Goes through the configuration from the node `first` on (may be null), data of acl-app in
  // `context`, as it is now. Nothing is owned but the memory.
  ProfileWalk(const standard::EntryReader& entries, const lyd_node* first,
              std::shared_ptr<PageMemory> memory, ProfileVisitor* visitor)
      : entries_(entries), visitor_(visitor), view_(first, nullptr, nullptr, std::move(memory)) {}

  // Tells of the next nodes, a page of entries at most. kFailed where there was no memory to keep
  // it as it was.
  Progress Step();

 private:
  void Visit(const lyd_node* node);
  void VisitProfile(const lyd_node* node);

  const standard::EntryReader& entries_;
  ProfileVisitor* const visitor_;
  TreeView view_;
};

}  // namespace host

#endif  // HOST_NETCONF_VIEW_PROFILE_WALK_H_
