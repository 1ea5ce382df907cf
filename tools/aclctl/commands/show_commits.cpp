// aclctl show commits.
#include <cstdio>
#include <cstdlib>
#include <optional>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

std::optional<Colour> ResultColour(const std::string& result) {
  if (result == "failed") return Colour::kRed;
  if (result == "pending") return Colour::kYellow;
  return std::nullopt;
}

// What is taken back unless somebody confirms it; null: nothing.
void PrintConfirmed(const lyd_node* confirmed) {
  if (confirmed == nullptr) return;
  std::printf("to be confirmed: commit %s by %s; back to commit %s in %s s unless: %s\n",
              ChildText(confirmed, "commit").c_str(), ChildText(confirmed, "user").c_str(),
              ChildText(confirmed, "base").c_str(), ChildText(confirmed, "remaining").c_str(),
              FindChild(confirmed, "session-id") == nullptr
                  ? "aclctl confirm (with --persist-id, if it is another client's)"
                  : ("its session " + ChildText(confirmed, "session-id") + " confirms").c_str());
}

Failure ShowCommits(const Common& common) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  std::string data;
  host::Tree reply;
  const lyd_node* first = nullptr;
  if (Failure failure = FetchState(&client,
                                   "<commits xmlns=\"urn:acl-app:commits\"/>"
                                   "<confirmed-commit xmlns=\"urn:acl-app:commits\"/>",
                                   &data, &reply, &first)) {
    return failure;
  }
  if (common.form != Form::kText) {
    return PrintData(common.form, &client, "acl-app-commits", data);
  }
  const lyd_node* const commits = FindChild(FindChild(reply.get(), "data"), "commits");
  const std::string running = ChildText(commits, "running");
  const std::string applied = ChildText(commits, "applied");
  std::printf("running: commit %s\napplied: %s%s\n", running.c_str(),
              applied.empty() ? "none since the start" : "commit ", applied.c_str());
  PrintConfirmed(FindChild(FindChild(reply.get(), "data"), "confirmed-commit"));
  std::putchar('\n');
  Table groups({{"GROUP"}, {"COMMIT", Align::kRight}, {"ENTRIES", Align::kRight}});
  for (const lyd_node* group : Children(commits, "group")) {
    groups.AddRow({GroupName(group), ChildText(group, "commit"), ChildText(group, "entries")});
  }
  std::fputs((groups.Print() + "\n").c_str(), stdout);
  Table table({{"COMMIT", Align::kRight},
               {"TIME (UTC)"},
               {"USER"},
               {"SESSION", Align::kRight},
               {"MS", Align::kRight},
               {"RESULT", Align::kLeft, true}});
  for (const lyd_node* commit : Children(commits, "commit")) {
    const double milliseconds = std::strtod(ChildText(commit, "duration").c_str(), nullptr) / 1000;
    char duration[32];
    std::snprintf(duration, sizeof(duration), "%.1f", milliseconds);
    const std::string reason = ChildText(commit, "reason");
    const std::string at_start = FindChild(commit, "at-start") != nullptr ? " at the start" : "";
    table.AddRow({ChildText(commit, "id"), ShortTime(ChildText(commit, "time")),
                  ChildText(commit, "user"), ChildText(commit, "session-id"), duration,
                  ChildText(commit, "result") + at_start + (reason.empty() ? "" : ": " + reason)},
                 ResultColour(ChildText(commit, "result")));
  }
  std::fputs(table.Print().c_str(), stdout);
  return {};
}

}  // namespace

const Command kShowCommits = {"show commits",
                              Group::kCommits,
                              "what is in force, and what became of the last commits",
                              "aclctl show commits",
                              [](Syntax* /*syntax*/) -> Run { return ShowCommits; },
                              kXml | kPaged};

}  // namespace aclctl
