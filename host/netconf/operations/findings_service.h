// Looks for findings (host/findings/analysis.h) on behalf of sessions, and for what a configuration
// would cost (host/search_cost/cost_estimate.h).
//
// A search reads a configuration and analyses it, in steps of some tenths of a millisecond that are
// made where a session's own work is: nobody waits for it but who asked. A thread finds out the
// cost meanwhile. Those who ask for running share one search, whoever takes its next step, and its
// result is kept until running or the system's interfaces are others.
#ifndef HOST_NETCONF_OPERATIONS_FINDINGS_SERVICE_H_
#define HOST_NETCONF_OPERATIONS_FINDINGS_SERVICE_H_

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>

#include "host/cdb/datastore.h"
#include "host/cdb/tree_pages.h"
#include "host/findings/analysis.h"
#include "host/netconf/message/rpc_error.h"
#include "host/netconf/operations/candidate.h"
#include "host/netconf/operations/findings_reader.h"
#include "host/netconf/reply/data_stream.h"
#include "host/runtime/state_providers.h"
#include "host/search_cost/cost_estimate.h"

namespace host {

// None where they cannot be read; then no interface counts as absent.
using InterfaceNames = std::optional<std::set<std::string>>;
// Those of the process's network namespace (if_nameindex(3)).
InterfaceNames SystemInterfaces();

// What was found.
struct FindingsResult {
  uint64_t commit = 0;  // that running was of
  InterfaceNames interfaces;
  findings::Findings found;
  EstimatedCost cost;
};

// One search.
class FindingsSearch {
 public:
  using Progress = FindingsReader::Progress;
  using Result = std::shared_ptr<const FindingsResult>;

  // `on_done` (may be null) is called with the result, when there is one.
  // `worker` finds out the cost.
  FindingsSearch(uint64_t commit, InterfaceNames interfaces, std::unique_ptr<FindingsReader> reader,
                 std::shared_ptr<CostWorker> worker,
                 std::function<void(const Result& result)> on_done);
  // A search whose result is known.
  explicit FindingsSearch(Result result) : result_(std::move(result)) {}

  // Does the next step, if there is one. kFailed, from then on, when what is to be read is lost.
  Progress Step();
  // Null until the search is done.
  const Result& result() const { return result_; }
  // What running and the interfaces were when it began.
  bool IsOf(uint64_t commit, const InterfaceNames& interfaces) const {
    return known_.commit == commit && known_.interfaces == interfaces;
  }

 private:
  void BeginAnalysis();
  // False when there is nothing more to do.
  bool Analyse();
  void End();

  FindingsResult known_;                          // but for what is found
  std::unique_ptr<FindingsReader> reader_;        // until all is read
  std::unique_ptr<findings::Analysis> analysis_;  // until it is done
  std::shared_ptr<CostWorker> worker_;
  std::unique_ptr<CostEstimate> estimate_;
  std::function<void(const Result& result)> on_done_;
  bool failed_ = false;
  Result result_;
};

class FindingsService {
 public:
  // What there is must outlive the service. `interfaces` tells the names that exist.
  FindingsService(Datastore& datastore, Candidate& candidate, std::shared_ptr<PageMemory> pages,
                  std::function<InterfaceNames()> interfaces = SystemInterfaces)
      : datastore_(datastore),
        candidate_(candidate),
        pages_(std::move(pages)),
        interfaces_(std::move(interfaces)) {}

  // The search in running as it is now.
  std::shared_ptr<FindingsSearch> OfRunning();
  std::shared_ptr<FindingsSearch> OfCandidate() const;
  // In running after `edit`. Null, with the reasons in `errors`, when that would be refused.
  std::shared_ptr<FindingsSearch> OfEdit(const lyd_node* edit, const EditOptions& options,
                                         DatastoreErrors* errors) const;

  // Shows what is in running as state, as long as the service lives.
  void Show(StateProviders* providers);

 private:
  std::unique_ptr<FindingsReader> Reader(const lyd_node* difference) const;

  Datastore& datastore_;
  Candidate& candidate_;
  const std::shared_ptr<PageMemory> pages_;
  const std::function<InterfaceNames()> interfaces_;
  const std::shared_ptr<CostWorker> worker_ = std::make_shared<CostWorker>();
  std::weak_ptr<FindingsSearch> running_;  // the last one, for others to join
  FindingsSearch::Result known_;           // the last one's that came to its end
  StateProviders::Registration shown_;
};

// What a search finds, as the content of a reply. `begin` starts it when it is the stream's turn;
// null with the reasons.
std::unique_ptr<DataStream> StreamFindings(
    std::function<std::shared_ptr<FindingsSearch>(DatastoreErrors* errors)> begin);

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_FINDINGS_SERVICE_H_
