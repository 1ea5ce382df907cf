// Reads the daemon again and again, and keeps the last reading for all who want to see it. So what
// the daemon has to do does not depend on how many look, nor how often.
//
// Nor does it grow without bound with the number of entries: after a reading of hits or findings
// there is a rest of 50 times what it took, at most 10 minutes, so that these take at most 2 % of
// the daemon's time.
#ifndef TOOLS_METRICS_SAMPLER_H_
#define TOOLS_METRICS_SAMPLER_H_

#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "tools/metrics/daemon_reader.h"
#include "tools/metrics/history.h"
#include "tools/metrics/snapshot.h"

namespace metrics {

struct SamplerOptions {
  std::string socket;
  std::chrono::milliseconds interval = std::chrono::seconds(5);
  uint64_t most_hits = 5000;  // entries, up to which hits are told one by one
};

class Sampler {
 public:
  // Begins to read, in threads of its own.
  explicit Sampler(const SamplerOptions& options);
  Sampler(const Sampler&) = delete;
  Sampler& operator=(const Sampler&) = delete;
  // Waits until nobody reads any more, which is soon.
  ~Sampler();

  // The last reading; never null. May be called from any thread.
  std::shared_ptr<const Snapshot> Last() const;

 private:
  void Run();
  void RunFindings();
  // Makes one reading of the state and what else is due.
  void Read();
  client::Failure ReadParts(Snapshot* next);
  client::Failure ReadHits(Snapshot* next);
  client::Failure ReadBusiest(Snapshot* next);
  // Sleeps until `when`; false when it is time to end.
  bool Rest(Clock::time_point when);
  void Publish(Snapshot snapshot);

  const SamplerOptions options_;
  const int end_;  // a descriptor that is readable when all is to end
  DaemonReader reader_;

  // Of the thread that reads the state.
  History history_;
  Clock::time_point hits_due_;
  std::string texts_of_;  // the commit that `texts_` and the profiles are of
  std::map<EntryName, BusyEntry> texts_;

  mutable std::mutex mutex_;  // for what follows
  std::condition_variable wake_;
  bool ending_ = false;
  std::shared_ptr<const Snapshot> last_ = std::make_shared<Snapshot>();
  Findings findings_;

  std::thread state_thread_, findings_thread_;
};

}  // namespace metrics

#endif  // TOOLS_METRICS_SAMPLER_H_
