// Hits by origin: see hits.h.
#include "tools/aclctl/hits.h"

#include <cstdint>
#include <cstdlib>

#include "tools/aclctl/daemon_data.h"

namespace aclctl {
namespace {

constexpr int kMostAttempts = 5;

// The last commit, and the last one that is in force.
struct Commits {
  std::string running, applied;

  bool operator==(const Commits& other) const {
    return running == other.running && applied == other.applied;
  }
};

Failure FetchCommits(Client* client, Commits* commits) {
  std::string data;
  host::Tree reply;
  const lyd_node* top = nullptr;
  const Failure failure =
      FetchState(client, "<commits xmlns=\"urn:acl-app:commits\"><running/><applied/></commits>",
                 &data, &reply, &top);
  *commits = {ChildText(top, "running"), ChildText(top, "applied")};
  return failure;
}

uint64_t CounterIn(const lyd_node* entry, const char* leaf) {
  return std::strtoull(ChildText(entry, leaf).c_str(), nullptr, 10);
}

Failure FetchHits(Client* client, host::HitsByOrigin* hits) {
  hits->clear();
  host::Tree reply;
  if (Failure failure = client->Call("<get-hits xmlns=\"urn:acl-app:filters\"/>", &reply)) {
    return failure;
  }
  for (const lyd_node* group : Children(reply.get(), "group")) {
    for (const lyd_node* binding : Children(group, "binding")) {
      std::vector<host::EntryHits>* entries = nullptr;
      for (const lyd_node* entry : Children(binding, "entry")) {
        if (FindChild(entry, "packets") == nullptr) continue;  // not counted
        if (entries == nullptr) {
          entries = &(*hits)[{ChildText(binding, "interface"), ChildText(binding, "profile")}];
        }
        entries->push_back({static_cast<uint16_t>(CounterIn(entry, "ace-priority")),
                            {CounterIn(entry, "packets"), CounterIn(entry, "bytes")}});
      }
    }
  }
  return {};
}

}  // namespace

Failure FetchWithHits(Client* client, const std::function<Failure()>& fetch,
                      host::HitsByOrigin* hits, std::string* why) {
  for (int attempt = 0; attempt < kMostAttempts; ++attempt) {
    Commits before, after;
    if (Failure failure = FetchCommits(client, &before)) return failure;
    if (Failure failure = fetch()) return failure;
    if (Failure failure = FetchHits(client, hits)) return failure;
    if (Failure failure = FetchCommits(client, &after)) return failure;
    if (!(before == after)) continue;
    if (after.running != after.applied) {
      *why = "commit " + after.running + " is not in force";
    } else if (hits->empty()) {
      *why = "no entry is counted";
    }
    if (!why->empty()) hits->clear();
    return {};
  }
  hits->clear();
  *why = "commits come too fast";
  return {};
}

}  // namespace aclctl
