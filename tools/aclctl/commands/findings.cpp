// aclctl show findings, and what other commands tell of findings: see findings.h.
#include "tools/aclctl/commands/findings.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

// The first names, separated by commas, and how many there are beyond.
std::string List(const std::vector<std::string>& names) {
  constexpr size_t kMost = 4;
  std::string list;
  for (size_t i = 0; i < std::min(names.size(), kMost); ++i) {
    list += (i == 0 ? "" : ", ") + names[i];
  }
  if (names.size() > kMost) list += " and " + std::to_string(names.size() - kMost) + " more";
  return list;
}

std::string EntryIn(const lyd_node* node) {
  const std::string profile = ChildText(node, "profile");
  return profile.empty() ? "" : profile + " " + ChildText(node, "ace-priority");
}

Findings::Line LineOf(const lyd_node* finding) {
  std::vector<std::string> interfaces, cover;
  for (const lyd_node* name : Children(finding, "interface")) {
    interfaces.emplace_back(host::XmlText(name));
  }
  for (const lyd_node* entry : Children(finding, "cover")) cover.push_back(EntryIn(entry));
  Findings::Line line{ChildText(finding, "kind"), EntryIn(finding), ChildText(finding, "text")};
  if (!interfaces.empty()) line.where += (line.where.empty() ? "" : " on ") + List(interfaces);
  if (!cover.empty()) line.what += " (" + List(cover) + ")";
  return line;
}

std::string CostIn(const lyd_node* reply) {
  std::string line;
  for (const lyd_node* search : Children(reply, "search")) {
    line += line.empty() ? "tables that a frame is looked up in: " : "; ";
    line += ChildText(search, "group") == "l2" ? "L2 " : "L3 ";
    line += ChildText(search, "tables-mean") + ", at most " + ChildText(search, "tables-worst") +
            " (" + ChildText(search, "port") + ")";
  }
  const uint64_t bytes = std::strtoull(ChildText(reply, "tables-memory").c_str(), nullptr, 10);
  return line.empty() ? line
                      : line + "; they take " + std::to_string((bytes + 1023) / 1024) + " kB";
}

Failure ShowFindings(const Common& common) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  Findings found;
  std::string text;
  if (Failure failure = FetchFindings(&client, "", &found, &text)) return failure;
  if (common.form == Form::kJson) {
    return PrintOutput(&client, "acl-app-findings", "get-findings", text);
  }
  Table table({{"WHERE"}, {"FINDING", Table::Align::kLeft, true}});
  for (const Findings::Line& line : found.lines) table.AddRow({line.where, line.what});
  std::fputs(found.count == 0 ? "nothing was found\n" : table.Print().c_str(), stdout);
  if (found.count > found.lines.size()) {
    std::printf("and %zu more\n", found.count - found.lines.size());
  }
  if (!found.complete) std::puts("not all entries could be looked at: it would take too long");
  return {};
}

Run SetUpFindings(Syntax* /*syntax*/) { return ShowFindings; }

}  // namespace

std::vector<std::string> Findings::Since(const Findings& before) const {
  std::set<std::string> known;
  for (const Line& line : before.lines) known.insert(line.Text());
  std::vector<std::string> added;
  for (const Line& line : lines) {
    if (known.count(line.Text()) == 0) added.push_back(line.Text());
  }
  const size_t more = count > before.count ? count - before.count : 0;
  if (count > lines.size() && more > added.size()) {
    added.push_back(std::to_string(more - added.size()) + " more, which are not listed");
  }
  return added;
}

std::string FindingsInput(const Edit& edit) {
  return "<default-operation>" + edit.default_operation + "</default-operation><config>" +
         edit.config + "</config>";
}

Failure FetchFindings(Client* client, const std::string& input, Findings* found,
                      std::string* text) {
  host::Tree reply;
  if (Failure failure =
          client->Call("<get-findings xmlns=\"urn:acl-app:findings\">" + input + "</get-findings>",
                       &reply, text)) {
    return failure;
  }
  for (const lyd_node* count : Children(reply.get(), "count")) {
    found->count += std::strtoul(ChildText(count, "findings").c_str(), nullptr, 10);
  }
  for (const lyd_node* finding : Children(reply.get(), "finding")) {
    found->lines.push_back(LineOf(finding));
  }
  found->cost = CostIn(reply.get());
  found->complete = FindChild(reply.get(), "incomplete") == nullptr;
  return {};
}

const Command kShowFindings = {"show findings",
                               Group::kLook,
                               "what is configured, but does nothing or not what it seems to",
                               "aclctl show findings",
                               SetUpFindings,
                               kPaged};

}  // namespace aclctl
