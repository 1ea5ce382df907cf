// Reads the daemon over its NETCONF socket, as a user who may only read.
#ifndef TOOLS_METRICS_DAEMON_READER_H_
#define TOOLS_METRICS_DAEMON_READER_H_

#include <memory>
#include <string>
#include <vector>

#include "tools/client/client.h"
#include "tools/metrics/snapshot.h"

namespace metrics {

// One session at a time, which is opened when there is something to ask, and given up after a
// failure; once more where it may have been that of a daemon that was restarted since. Every call
// waits for the answer.
class DaemonReader {
 public:
  DaemonReader(std::string socket, client::Client::Patience patience)
      : socket_(std::move(socket)), patience_(patience) {}

  // Each of these leaves its result as it is when it fails.
  client::Failure ReadState(State* state);
  // The hits of entries in force; of those without any only where `all`. `*counted` tells whether
  // hits are counted.
  client::Failure ReadHits(bool all, bool* counted, std::vector<EntryHits>* hits);
  // What is found in the running configuration, which the daemon may have to look for: some seconds
  // for tens of thousands of entries.
  client::Failure ReadFindings(Findings* findings);
  client::Failure ReadProfiles(std::vector<Profile>* profiles);
  // What the configuration says of these entries, which have to be few.
  client::Failure ReadTexts(std::vector<BusyEntry>* entries);

 private:
  client::Failure Call(const std::string& operation, host::Tree* reply);
  client::Failure CallOnce(const std::string& operation, host::Tree* reply);
  // The configuration that a subtree filter below <access-list> selects; `*lists` is null for none.
  client::Failure ReadAccessLists(const std::string& filter, host::Tree* reply,
                                  const lyd_node** lists);

  const std::string socket_;
  const client::Client::Patience patience_;
  std::unique_ptr<client::Client> session_;
};

}  // namespace metrics

#endif  // TOOLS_METRICS_DAEMON_READER_H_
