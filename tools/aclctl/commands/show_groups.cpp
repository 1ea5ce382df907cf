// aclctl show groups.
#include <algorithm>
#include <cstdio>
#include <memory>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/entries_in_force.h"
#include "tools/aclctl/interfaces.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

void PrintGroup(const lyd_node* group, const InterfaceStates& states, const EntryFilter& filter,
                bool hits) {
  const auto entries = Children(group, "entry");
  const auto shown =
      std::count_if(entries.begin(), entries.end(),
                    [&filter](const lyd_node* entry) { return Shows(filter, entry); });
  std::printf("%s group (id %s, stage %s, priority %s): %s%zu %s\n", GroupName(group).c_str(),
              ChildText(group, "id").c_str(), ChildText(group, "stage").c_str(),
              ChildText(group, "priority").c_str(),
              filter.empty() ? "" : (std::to_string(shown) + " of ").c_str(), entries.size(),
              entries.size() == 1 ? "entry" : "entries");
  if (entries.empty()) return;
  std::vector<Table::Column> columns = {
      {"PORT"},  {"STATE"}, {"PROFILE"}, {"ENTRY", Align::kRight}, {"MATCH", Align::kLeft, true},
      {"ACTION"}};
  if (hits) {
    columns.push_back({"PACKETS", Align::kRight});
    columns.push_back({"BYTES", Align::kRight});
  }
  Table table(std::move(columns));
  for (const lyd_node* entry : entries) {
    if (!Shows(filter, entry)) continue;
    const bool known = FindChild(entry, "profile") != nullptr;
    std::vector<std::string> row = {PortsOf(entry),
                                    StatesOf(entry, states),
                                    known ? ChildText(entry, "profile") : "?",
                                    known ? ChildText(entry, "ace-priority") : "?",
                                    MatchOf(entry),
                                    ActionOf(entry)};
    if (hits) {
      const lyd_node* counters = FindChild(entry, "hits");
      row.push_back(counters == nullptr ? "-" : ChildText(counters, "packets"));
      row.push_back(counters == nullptr ? "-" : ChildText(counters, "bytes"));
    }
    table.AddRow(std::move(row));
  }
  if (!table.empty()) std::fputs(table.Print().c_str(), stdout);
}

Failure ShowGroups(const Common& common, const EntryFilter& filter, bool hits) {
  if (Failure failure = CheckEntryFilter(filter)) return failure;
  if (common.form != Form::kText && !filter.empty()) {
    return {kUsage, "entries are selected in tables alone, not with --json or --xml", {}};
  }
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
  InterfaceStates states;
  if (Failure failure = FetchInterfaces(&client, &states)) return failure;
  bool first = true;
  for (const lyd_node* group : Children(filters, "group")) {
    if (!first) std::putchar('\n');
    first = false;
    PrintGroup(group, states, filter, hits);
  }
  return {};
}

Run SetUpShowGroups(Syntax* syntax) {
  const auto hits = std::make_shared<bool>(false);
  syntax->Flag("--hits", hits.get(), "with the frames that each entry decided");
  const auto filter = std::make_shared<EntryFilter>();
  AddEntryFilter(syntax, filter.get());
  return [hits, filter](const Common& common) {
    return ShowGroups(common, *filter, *hits || filter->hit);
  };
}

}  // namespace

const Command kShowGroups = {"show groups",
                             Group::kLook,
                             "what is programmed, in the order of evaluation",
                             "aclctl show groups --hits\n"
                             "aclctl show groups --port access-1 --covers 10.1.2.3",
                             SetUpShowGroups,
                             kXml | kPaged};

}  // namespace aclctl
