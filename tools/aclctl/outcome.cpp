// What the daemon made of a commit, and aclctl show commits.
#include "tools/aclctl/outcome.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

// Fetches what `filter` selects within <commits>; `*commits` is null when the daemon has none.
Failure FetchCommits(Client* client, const std::string& filter, host::Tree* reply,
                     const lyd_node** commits) {
  std::string data;
  return FetchState(client, "<commits xmlns=\"urn:acl-app:commits\">" + filter + "</commits>",
                    &data, reply, commits);
}

std::string GroupName(const lyd_node* group) {
  return ChildText(group, "type") == "l2" ? "L2" : "L3";
}

std::string Entries(const lyd_node* group) {
  const std::string count = ChildText(group, "entries");
  return count + (count == "1" ? " entry" : " entries");
}

// The groups in force; with the commits that they are of where these are not all `commit`.
std::string InForce(const lyd_node* commits, const std::string& commit) {
  std::string text;
  for (const lyd_node* group : Children(commits, "group")) {
    text += (text.empty() ? "" : ", ") + GroupName(group) + " " + Entries(group);
    const std::string of = ChildText(group, "commit");
    if (of != commit) text += " of commit " + of;
  }
  return text.empty() ? "what was before the daemon's start" : text;
}

Failure NotApplied(const lyd_node* commit, const std::string& id, const std::string& in_force) {
  const bool pending = ChildText(commit, "result") == "pending";
  Failure failure{
      kNotApplied,
      "commit " + id + " stands, " +
          (pending ? "and is tried again until it is applied: " : "but is not applied: ") +
          ChildText(commit, "reason"),
      {}};
  failure.details.push_back("in force: " + in_force);
  const std::vector<const lyd_node*> errors = Children(commit, "error");
  for (size_t i = 1; i < errors.size(); ++i) {  // the reason has the first
    failure.details.push_back("log: " + std::string(host::XmlText(errors[i])));
  }
  return failure;
}

}  // namespace

Failure CommitReport::Begin(Client* client) {
  host::Tree reply;
  const lyd_node* commits = nullptr;
  if (Failure failure = FetchCommits(client, "<running/>", &reply, &commits)) return failure;
  before_ = ChildText(commits, "running");
  return {};
}

Failure CommitReport::Read(Client* client) {
  const std::string session = std::to_string(client->session_id());
  host::Tree reply;
  const lyd_node* commits = nullptr;
  if (Failure failure = FetchCommits(
          client, "<running/><group/><commit><session-id>" + session + "</session-id></commit>",
          &reply, &commits)) {
    return failure;
  }
  const std::vector<const lyd_node*> own = Children(commits, "commit");
  const std::string running = ChildText(commits, "running");
  in_force_ = InForce(commits, running);
  if (!own.empty()) {
    id_ = ChildText(own.back(), "id");
    if (ChildText(own.back(), "result") == "applied") return {};
    return NotApplied(own.back(), id_, InForce(commits, ""));
  }
  if (running == before_) return {};
  // Others have made commits meanwhile: so many that the own one is no longer kept?
  if (Failure failure = FetchCommits(client, "<commit><id/></commit>", &reply, &commits)) {
    return failure;
  }
  const lyd_node* oldest = FindChild(commits, "commit");
  if (std::strtoull(ChildText(oldest, "id").c_str(), nullptr, 10) <=
      std::strtoull(before_.c_str(), nullptr, 10) + 1) {
    return {};
  }
  return {kProtocol, "the commit was made, but what became of it is no longer known", {}};
}

Failure ShowCommits(const Arguments& arguments) {
  Client client;
  if (Failure failure = client.Open(arguments.socket)) return failure;
  std::string data;
  host::Tree reply;
  const lyd_node* commits = nullptr;
  if (Failure failure = FetchState(&client, "<commits xmlns=\"urn:acl-app:commits\"/>", &data,
                                   &reply, &commits)) {
    return failure;
  }
  if (arguments.json || arguments.xml) {
    return PrintData(arguments, &client, "acl-app-commits", data);
  }
  const std::string running = ChildText(commits, "running");
  const std::string applied = ChildText(commits, "applied");
  std::printf("running: commit %s\napplied: %s%s\n\n", running.c_str(),
              applied.empty() ? "none since the start" : "commit ", applied.c_str());
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
               {"RESULT"}});
  for (const lyd_node* commit : Children(commits, "commit")) {
    const double milliseconds = std::strtod(ChildText(commit, "duration").c_str(), nullptr) / 1000;
    char duration[32];
    std::snprintf(duration, sizeof(duration), "%.1f", milliseconds);
    const std::string reason = ChildText(commit, "reason");
    const std::string at_start = FindChild(commit, "at-start") != nullptr ? " at the start" : "";
    table.AddRow({ChildText(commit, "id"), ShortTime(ChildText(commit, "time")),
                  ChildText(commit, "user"), ChildText(commit, "session-id"), duration,
                  ChildText(commit, "result") + at_start + (reason.empty() ? "" : ": " + reason)});
  }
  std::fputs(table.Print().c_str(), stdout);
  return {};
}

}  // namespace aclctl
