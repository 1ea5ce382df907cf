// aclctl show resources.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/interfaces.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

constexpr struct {
  const char* node;
  const char* title;
} kLayers[] = {{"l2", "L2"}, {"l3", "L3"}};

// What the layer has left, less than nothing where its capacity was lowered below its use. The leaf
// wraps then.
std::string Available(const lyd_node* layer) {
  const std::string available = ChildText(layer, "available-entries");
  if (available.empty()) return available;
  return std::to_string(static_cast<int32_t>(std::strtoul(available.c_str(), nullptr, 10)));
}

void PrintTotals(const lyd_node* resources) {
  Table table({{"GROUP"},
               {"CAPACITY", Align::kRight},
               {"USED", Align::kRight},
               {"AVAILABLE", Align::kRight}});
  for (const auto& layer : kLayers) {
    const lyd_node* node = FindChild(resources, layer.node);
    table.AddRow({layer.title, ChildText(node, "entries-capacity"), ChildText(node, "used-entries"),
                  Available(node)});
  }
  std::fputs(table.Print().c_str(), stdout);
}

void PrintProfiles(const lyd_node* resources) {
  Table table({{"PROFILE"}, {"GROUP"}, {"ENTRIES", Align::kRight}});
  bool any = false;
  for (const auto& layer : kLayers) {
    for (const lyd_node* profile : Children(FindChild(resources, layer.node), "profile")) {
      table.AddRow(
          {ChildText(profile, "acl-name"), layer.title, ChildText(profile, "used-entries")});
      any = true;
    }
  }
  if (any) std::printf("\n%s", table.Print().c_str());
}

void PrintInterfaces(const lyd_node* resources, const InterfaceStates& states) {
  Table table({{"INTERFACE"}, {"STATE"}, {"GROUP"}, {"PROFILE"}, {"ENTRIES", Align::kRight}});
  const auto interfaces = Children(resources, "interface");
  for (const lyd_node* interface : interfaces) {
    const std::string name = ChildText(interface, "interface-name");
    for (const auto& layer : kLayers) {
      const lyd_node* node = FindChild(interface, layer.node);
      for (const lyd_node* profile : Children(node, "profile")) {
        table.AddRow({name, LinkOf(states, name), layer.title, ChildText(profile, "acl-name"),
                      ChildText(profile, "used-entries")});
      }
    }
  }
  if (!interfaces.empty()) std::printf("\n%s", table.Print().c_str());
}

Failure ShowResources(const Common& common) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  std::string data;
  host::Tree reply;
  const lyd_node* status = nullptr;
  if (Failure failure =
          FetchState(&client, "<status xmlns=\"urn:acl-app:acl\"><acl-resources/></status>", &data,
                     &reply, &status)) {
    return failure;
  }
  if (common.form != Form::kText) return PrintData(common.form, &client, "acl-app", data);
  InterfaceStates states;
  if (Failure failure = FetchInterfaces(&client, &states)) return failure;
  const lyd_node* resources = FindChild(status, "acl-resources");
  PrintTotals(resources);
  PrintProfiles(resources);
  PrintInterfaces(resources, states);
  return {};
}

}  // namespace

const Command kShowResources = {"show resources",
                                Group::kLook,
                                "filter entries: capacity and use",
                                "aclctl show resources",
                                [](Syntax* /*syntax*/) -> Run { return ShowResources; },
                                kXml | kPaged};

}  // namespace aclctl
