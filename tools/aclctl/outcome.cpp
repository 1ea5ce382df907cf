// What the daemon made of a commit: see outcome.h.
#include "tools/aclctl/outcome.h"

#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/interfaces.h"

namespace aclctl {
namespace {

// Fetches what `filter` selects within <commits>; `*commits` is null when the daemon has none.
Failure FetchCommits(Client* client, const std::string& filter, host::Tree* reply,
                     const lyd_node** commits) {
  std::string data;
  return FetchState(client, "<commits xmlns=\"urn:acl-app:commits\">" + filter + "</commits>",
                    &data, reply, commits);
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
  InterfaceStates interfaces;
  if (Failure failure = FetchInterfaces(client, &interfaces)) return failure;
  const std::string coverage = CoverageText(interfaces);
  if (!coverage.empty()) in_force_ += "; " + coverage;
  if (!own.empty()) {
    id_ = ChildText(own.back(), "id");
    result_ = ChildText(own.back(), "result");
    if (result_ == "applied") return {};
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

void CommitReport::PrintJson() const {
  nlohmann::json report = nlohmann::json::object();
  if (!id_.empty()) report["commit"] = std::strtoull(id_.c_str(), nullptr, 10);
  report["result"] = result_;
  report["in-force"] = in_force_;
  std::printf("%s\n", report.dump(2).c_str());
}

}  // namespace aclctl
