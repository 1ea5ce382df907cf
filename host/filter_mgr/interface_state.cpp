#include "host/filter_mgr/interface_state.h"

#include <list>
#include <set>

#include "host/runtime/log.h"
#include "host/runtime/tree_writer.h"

namespace host {
namespace {

constexpr const char* kLinks[] = {"absent", "down", "up"};            // by LinkState
constexpr const char* kStates[] = {"in-force", "waiting", "failed"};  // by PortState

// The names of all ports that the group names.
void AddPorts(const FiltersCommon::FiltersGroup& group, const PortNames& names,
              std::set<std::string>* ports) {
  const std::list<limid_t>* last = nullptr;  // runs of entries share their list
  for (const auto& [id, entry] : group.getEntriesRef()) {
    const auto* match = static_cast<const FiltersCommon::MatchIngressPorts*>(
        entry.findMatch(FiltersCommon::FILTERS_MATCH_INGRESS_PORTS));
    if (match == nullptr || &match->ports() == last) continue;
    last = &match->ports();
    for (const limid_t port : *last) ports->insert(names(port));
  }
}

}  // namespace

const char* NameOf(LinkState link) { return kLinks[static_cast<int>(link)]; }
const char* NameOf(PortState filters) { return kStates[static_cast<int>(filters)]; }

const char* EnforcementOn(const std::string& interface, const Backend& backend) {
  const std::map<std::string, PortState> ports = backend.Ports();
  const auto found = ports.find(interface);
  return found == ports.end() ? "not-enforced" : NameOf(found->second);
}

lyd_node* BuildInterfaceState(const ly_ctx* context, const GroupTable& table,
                              const PortNames& names, const LinkStates& links) {
  std::set<std::string> interfaces;
  for (const auto& [key, group] : table.groups()) AddPorts(group.content(), names, &interfaces);
  const std::map<std::string, PortState> ports = table.backend().Ports();
  TreeWriter writer(ly_ctx_get_module_implemented(context, "acl-app-filters"));
  lyd_node* top = writer.Inner(nullptr, "interfaces");
  size_t in_force = 0;
  for (const std::string& name : interfaces) {
    lyd_node* node = writer.List(top, "interface", name);
    writer.Leaf(node, "link", NameOf(links(name)));
    const auto port = ports.find(name);
    const bool enforced = port != ports.end();
    writer.Leaf(node, "filters", enforced ? NameOf(port->second) : "not-enforced");
    in_force += enforced && port->second == PortState::kEnforced ? 1 : 0;
  }
  writer.Leaf(top, "named", interfaces.size());
  writer.Leaf(top, "in-force", in_force);
  if (writer.ok()) return top;
  Log(LogLevel::kError, "the interfaces cannot be shown: %s", ly_errmsg(context));
  lyd_free_all(top);
  return nullptr;
}

}  // namespace host
