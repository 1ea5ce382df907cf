// aclctl show groups.
#include <cctype>
#include <cstdio>
#include <memory>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

// Leaves of a match, in the order of a frame's fields, and how they are called in the table. The
// mask stands behind its value.
constexpr struct {
  const char* leaf;
  const char* label;
  const char* mask;
} kMatches[] = {
    {"destination-mac-address", "dst-mac", "destination-mac-address-mask"},
    {"source-mac-address", "src-mac", "source-mac-address-mask"},
    {"ethertype", "ethertype", nullptr},
    {"vlan", "vlan", nullptr},
    {"pcp", "pcp", nullptr},
    {"dscp", "dscp", nullptr},
    {"tos", "tos", nullptr},
    {"source-ipv4-address", "src-ip", nullptr},
    {"destination-ipv4-address", "dst-ip", nullptr},
    {"ip-protocol", "protocol", nullptr},
    {"destination-port", "dst-port", nullptr},
};

std::string MatchText(const lyd_node* match) {
  std::string text;
  for (const auto& kind : kMatches) {
    const std::string value = ChildText(match, kind.leaf);
    if (value.empty()) continue;
    const std::string mask = kind.mask == nullptr ? "" : ChildText(match, kind.mask);
    text += std::string(text.empty() ? "" : " ") + kind.label + " " + value +
            (mask.empty() ? "" : "/" + mask);
  }
  return text.empty() ? "any" : text;
}

std::string ActionText(const lyd_node* action) {
  std::string text;
  for (const lyd_node* child = lyd_child(action); child != nullptr; child = child->next) {
    if (!text.empty()) text += ", ";
    text += host::XmlName(child);
    if (!host::XmlText(child).empty()) text += " " + std::string(host::XmlText(child));
  }
  return text.empty() ? "none" : text;
}

std::string PortsText(const lyd_node* entry) {
  std::string text;
  for (const lyd_node* port : Children(entry, "port")) {
    text += (text.empty() ? "" : ",") + std::string(host::XmlText(port));
  }
  return text.empty() ? "any" : text;
}

void PrintGroup(const lyd_node* group, bool hits) {
  std::string type = ChildText(group, "type");
  for (char& c : type) c = std::toupper(static_cast<unsigned char>(c));
  const auto entries = Children(group, "entry");
  std::printf("%s group (id %s, stage %s, priority %s): %zu %s\n", type.c_str(),
              ChildText(group, "id").c_str(), ChildText(group, "stage").c_str(),
              ChildText(group, "priority").c_str(), entries.size(),
              entries.size() == 1 ? "entry" : "entries");
  if (entries.empty()) return;
  std::vector<Table::Column> columns = {
      {"PORT"}, {"PROFILE"}, {"ENTRY", Align::kRight}, {"MATCH"}, {"ACTION"}};
  if (hits) {
    columns.push_back({"PACKETS", Align::kRight});
    columns.push_back({"BYTES", Align::kRight});
  }
  Table table(std::move(columns));
  for (const lyd_node* entry : entries) {
    const bool known = FindChild(entry, "profile") != nullptr;
    std::vector<std::string> row = {PortsText(entry), known ? ChildText(entry, "profile") : "?",
                                    known ? ChildText(entry, "ace-priority") : "?",
                                    MatchText(FindChild(entry, "match")),
                                    ActionText(FindChild(entry, "action"))};
    if (hits) {
      const lyd_node* counters = FindChild(entry, "hits");
      row.push_back(counters == nullptr ? "-" : ChildText(counters, "packets"));
      row.push_back(counters == nullptr ? "-" : ChildText(counters, "bytes"));
    }
    table.AddRow(std::move(row));
  }
  std::fputs(table.Print().c_str(), stdout);
}

Failure ShowGroups(const Common& common, bool hits) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  std::string data;
  host::Tree reply;
  const lyd_node* filters = nullptr;
  if (Failure failure = FetchState(&client, "<filters xmlns=\"urn:acl-app:filters\"/>", &data,
                                   &reply, &filters)) {
    return failure;
  }
  if (common.form != Form::kText) {
    return PrintData(common.form, &client, "acl-app-filters", data);
  }
  bool first = true;
  for (const lyd_node* group : Children(filters, "group")) {
    if (!first) std::putchar('\n');
    first = false;
    PrintGroup(group, hits);
  }
  return {};
}

Run SetUp(Syntax* syntax) {
  const auto hits = std::make_shared<bool>(false);
  syntax->Flag("--hits", hits.get(), "with the frames that each entry decided");
  return [hits](const Common& common) { return ShowGroups(common, *hits); };
}

}  // namespace

const Command kShowGroups = {"show groups",
                             Group::kLook,
                             "what is programmed, in the order of evaluation",
                             "aclctl show groups --hits",
                             SetUp,
                             kXml | kPaged};

}  // namespace aclctl
