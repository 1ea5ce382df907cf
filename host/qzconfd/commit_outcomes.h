// What became of each commit: whether its configuration is in force, and if not, why.
//
// A commit stands once it is on disk; the handlers that put it in force cannot refuse it, and
// report nothing. So the outcome is told from outside, by what could be seen while they ran: which
// changes a handler did not take, what was sent to the Filter Manager with what answer, and what
// was logged as an error. A submission carries the whole configuration, so the next one that
// succeeds makes good for those that failed before. A change that a handler did not take is not
// made good: until the next start, which loads everything anew, no commit counts as applied.
//
// Groups may be taken and come into force later, or not at all. Until that is known the commit is
// pending; then its outcome is corrected.
#ifndef HOST_QZCONFD_COMMIT_OUTCOMES_H_
#define HOST_QZCONFD_COMMIT_OUTCOMES_H_

#include <array>
#include <chrono>
#include <cstdint>
#include <deque>
#include <map>
#include <string>
#include <vector>

#include "host/cdb/datastore.h"
#include "host/runtime/events.h"
#include "host/runtime/log.h"
#include "host/runtime/status_board.h"
#include "host/runtime/submissions.h"

namespace host {

// What was seen while the handlers ran.
struct CommitFacts {
  bool handled = false;          // whether any of it concerns a handler
  size_t not_taken = 0;          // changes that a handler did not take
  std::string first_not_taken;   // path of the first of them
  std::vector<Submission> sent;  // to the Filter Manager, in order
  std::vector<std::string> errors;
  Coverage coverage = {};  // once they had run
};

struct CommitOutcome {
  CommitInfo commit;
  bool at_start = false;  // the initial load, which puts all commits so far in force
  enum Result {
    kApplied,
    kPending,  // taken, and not or not everywhere in force yet
    kFailed,
    kSuperseded,  // was pending when a later commit took its place
  };
  Result result = kApplied;
  std::string reason;  // why it is not applied; empty when it is
  CommitFacts facts;
  int64_t time_us = 0;  // when its result was known, microseconds since 1970
  std::chrono::microseconds took{0};
};

// What the result is called where it is shown.
const char* NameOf(CommitOutcome::Result result);
// The fields of log lines about a commit.
LogFields FieldsOf(const CommitInfo& commit);

// The commits since the start whose outcome is known, but for the load at the start.
struct CommitCounts {
  // Durations in microseconds, ascending, that applied commits are counted by.
  static constexpr std::array<uint32_t, 10> kBounds = {300,    1000,   3000,    10000,   30000,
                                                       100000, 300000, 1000000, 3000000, 10000000};

  void Add(const CommitOutcome& outcome);

  uint64_t applied = 0, failed = 0, superseded = 0;
  uint64_t took_us = 0;                                // the applied ones together
  std::array<uint64_t, kBounds.size()> up_to_bound{};  // of the applied ones
};

// A group as it is in force.
struct GroupInForce {
  uint64_t commit = 0;
  size_t entries = 0;
};

class CommitOutcomes {
 public:
  static constexpr size_t kMost = 256;

  // `events` are told of each result (null: nobody is), and must outlive the object.
  explicit CommitOutcomes(const Events* events = nullptr) : events_(events) {}

  // Judges what was seen of a commit, logs the outcome in a line and keeps it; the oldest goes when
  // there are more than kMost.
  void Add(const CommitInfo& commit, bool at_start, CommitFacts facts,
           std::chrono::microseconds took);

  // Notes how the groups stand now that the Filter Manager took last; whether this concerns any
  // outcome. Those that were pending are corrected, with a line in the log.
  bool Settle(const Standing& standing);

  const CommitCounts& counts() const { return counts_; }
  // Commits whose outcome is not known yet.
  size_t pending() const;

  // How the last commit stands, for the board.
  StatusLine Line() const;

  // By time, the latest last.
  const std::deque<CommitOutcome>& all() const { return outcomes_; }
  // Id of the last commit that was applied, 0 when none was since the start.
  uint64_t applied() const { return applied_; }
  // What is in force, by the group's type. Without an entry: what the last process left, if
  // anything.
  const std::map<std::string, GroupInForce>& in_force() const { return in_force_; }

 private:
  std::string WhyNotApplied(const CommitFacts& facts, bool at_start) const;
  // Sets the result and the reason by the facts.
  void Judge(CommitOutcome* outcome) const;
  // Sets the result of those that are pending.
  void Correct(CommitOutcome::Result result, const std::string& reason);
  // Tells of it, in the log and to others; `corrected`: it was told to be pending.
  void Tell(const CommitOutcome& outcome, bool corrected) const;
  void LogOutcome(const CommitOutcome& outcome) const;
  std::string InForceText(bool with_commits) const;

  const Events* const events_;
  std::deque<CommitOutcome> outcomes_;
  CommitCounts counts_;
  uint64_t applied_ = 0;
  uint64_t out_of_step_ = 0;  // the first commit of which a change was not taken; 0: none
  std::map<std::string, GroupInForce> in_force_, waiting_;  // the latter were taken, and are not
};

}  // namespace host

#endif  // HOST_QZCONFD_COMMIT_OUTCOMES_H_
