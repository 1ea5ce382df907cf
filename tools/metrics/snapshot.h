// What was read of the daemon, as plain data: between who reads it, and those who show it.
//
// A snapshot does not change once it is published; everybody shares it.
#ifndef TOOLS_METRICS_SNAPSHOT_H_
#define TOOLS_METRICS_SNAPSHOT_H_

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

namespace metrics {

using Clock = std::chrono::steady_clock;

// What a search in a group looks at, on the interface where it costs most.
struct Search {
  std::string interface;
  std::optional<double> mean_tables, worst_tables;  // none where there are no tables
  double worst_entries = 0;
};

// A filter group. Types of groups are "l2" and "l3" everywhere.
struct Group {
  std::string type;
  uint64_t capacity = 0, entries = 0;
  std::optional<uint64_t> waiting;                 // entries of what is not in force yet
  uint64_t threshold_high = 0, threshold_low = 0;  // percent
  bool nearly_full = false;
  uint64_t raised = 0;  // how often it became so
  std::optional<Search> search;
};

// Entries that a profile takes in a group: on an interface, or on all of them (empty).
struct Use {
  std::string interface, group, profile;
  uint64_t entries = 0;
};

struct Interface {
  std::string name;
  std::string link;     // "up", "down", "absent"
  std::string filters;  // "in-force", "waiting", "failed", "not-enforced"
};

struct Commit {
  std::string id, user, comment, time, result, reason;
  uint64_t duration_us = 0;
  bool at_start = false;
};

// Of all commits since the daemon's start.
struct CommitStatistics {
  uint64_t applied = 0, failed = 0, superseded = 0, pending = 0;
  uint64_t duration_us = 0;                             // of the applied ones together
  std::vector<std::pair<uint64_t, uint64_t>> up_to_us;  // applied ones by bounds of duration
};

struct ConfirmedCommit {
  std::string commit, user, base;
  uint64_t remaining_s = 0;
};

// A part of the daemon, by `aclctl show status`.
struct Part {
  std::string name;
  std::string state;  // "ok", "warning", "error"
  std::string text;
};

struct Sessions {
  uint64_t open = 0;
  uint64_t begun = 0, dropped = 0, bad_hellos = 0, rpcs = 0, bad_rpcs = 0, errors = 0;
};

// One reading of what is cheap to read.
struct State {
  std::string version, started, backend;
  uint64_t log_lines_dropped = 0, retries = 0;
  bool in_doubt = false;  // the stored configuration
  std::vector<Part> parts;
  std::vector<Group> groups;
  std::vector<Use> uses;
  std::vector<Interface> interfaces;
  std::string running, applied;  // commits; the latter may be empty
  CommitStatistics statistics;
  std::vector<Commit> commits;  // the latest last
  std::optional<ConfirmedCommit> confirmed;
  Sessions sessions;

  uint64_t entries() const {
    uint64_t sum = 0;
    for (const Group& group : groups) sum += group.entries;
    return sum;
  }
};

// What stays the same until the next commit.
struct Profile {
  std::string group, name, priority, description;
};

struct Finding {
  std::string kind, where, text;
};

struct Findings {
  std::string commit;  // of which they are; empty: not known yet
  std::map<std::string, uint64_t> counts;
  bool incomplete = false;
  std::vector<Finding> list;  // the first ones
};

// An entry in force, as people call it.
struct EntryName {
  std::string group, interface, profile;
  uint64_t ace_priority = 0;

  auto Key() const { return std::tie(group, interface, profile, ace_priority); }
  bool operator<(const EntryName& other) const { return Key() < other.Key(); }
  bool operator==(const EntryName& other) const { return Key() == other.Key(); }
};

struct EntryHits {
  EntryName name;
  uint64_t packets = 0, bytes = 0;
};

// An entry among the busiest, with what it is in words and what came of late.
struct BusyEntry {
  EntryHits hits;
  std::string match, action, description;  // empty while they are not known
  double packets_per_s = 0, bytes_per_s = 0;
  // Packets a second between two readings, with the moment of the latter; the latest last.
  std::vector<std::pair<Clock::time_point, double>> curve;
};

// All that is known at a moment.
struct Snapshot {
  bool up = false;      // the last reading succeeded
  std::string trouble;  // why not
  // When `state` was read; none: never.
  std::optional<std::chrono::system_clock::time_point> read_at;
  State state;
  std::vector<Profile> profiles;
  Findings findings;
  // Hits of the entries in force, where those are few enough to be told one by one.
  bool hits_by_entry = false;
  bool hits_counted = false;  // whether the back end counts any
  std::vector<EntryHits> hits;
  std::vector<BusyEntry> busy;
  // What reading took.
  uint64_t readings = 0, failures = 0;
  uint64_t restarts = 0;           // of the daemon
  double state_s = 0, hits_s = 0;  // what the last readings took
};

}  // namespace metrics

#endif  // TOOLS_METRICS_SNAPSHOT_H_
