// What the page shows, as JSON: see page_state.h.
#include "tools/metrics/page_state.h"

#include <map>
#include <nlohmann/json.hpp>

#include "tools/metrics/history.h"
#include "tools/metrics/moment.h"

namespace metrics {
namespace {

using nlohmann::json;

// What a person would look at; how many there are in all is told as well.
constexpr size_t kMostInterfaces = 300;
constexpr size_t kMostProfiles = 300;
constexpr size_t kMostCommits = 12;
constexpr size_t kMostShownFindings = 50;

double Ago(Clock::time_point moment) {
  return std::chrono::duration<double>(Clock::now() - moment).count();
}

json Groups(const std::vector<Group>& groups) {
  json list = json::array();
  for (const Group& group : groups) {
    json node = {{"type", group.type},         {"capacity", group.capacity},
                 {"entries", group.entries},   {"high", group.threshold_high},
                 {"low", group.threshold_low}, {"nearlyFull", group.nearly_full}};
    if (group.waiting) node["waiting"] = *group.waiting;
    if (group.search) {
      node["search"] = {{"interface", group.search->interface},
                        {"entries", group.search->worst_entries}};
      if (group.search->worst_tables) node["search"]["tables"] = *group.search->worst_tables;
    }
    list.push_back(node);
  }
  return list;
}

// By name, with what is bound there and what the interface takes of it.
json Interfaces(const State& state) {
  std::map<std::string, json> uses;
  for (const Use& use : state.uses) {
    uses[use.interface].push_back(
        {{"group", use.group}, {"profile", use.profile}, {"entries", use.entries}});
  }
  json list = json::array();
  for (const Interface& interface : state.interfaces) {
    if (list.size() == kMostInterfaces) break;
    json& bound = uses[interface.name];
    list.push_back({{"name", interface.name},
                    {"link", interface.link},
                    {"filters", interface.filters},
                    {"uses", bound.is_null() ? json::array() : bound}});
  }
  return list;
}

json Profiles(const Snapshot& snapshot) {
  std::map<std::string, uint64_t> entries;
  for (const Use& use : snapshot.state.uses) {
    if (use.interface.empty()) entries[use.profile] = use.entries;
  }
  json list = json::array();
  for (const Profile& profile : snapshot.profiles) {
    if (list.size() == kMostProfiles) break;
    list.push_back({{"name", profile.name},
                    {"group", profile.group},
                    {"priority", profile.priority},
                    {"description", profile.description},
                    {"entries", entries[profile.name]}});
  }
  return list;
}

json Busy(const std::vector<BusyEntry>& entries) {
  json list = json::array();
  for (const BusyEntry& entry : entries) {
    json curve = json::array();
    for (const auto& [time, rate] : entry.curve) curve.push_back({Ago(time), rate});
    const EntryName& name = entry.hits.name;
    list.push_back({{"group", name.group},
                    {"interface", name.interface},
                    {"profile", name.profile},
                    {"acePriority", name.ace_priority},
                    {"match", entry.match},
                    {"action", entry.action},
                    {"description", entry.description},
                    {"packets", entry.hits.packets},
                    {"bytes", entry.hits.bytes},
                    {"rate", entry.packets_per_s},
                    {"byteRate", entry.bytes_per_s},
                    {"curve", curve}});
  }
  return list;
}

// The latest first.
json Commits(const State& state) {
  json list = json::array();
  for (auto at = state.commits.rbegin(); at != state.commits.rend(); ++at) {
    if (list.size() == kMostCommits) break;
    list.push_back({{"id", at->id},
                    {"user", at->user},
                    {"comment", at->comment},
                    {"time", at->time},
                    {"result", at->result},
                    {"reason", at->reason},
                    {"durationUs", at->duration_us},
                    {"atStart", at->at_start}});
  }
  return list;
}

json FindingsOf(const Findings& findings) {
  uint64_t total = 0;
  for (const auto& [kind, count] : findings.counts) total += count;
  json list = json::array();
  for (const Finding& finding : findings.list) {
    if (list.size() == kMostShownFindings) break;
    list.push_back({{"kind", finding.kind}, {"where", finding.where}, {"text", finding.text}});
  }
  return {{"commit", findings.commit},
          {"total", total},
          {"incomplete", findings.incomplete},
          {"list", list}};
}

json Parts(const std::vector<Part>& parts) {
  json list = json::array();
  for (const Part& part : parts) {
    list.push_back({{"name", part.name}, {"state", part.state}, {"text", part.text}});
  }
  return list;
}

}  // namespace

std::string PageState(const Snapshot& snapshot, double interval_s) {
  const State& state = snapshot.state;
  json page = {{"up", snapshot.up}, {"trouble", snapshot.trouble}, {"interval", interval_s}};
  if (snapshot.read_at) {
    page["readAt"] = UnixSeconds(*snapshot.read_at);
    page["version"] = state.version;
    page["started"] = state.started;
    page["backend"] = state.backend;
    page["parts"] = Parts(state.parts);
    page["groups"] = Groups(state.groups);
    page["interfaces"] = Interfaces(state);
    page["interfaceCount"] = state.interfaces.size();
    page["profiles"] = Profiles(snapshot);
    page["profileCount"] = snapshot.profiles.size();
    page["hitsCounted"] = state.backend != "memory";
    page["busy"] = Busy(snapshot.busy);
    page["window"] = std::chrono::duration<double>(History::kWindow).count();
    page["running"] = state.running;
    page["applied"] = state.applied;
    page["commits"] = Commits(state);
    page["findings"] = FindingsOf(snapshot.findings);
    page["sessions"] = state.sessions.open;
    if (state.confirmed) {
      page["confirmed"] = {{"commit", state.confirmed->commit},
                           {"user", state.confirmed->user},
                           {"base", state.confirmed->base},
                           {"remaining", state.confirmed->remaining_s}};
    }
  }
  // Names and texts are UTF-8 by the schema; what is not all the same shows as such.
  return page.dump(-1, ' ', true, json::error_handler_t::replace);
}

}  // namespace metrics
