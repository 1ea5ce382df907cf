// Reads the daemon: see daemon_reader.h.
#include "tools/metrics/daemon_reader.h"

#include <cstdlib>
#include <map>
#include <utility>

#include "host/xml/xml_text.h"
#include "tools/client/data.h"
#include "tools/client/match_words.h"

namespace metrics {
namespace {

using client::Children;
using client::ChildText;
using client::Failure;
using client::FindChild;

// All that is cheap, in one answer, so that it is of one moment.
constexpr char kState[] =
    "<get><filter type=\"subtree\">"
    "<daemon xmlns=\"urn:acl-app:status\"/>"
    "<groups xmlns=\"urn:acl-app:filters\"/><interfaces xmlns=\"urn:acl-app:filters\"/>"
    "<commits xmlns=\"urn:acl-app:commits\"/><confirmed-commit xmlns=\"urn:acl-app:commits\"/>"
    "<status xmlns=\"urn:acl-app:acl\"><acl-resources/></status>"
    "<netconf-state xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">"
    "<sessions/><statistics/></netconf-state></filter></get>";

// Findings that are kept to be shown.
constexpr size_t kMostFindings = 100;

uint64_t Number(const lyd_node* parent, const char* leaf) {
  return std::strtoull(ChildText(parent, leaf).c_str(), nullptr, 10);
}

std::optional<double> Decimal(const lyd_node* parent, const char* leaf) {
  const std::string text = ChildText(parent, leaf);
  return text.empty() ? std::nullopt : std::optional(std::strtod(text.c_str(), nullptr));
}

Group ReadGroup(const lyd_node* node) {
  Group group;
  group.type = ChildText(node, "type");
  group.capacity = Number(node, "capacity");
  group.entries = Number(node, "entries");
  if (FindChild(node, "waiting") != nullptr) group.waiting = Number(node, "waiting");
  group.threshold_high = Number(node, "threshold-high");
  group.threshold_low = Number(node, "threshold-low");
  group.nearly_full = ChildText(node, "nearly-full") == "true";
  group.raised = Number(node, "raised");
  if (const lyd_node* search = FindChild(node, "search")) {
    group.search =
        Search{ChildText(search, "port"), Decimal(search, "tables-mean"),
               Decimal(search, "tables-worst"), Decimal(search, "entries-worst").value_or(0)};
  }
  return group;
}

Commit ReadCommit(const lyd_node* node) {
  Commit commit;
  commit.id = ChildText(node, "id");
  commit.user = ChildText(node, "user");
  commit.comment = ChildText(node, "comment");
  commit.time = ChildText(node, "time");
  commit.result = ChildText(node, "result");
  commit.reason = ChildText(node, "reason");
  commit.duration_us = Number(node, "duration");
  commit.at_start = FindChild(node, "at-start") != nullptr;
  return commit;
}

void ReadCommits(const lyd_node* commits, State* state) {
  state->running = ChildText(commits, "running");
  state->applied = ChildText(commits, "applied");
  const lyd_node* statistics = FindChild(commits, "statistics");
  state->statistics = {Number(statistics, "applied"),    Number(statistics, "failed"),
                       Number(statistics, "superseded"), Number(statistics, "pending"),
                       Number(statistics, "duration"),   {}};
  for (const lyd_node* bucket : Children(statistics, "bucket")) {
    state->statistics.up_to_us.emplace_back(Number(bucket, "up-to"), Number(bucket, "commits"));
  }
  for (const lyd_node* commit : Children(commits, "commit")) {
    state->commits.push_back(ReadCommit(commit));
  }
}

// What profiles take, in one group (on all interfaces: `interface` is empty).
void ReadUses(const lyd_node* layer, const std::string& interface, const char* group,
              std::vector<Use>* uses) {
  for (const lyd_node* profile : Children(layer, "profile")) {
    uses->push_back(
        {interface, group, ChildText(profile, "acl-name"), Number(profile, "used-entries")});
  }
}

void ReadResources(const lyd_node* resources, State* state) {
  for (const char* group : {"l2", "l3"}) {
    ReadUses(FindChild(resources, group), "", group, &state->uses);
  }
  for (const lyd_node* interface : Children(resources, "interface")) {
    for (const char* group : {"l2", "l3"}) {
      ReadUses(FindChild(interface, group), ChildText(interface, "interface-name"), group,
               &state->uses);
    }
  }
}

void ReadDaemon(const lyd_node* daemon, State* state) {
  state->version = ChildText(daemon, "version");
  state->started = ChildText(daemon, "started");
  state->log_lines_dropped = Number(daemon, "log-lines-dropped");
  state->in_doubt = ChildText(FindChild(daemon, "storage"), "state") == "in-doubt";
  for (const lyd_node* part : Children(daemon, "part")) {
    state->parts.push_back(
        {ChildText(part, "name"), ChildText(part, "state"), ChildText(part, "text")});
  }
}

void ReadSessions(const lyd_node* monitoring, State* state) {
  const lyd_node* statistics = FindChild(monitoring, "statistics");
  state->sessions = {Children(FindChild(monitoring, "sessions"), "session").size(),
                     Number(statistics, "in-sessions"),
                     Number(statistics, "dropped-sessions"),
                     Number(statistics, "in-bad-hellos"),
                     Number(statistics, "in-rpcs"),
                     Number(statistics, "in-bad-rpcs"),
                     Number(statistics, "out-rpc-errors")};
}

Finding ReadFinding(const lyd_node* node) {
  Finding finding{ChildText(node, "kind"), ChildText(node, "profile"), ChildText(node, "text")};
  if (!finding.where.empty()) finding.where += " " + ChildText(node, "ace-priority");
  std::string interfaces;
  for (const lyd_node* interface : Children(node, "interface")) {
    interfaces += (interfaces.empty() ? "" : ", ") + std::string(host::XmlText(interface));
  }
  if (!interfaces.empty()) finding.where += (finding.where.empty() ? "" : " on ") + interfaces;
  return finding;
}

}  // namespace

Failure DaemonReader::Call(const std::string& operation, host::Tree* reply) {
  const bool old = session_ != nullptr;
  Failure failure = CallOnce(operation, reply);
  if (old && session_ == nullptr) failure = CallOnce(operation, reply);
  return failure;
}

Failure DaemonReader::CallOnce(const std::string& operation, host::Tree* reply) {
  if (session_ == nullptr) {
    session_ = std::make_unique<client::Client>(patience_);
    if (Failure failure = session_->Open(socket_)) {
      session_.reset();
      return failure;
    }
  }
  Failure failure = session_->Call(operation, reply);
  // The reply belongs to the session's context.
  if (failure && failure.code != client::kRefused) {
    reply->reset();
    session_.reset();
  }
  return failure;
}

Failure DaemonReader::ReadState(State* state) {
  host::Tree reply;
  if (Failure failure = Call(kState, &reply)) return failure;
  const lyd_node* data = FindChild(reply.get(), "data");
  *state = {};
  ReadDaemon(FindChild(data, "daemon"), state);
  const lyd_node* groups = FindChild(data, "groups");
  state->backend = ChildText(groups, "backend");
  state->retries = Number(groups, "retries");
  for (const lyd_node* group : Children(groups, "group")) {
    state->groups.push_back(ReadGroup(group));
  }
  for (const lyd_node* node : Children(FindChild(data, "interfaces"), "interface")) {
    state->interfaces.push_back(
        {ChildText(node, "name"), ChildText(node, "link"), ChildText(node, "filters")});
  }
  ReadCommits(FindChild(data, "commits"), state);
  if (const lyd_node* confirmed = FindChild(data, "confirmed-commit")) {
    state->confirmed = {ChildText(confirmed, "commit"), ChildText(confirmed, "user"),
                        ChildText(confirmed, "base"), Number(confirmed, "remaining")};
  }
  ReadResources(FindChild(FindChild(data, "status"), "acl-resources"), state);
  ReadSessions(FindChild(data, "netconf-state"), state);
  return {};
}

Failure DaemonReader::ReadHits(bool all, bool* counted, std::vector<EntryHits>* hits) {
  host::Tree reply;
  if (Failure failure = Call(std::string("<get-hits xmlns=\"urn:acl-app:filters\">") +
                                 (all ? "" : "<hit/>") + "</get-hits>",
                             &reply)) {
    return failure;
  }
  hits->clear();
  *counted = false;
  for (const lyd_node* group : Children(reply.get(), "group")) {
    const std::string type = ChildText(group, "type");
    for (const lyd_node* binding : Children(group, "binding")) {
      const EntryName name{type, ChildText(binding, "interface"), ChildText(binding, "profile")};
      for (const lyd_node* entry : Children(binding, "entry")) {
        hits->push_back({name, Number(entry, "packets"), Number(entry, "bytes")});
        hits->back().name.ace_priority = Number(entry, "ace-priority");
        *counted |= FindChild(entry, "packets") != nullptr;
      }
    }
  }
  return {};
}

Failure DaemonReader::ReadFindings(Findings* findings) {
  host::Tree reply;
  if (Failure failure = Call(
          "<get><filter type=\"subtree\"><findings xmlns=\"urn:acl-app:findings\"/></filter></get>",
          &reply)) {
    return failure;
  }
  const lyd_node* found = FindChild(FindChild(reply.get(), "data"), "findings");
  *findings = {};
  findings->commit = ChildText(found, "commit");
  findings->incomplete = FindChild(found, "incomplete") != nullptr;
  for (const lyd_node* count : Children(found, "count")) {
    findings->counts[ChildText(count, "kind")] = Number(count, "findings");
  }
  for (const lyd_node* node : Children(found, "finding")) {
    if (findings->list.size() == kMostFindings) break;
    findings->list.push_back(ReadFinding(node));
  }
  return {};
}

Failure DaemonReader::ReadAccessLists(const std::string& filter, host::Tree* reply,
                                      const lyd_node** lists) {
  if (Failure failure =
          Call("<get-config><source><running/></source><filter type=\"subtree\"><config "
               "xmlns=\"urn:acl-app:acl\"><access-list><acl-profile><ingress>" +
                   filter + "</ingress></acl-profile></access-list></config></filter></get-config>",
               reply)) {
    return failure;
  }
  *lists = reply->get();
  for (const char* name : {"data", "config", "access-list", "acl-profile", "ingress"}) {
    *lists = FindChild(*lists, name);
  }
  return {};
}

Failure DaemonReader::ReadProfiles(std::vector<Profile>* profiles) {
  host::Tree reply;
  const lyd_node* lists = nullptr;
  if (Failure failure = ReadAccessLists(
          "<access-list><acl-type/><acl-name/><description/><acl-priority-l2/><acl-priority-l3/>"
          "</access-list>",
          &reply, &lists)) {
    return failure;
  }
  profiles->clear();
  for (const lyd_node* list : Children(lists, "access-list")) {
    const std::string type = ChildText(list, "acl-type");
    profiles->push_back({type, ChildText(list, "acl-name"),
                         ChildText(FindChild(list, ("acl-priority-" + type).c_str()), "priority"),
                         ChildText(list, "description")});
  }
  return {};
}

Failure DaemonReader::ReadTexts(std::vector<BusyEntry>* entries) {
  std::string filter;
  std::multimap<std::pair<std::string, uint64_t>, BusyEntry*> wanted;  // by profile and priority
  for (BusyEntry& entry : *entries) {
    const EntryName& name = entry.hits.name;
    wanted.emplace(std::make_pair(name.profile, name.ace_priority), &entry);
    filter += "<access-list><acl-type>" + name.group + "</acl-type><acl-name>" +
              host::XmlEscape(name.profile) + "</acl-name><access-list-entry><ace-priority>" +
              std::to_string(name.ace_priority) +
              "</ace-priority></access-list-entry></access-list>";
  }
  if (wanted.empty()) return {};
  host::Tree reply;
  const lyd_node* lists = nullptr;
  if (Failure failure = ReadAccessLists(filter, &reply, &lists)) return failure;
  for (const lyd_node* list : Children(lists, "access-list")) {
    for (const lyd_node* node : Children(list, "access-list-entry")) {
      const auto range =
          wanted.equal_range({ChildText(list, "acl-name"), Number(node, "ace-priority")});
      for (auto at = range.first; at != range.second; ++at) {
        at->second->match = client::MatchText(FindChild(node, "match"));
        at->second->action = client::ActionText(FindChild(node, "action"));
        at->second->description = ChildText(node, "description");
      }
    }
  }
  return {};
}

}  // namespace metrics
