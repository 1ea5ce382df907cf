// What is known of the daemon in Prometheus' text format: see exposition.h.
#include "tools/metrics/exposition.h"

#include <prometheus/metric_family.h>
#include <prometheus/text_serializer.h>

#include <algorithm>
#include <initializer_list>
#include <limits>
#include <utility>
#include <vector>

#include "tools/metrics/moment.h"

namespace metrics {
namespace {

using prometheus::ClientMetric;
using prometheus::MetricFamily;
using prometheus::MetricType;

// Collects the samples, family by family.
class Samples {
 public:
  using Labels = std::initializer_list<std::pair<const char*, std::string>>;

  // Begins a family; what is added next is of it.
  void Gauge(const char* name, const char* help) { Begin(name, help, MetricType::Gauge); }
  void Counter(const char* name, const char* help) { Begin(name, help, MetricType::Counter); }

  ClientMetric& Add(double value, const Labels& labels = {}) {
    ClientMetric metric;
    for (const auto& [name, text] : labels) metric.label.push_back({name, text});
    if (families_.back().type == MetricType::Counter) {
      metric.counter.value = value;
    } else {
      metric.gauge.value = value;
    }
    families_.back().metric.push_back(std::move(metric));
    return families_.back().metric.back();
  }
  void Add(uint64_t value, const Labels& labels = {}) { Add(static_cast<double>(value), labels); }
  void Add(bool value, const Labels& labels = {}) { Add(value ? 1.0 : 0.0, labels); }
  // One sample for each of `states`, of which the one that is `now` is 1.
  void AddStates(const char* label, const std::string& now,
                 std::initializer_list<const char*> states, const Labels& labels = {}) {
    for (const char* state : states) {
      ClientMetric& metric = Add(now == state ? 1.0 : 0.0, labels);
      metric.label.push_back({label, state});
    }
  }
  void Begin(const char* name, const char* help, MetricType type) {
    families_.push_back({name, help, type, {}});
  }

  // All families that have samples.
  std::string Text() {
    families_.erase(
        std::remove_if(families_.begin(), families_.end(),
                       [](const MetricFamily& family) { return family.metric.empty(); }),
        families_.end());
    return prometheus::TextSerializer().Serialize(families_);
  }

 private:
  std::vector<MetricFamily> families_;
};

void AddReading(const Snapshot& snapshot, Samples* out) {
  out->Gauge("acl_app_up", "Whether the daemon answered when it was last asked.");
  out->Add(snapshot.up);
  out->Gauge("acl_app_last_reading_timestamp_seconds",
             "When the daemon was last read; 0 before the first time.");
  out->Add(snapshot.read_at ? UnixSeconds(*snapshot.read_at) : 0.0);
  out->Counter("acl_app_readings_total", "Readings of the daemon, by what came of them.");
  out->Add(snapshot.readings, {{"result", "ok"}});
  out->Add(snapshot.failures, {{"result", "failed"}});
  out->Counter("acl_app_restarts_total", "Restarts of the daemon that were seen.");
  out->Add(snapshot.restarts);
}

void AddDaemon(const Snapshot& snapshot, Samples* out) {
  const State& state = snapshot.state;
  out->Gauge("acl_app_reading_duration_seconds", "What the last reading took, by what was read.");
  out->Add(snapshot.state_s, {{"reading", "state"}});
  out->Add(snapshot.hits_s, {{"reading", "hits"}});
  out->Gauge("acl_app_daemon_info", "The daemon's version.");
  out->Add(true, {{"version", state.version}});
  out->Gauge("acl_app_start_time_seconds", "When the daemon was started.");
  out->Add(UnixSeconds(state.started));
  out->Gauge("acl_app_backend", "Which back end enforces the filters.");
  out->AddStates("backend", state.backend, {"bpf", "nftables", "memory"});
  out->Gauge("acl_app_part_state", "How the parts of the daemon are.");
  for (const Part& part : state.parts) {
    out->AddStates("state", part.state, {"ok", "warning", "error"}, {{"part", part.name}});
  }
  out->Gauge("acl_app_storage_in_doubt",
             "Whether the stored configuration is in doubt, and nothing can be changed.");
  out->Add(state.in_doubt);
  out->Counter("acl_app_log_lines_dropped_total", "Log lines that nobody took.");
  out->Add(state.log_lines_dropped);
  out->Counter("acl_app_retries_total",
               "Attempts to put in force what had failed for a passing reason.");
  out->Add(state.retries);
}

// A family with one sample a group.
template <class Value>
void AddByGroup(const std::vector<Group>& groups, const Value& value, Samples* out) {
  for (const Group& group : groups) out->Add(value(group), {{"group", group.type}});
}

void AddSearch(const std::vector<Group>& groups, Samples* out) {
  const struct {
    const char *name, *help;
    std::optional<double> (*value)(const Search& search);
  } kFamilies[] = {
      {"acl_app_search_mean_tables",
       "Tables that a search looks into, in the mean, on the interface where it costs most.",
       [](const Search& search) { return search.mean_tables; }},
      {"acl_app_search_worst_tables", "Tables that it looks into at most.",
       [](const Search& search) { return search.worst_tables; }},
      {"acl_app_search_worst_entries", "Entries that it compares the frame with at most.",
       [](const Search& search) { return std::optional(search.worst_entries); }},
  };
  for (const auto& family : kFamilies) {
    out->Gauge(family.name, family.help);
    for (const Group& group : groups) {
      const auto value = group.search ? family.value(*group.search) : std::nullopt;
      if (value) out->Add(*value, {{"group", group.type}});
    }
  }
}

void AddGroups(const State& state, Samples* out) {
  const std::vector<Group>& groups = state.groups;
  out->Gauge("acl_app_group_capacity_entries", "Entries that the group holds at most.");
  AddByGroup(
      groups, [](const Group& group) { return group.capacity; }, out);
  out->Gauge("acl_app_group_used_entries", "Entries of the group that are in force.");
  AddByGroup(
      groups, [](const Group& group) { return group.entries; }, out);
  out->Gauge("acl_app_group_free_entries", "Entries that the group has room for.");
  AddByGroup(
      groups,
      [](const Group& group) {
        return group.capacity > group.entries ? group.capacity - group.entries : uint64_t{0};
      },
      out);
  out->Gauge("acl_app_group_waiting_entries",
             "Entries that the group will have when what waits comes into force.");
  AddByGroup(
      groups, [](const Group& group) { return group.waiting.value_or(0); }, out);
  out->Gauge("acl_app_group_nearly_full",
             "Whether the group reached its high threshold, and is not down to its low one yet.");
  AddByGroup(
      groups, [](const Group& group) { return group.nearly_full; }, out);
  out->Counter("acl_app_group_nearly_full_raised_total", "How often it became nearly full.");
  AddByGroup(
      groups, [](const Group& group) { return group.raised; }, out);
  out->Gauge("acl_app_group_threshold_ratio", "The thresholds, as shares of the capacity.");
  for (const Group& group : groups) {
    out->Add(static_cast<double>(group.threshold_high) / 100,
             {{"group", group.type}, {"threshold", "high"}});
    out->Add(static_cast<double>(group.threshold_low) / 100,
             {{"group", group.type}, {"threshold", "low"}});
  }
  AddSearch(groups, out);
}

void AddUses(const State& state, Samples* out) {
  out->Gauge("acl_app_profile_entries", "Entries that a profile takes, on all interfaces.");
  for (const Use& use : state.uses) {
    if (!use.interface.empty()) continue;
    out->Add(use.entries, {{"group", use.group}, {"profile", use.profile}});
  }
  out->Gauge("acl_app_interface_entries", "Entries that a profile takes on an interface.");
  for (const Use& use : state.uses) {
    if (use.interface.empty()) continue;
    out->Add(use.entries,
             {{"interface", use.interface}, {"group", use.group}, {"profile", use.profile}});
  }
  out->Gauge("acl_app_interface_link", "How the interfaces are that have entries.");
  for (const Interface& interface : state.interfaces) {
    out->AddStates("link", interface.link, {"up", "down", "absent"},
                   {{"interface", interface.name}});
  }
  out->Gauge("acl_app_interface_filters", "Whether the filters are in force on an interface.");
  for (const Interface& interface : state.interfaces) {
    out->AddStates("state", interface.filters, {"in-force", "waiting", "failed", "not-enforced"},
                   {{"interface", interface.name}});
  }
}

void AddCommits(const State& state, Samples* out) {
  const CommitStatistics& statistics = state.statistics;
  out->Counter("acl_app_commits_total",
               "Commits since the daemon's start, by what became of them.");
  out->Add(statistics.applied, {{"result", "applied"}});
  out->Add(statistics.failed, {{"result", "failed"}});
  out->Add(statistics.superseded, {{"result", "superseded"}});
  out->Gauge("acl_app_commits_pending", "Commits that are tried again until they are in force.");
  out->Add(statistics.pending);
  out->Gauge("acl_app_commit_in_force",
             "Whether the running configuration is in force: the last commit was applied.");
  out->Add(!state.running.empty() && state.running == state.applied);
  out->Begin("acl_app_commit_duration_seconds", "How long applied commits took to come into force.",
             MetricType::Histogram);
  prometheus::ClientMetric::Histogram& histogram = out->Add(0.0).histogram;
  histogram.sample_count = statistics.applied;
  histogram.sample_sum = static_cast<double>(statistics.duration_us) / 1e6;
  for (const auto& [bound, commits] : statistics.up_to_us) {
    histogram.bucket.push_back({commits, static_cast<double>(bound) / 1e6});
  }
  histogram.bucket.push_back({statistics.applied, std::numeric_limits<double>::infinity()});
  out->Gauge("acl_app_confirmed_commit_remaining_seconds",
             "Until a commit is taken back that waits to be confirmed; missing where none does.");
  if (state.confirmed) out->Add(state.confirmed->remaining_s);
}

void AddSessions(const Sessions& sessions, Samples* out) {
  out->Gauge("acl_app_sessions", "NETCONF sessions that are open.");
  out->Add(sessions.open);
  const struct {
    const char *name, *help;
    uint64_t value;
  } kCounters[] = {
      {"acl_app_sessions_begun_total", "NETCONF sessions since the daemon's start.",
       sessions.begun},
      {"acl_app_sessions_dropped_total", "Sessions that ended without being closed.",
       sessions.dropped},
      {"acl_app_bad_hellos_total", "Peers whose hello was not understood.", sessions.bad_hellos},
      {"acl_app_rpcs_total", "Requests.", sessions.rpcs},
      {"acl_app_bad_rpcs_total", "Requests that were not understood.", sessions.bad_rpcs},
      {"acl_app_rpc_errors_total", "Errors in answers to requests.", sessions.errors},
  };
  for (const auto& counter : kCounters) {
    out->Counter(counter.name, counter.help);
    out->Add(counter.value);
  }
}

void AddFindings(const Findings& findings, Samples* out) {
  if (findings.commit.empty()) return;
  out->Gauge("acl_app_findings", "What is configured, but does nothing or not what it seems to.");
  for (const char* kind : {"absent-interface", "no-frame", "contradicting-cover", "redundant",
                           "no-action", "ipv6-passes", "beyond-tables"}) {
    const auto count = findings.counts.find(kind);
    out->Add(count == findings.counts.end() ? uint64_t{0} : count->second, {{"kind", kind}});
  }
  out->Gauge("acl_app_findings_complete", "Whether all entries could be looked at.");
  out->Add(!findings.incomplete);
}

void AddHits(const Snapshot& snapshot, uint64_t most_hits, Samples* out) {
  out->Gauge("acl_app_entry_hits_limit_entries",
             "Entries up to which there are hits for each; above, there are none.");
  out->Add(most_hits);
  out->Gauge("acl_app_entry_hits_told", "Whether there are hits for each entry.");
  const bool told = snapshot.hits_by_entry && snapshot.hits_counted;
  out->Add(told);
  if (!told) return;
  const auto add = [&](uint64_t EntryHits::*value) {
    for (const EntryHits& entry : snapshot.hits) {
      out->Add(entry.*value, {{"interface", entry.name.interface},
                              {"profile", entry.name.profile},
                              {"ace_priority", std::to_string(entry.name.ace_priority)},
                              {"group", entry.name.group}});
    }
  };
  out->Counter("acl_app_entry_hits_total", "Frames that an entry decided.");
  add(&EntryHits::packets);
  out->Counter("acl_app_entry_hit_bytes_total", "Their bytes, link layer header aside.");
  add(&EntryHits::bytes);
}

}  // namespace

std::string Exposition(const Snapshot& snapshot, uint64_t most_hits) {
  Samples out;
  AddReading(snapshot, &out);
  if (snapshot.up) {
    AddDaemon(snapshot, &out);
    AddGroups(snapshot.state, &out);
    AddUses(snapshot.state, &out);
    AddCommits(snapshot.state, &out);
    AddSessions(snapshot.state.sessions, &out);
    AddFindings(snapshot.findings, &out);
    AddHits(snapshot, most_hits, &out);
  }
  return out.Text();
}

}  // namespace metrics
