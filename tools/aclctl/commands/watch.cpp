// aclctl watch: the hits of entries, again and again, with their rates.
#include <chrono>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <thread>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/entries_in_force.h"
#include "tools/aclctl/interfaces.h"
#include "tools/aclctl/table.h"
#include "tools/aclctl/terminal.h"

namespace aclctl {
namespace {

using Align = Table::Align;
using Clock = std::chrono::steady_clock;

struct WatchWanted {
  EntryFilter filter;
  std::string interval = "2";
  std::string rounds;  // empty: without an end
};

// What an entry had counted when it was last looked at.
struct Count {
  uint64_t packets = 0;
  uint64_t bytes = 0;
};

// An entry over several commits: its number in the group changes, where it comes from does not.
std::string Identity(const lyd_node* group, const lyd_node* entry) {
  return ChildText(group, "type") + " " + PortsOf(entry) + " " + ChildText(entry, "profile") + " " +
         ChildText(entry, "ace-priority") + " " + MatchOf(entry);
}

std::string Rate(uint64_t now, uint64_t before, double seconds) {
  // A counter that began anew says nothing of the time in between.
  if (seconds <= 0 || now < before) return "-";
  char text[32];
  std::snprintf(text, sizeof(text), "%.1f", static_cast<double>(now - before) / seconds);
  return text;
}

class Watcher {
 public:
  Watcher(const Common& common, const WatchWanted& wanted) : common_(common), wanted_(wanted) {}

  Failure Look(Client* client) {
    std::string data;
    host::Tree reply;
    const lyd_node* filters = nullptr;
    if (Failure failure = FetchState(client, "<filters xmlns=\"urn:acl-app:filters\"/>", &data,
                                     &reply, &filters)) {
      return failure;
    }
    if (Failure failure = FetchInterfaces(client, &states_)) return failure;
    const Clock::time_point now = Clock::now();
    const double seconds = first_ ? 0 : std::chrono::duration<double>(now - looked_).count();
    looked_ = now;
    Table table({{"GROUP"},
                 {"PORT"},
                 {"STATE"},
                 {"PROFILE"},
                 {"ENTRY", Align::kRight},
                 {"MATCH", Align::kLeft, true},
                 {"ACTION"},
                 {"PACKETS", Align::kRight},
                 {"PACKETS/S", Align::kRight},
                 {"BYTES/S", Align::kRight}});
    nlohmann::json json = nlohmann::json::array();
    for (const lyd_node* group : Children(filters, "group")) {
      for (const lyd_node* entry : Children(group, "entry")) {
        if (Shows(wanted_.filter, entry)) Add(group, entry, seconds, &table, &json);
      }
    }
    first_ = false;
    if (common_.form == Form::kJson) {
      std::printf("%s\n", json.dump().c_str());
    } else {
      // At a terminal, from the top of an empty screen.
      std::printf("%s%s\n", TerminalWidth() != 0 ? "\033[H\033[2J" : "", table.Print().c_str());
    }
    std::fflush(stdout);
    return {};
  }

 private:
  void Add(const lyd_node* group, const lyd_node* entry, double seconds, Table* table,
           nlohmann::json* json) {
    const lyd_node* const hits = FindChild(entry, "hits");
    const Count now{std::strtoull(ChildText(hits, "packets").c_str(), nullptr, 10),
                    std::strtoull(ChildText(hits, "bytes").c_str(), nullptr, 10)};
    Count& before = counts_[Identity(group, entry)];
    const std::string packets = Rate(now.packets, before.packets, hits == nullptr ? 0 : seconds);
    const std::string bytes = Rate(now.bytes, before.bytes, hits == nullptr ? 0 : seconds);
    const std::string layer = GroupName(group);
    before = now;
    table->AddRow({layer, PortsOf(entry), StatesOf(entry, states_), ChildText(entry, "profile"),
                   ChildText(entry, "ace-priority"), MatchOf(entry), ActionOf(entry),
                   hits == nullptr ? "-" : std::to_string(now.packets), packets, bytes});
    json->push_back({{"group", layer},
                     {"port", PortsOf(entry)},
                     {"state", StatesOf(entry, states_)},
                     {"profile", ChildText(entry, "profile")},
                     {"ace-priority", ChildText(entry, "ace-priority")},
                     {"packets", now.packets},
                     {"bytes", now.bytes},
                     {"packets-per-second", std::strtod(packets.c_str(), nullptr)},
                     {"bytes-per-second", std::strtod(bytes.c_str(), nullptr)}});
  }

  const Common& common_;
  const WatchWanted& wanted_;
  InterfaceStates states_;
  bool first_ = true;
  Clock::time_point looked_;
  std::map<std::string, Count> counts_;
};

Failure Watch(const Common& common, const WatchWanted& wanted) {
  if (Failure failure = CheckEntryFilter(wanted.filter)) return failure;
  char *interval_end = nullptr, *rounds_end = nullptr;
  const double interval = std::strtod(wanted.interval.c_str(), &interval_end);
  const long rounds = std::strtol(wanted.rounds.c_str(), &rounds_end, 10);
  // "nan" is a number too, and neither too small nor too large.
  const bool in_range = interval >= 0.1 && interval <= 3600;
  if (!in_range || *interval_end != 0 || *rounds_end != 0 ||
      (!wanted.rounds.empty() && rounds < 1)) {
    return {kUsage, "-i takes seconds from 0.1 to 3600, -n a number of times", {}};
  }
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  Watcher watcher(common, wanted);
  for (long round = 1; wanted.rounds.empty() || round <= rounds; ++round) {
    if (round > 1) std::this_thread::sleep_for(std::chrono::duration<double>(interval));
    if (Failure failure = watcher.Look(&client)) return failure;
  }
  return {};
}

Run SetUpWatch(Syntax* syntax) {
  const auto wanted = std::make_shared<WatchWanted>();
  AddEntryFilter(syntax, &wanted->filter);
  syntax->Option("-i,--interval", "SECONDS", &wanted->interval, "between two looks (default 2)");
  syntax->Option("-n", "N", &wanted->rounds, "look so many times (default: until Ctrl-C)");
  return [wanted](const Common& common) { return Watch(common, *wanted); };
}

}  // namespace

const Command kWatch = {"watch", Group::kLook, "the hits of entries, with their rates",
                        "aclctl watch --port access-1 --hit", SetUpWatch};

}  // namespace aclctl
