// Each entry of the model is given its profile and priority as matches, which the merge carries
// along.
#include "tests/host/cdb/merged_origins.h"

#include <cstdlib>
#include <list>
#include <vector>

#include "host/limid/limid.h"
#include "model/acl_cache.h"

namespace host {
namespace {

using FiltersCommon::MatchDstL4Port;
using FiltersCommon::MatchExternalVlanId;
using FiltersCommon::MatchIngressPorts;

confd_value_t Number(int number) {
  confd_value_t value = {};
  value.type = C_UINT16;
  value.val.u16 = static_cast<uint16_t>(number);
  return value;
}

class ModelBuilder {
 public:
  void Visit(const lyd_node* node) {
    for (; node != nullptr; node = node->next) {
      const std::string name = LYD_NAME(node);
      if (node->schema->nodetype == LYS_LIST && name == "access-list") AddProfile(node);
      if (node->schema->nodetype == LYS_LEAFLIST && name == "ingress") {
        const std::string interface = ChildText(lyd_parent(node), "interface-name");
        model.CreateInterface(interface);
        model.AddAclIntoInterface(interface, TextOf(node));
      }
      Visit(lyd_child(node));
    }
  }

  acl_app::AclCache model;
  std::vector<std::string> profiles;

 private:
  void AddProfile(const lyd_node* node) {
    const std::string name = ChildText(node, "acl-name");
    model.CreateAclProfile(ChildText(node, "acl-type") == "l2" ? 0 : 1, name);
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(node), child) {
      if (child->schema->nodetype == LYS_CONTAINER)
        model.SetAclPrio(name, std::atoi(ChildText(child, "priority").c_str()));
      if (child->schema->nodetype != LYS_LIST) continue;
      const int ace_priority = std::atoi(ChildText(child, "ace-priority").c_str());
      const confd_value_t profile = Number(static_cast<int>(profiles.size()));
      const confd_value_t entry = Number(ace_priority);
      model.CreateEntry(name, ace_priority);
      model.CreateMatch(name, ace_priority, acl_app::ACL_MATCH_VLAN, &profile, nullptr);
      model.CreateMatch(name, ace_priority, acl_app::ACL_MATCH_DST_PORT, &entry, nullptr);
    }
    profiles.push_back(name);
  }
};

std::string Line(const std::string& group, const std::string& interface, const std::string& profile,
                 int ace_priority) {
  return group + " " + interface + " " + profile + " " + std::to_string(ace_priority) + "\n";
}

}  // namespace

std::string MergedOrigins(const lyd_node* running) {
  ModelBuilder builder;
  builder.Visit(running);
  std::list<FiltersCommon::FiltersGroup> groups;
  if (builder.model.MergeFilterEnvironment(groups) != 0) return "cannot be merged";
  std::string text;
  for (const auto& group : groups) {
    const bool l2 = group.getType() == FiltersCommon::FILTERS_GROUP_TYPE_L2;
    for (const auto& [id, entry] : group.getEntriesRef()) {
      const limid_t port = entry.getMatch<MatchIngressPorts>()->ports().front();
      text += Line(l2 ? "l2" : "l3", InterfaceNameOf(port),
                   builder.profiles[entry.getMatch<MatchExternalVlanId>()->value()],
                   entry.getMatch<MatchDstL4Port>()->value());
    }
  }
  return text;
}

std::string ToldOrigins(const Datastore& datastore) {
  std::string text;
  for (const char* group : {"l2", "l3"}) {
    const auto origins = datastore.OriginsOf(group);
    for (size_t at = 0; at < origins->size(); ++at) {
      const EntryOrigin origin = origins->Of(at);
      text += Line(group, *origin.interface, *origin.profile, origin.ace_priority);
    }
    if (origins->Of(origins->size()).known()) text += "an entry too many\n";
  }
  return text;
}

}  // namespace host
