// What became of each commit: see commit_outcomes.h.
#include "host/qzconfd/commit_outcomes.h"

#include <algorithm>
#include <utility>

#include "host/runtime/date_and_time.h"
#include "host/runtime/log.h"

namespace host {
namespace {

// "L2" for "l2".
std::string GroupName(std::string type) {
  for (char& c : type) {
    if (c == 'l') c = 'L';
  }
  return type;
}

std::string Counted(size_t count, const char* what) {
  return std::to_string(count) + " " + what + (count == 1 ? "" : "s");
}

// "commit 7 by alice (session 4)", "commit 7 by alice (session 4, rollback to 3)".
std::string CommitText(const CommitInfo& commit) {
  const Origin& origin = commit.origin;
  std::string text = "commit " + std::to_string(commit.id);
  if (!origin.user.empty()) text += " by " + origin.user;
  std::string details =
      origin.session_id != 0 ? "session " + std::to_string(origin.session_id) : "";
  if (!origin.comment.empty()) details += (details.empty() ? "" : ", ") + origin.comment;
  return details.empty() ? text : text + " (" + details + ")";
}

std::string CoverageText(const Coverage& coverage) {
  if (coverage.interfaces == 0) return "";
  return "; in force on " + std::to_string(coverage.in_force) + " of " +
         Counted(coverage.interfaces, "interface");
}

// A group is refused last: nothing is sent after it.
bool AllTaken(const std::vector<Submission>& sent) {
  return sent.empty() || sent.back().standing.taken();
}

}  // namespace

const char* NameOf(CommitOutcome::Result result) {
  constexpr const char* kNames[] = {"applied", "pending", "failed", "superseded"};
  return kNames[result];
}

LogFields FieldsOf(const CommitInfo& commit) {
  const uint32_t session = commit.origin.session_id;
  return LogFields({{"COMMIT", std::to_string(commit.id)},
                    {"USER", commit.origin.user},
                    {"SESSION", session == 0 ? "" : std::to_string(session)}});
}

void CommitCounts::Add(const CommitOutcome& outcome) {
  if (outcome.at_start || outcome.result == CommitOutcome::kPending) return;
  if (outcome.result != CommitOutcome::kApplied) {
    ++(outcome.result == CommitOutcome::kFailed ? failed : superseded);
    return;
  }
  ++applied;
  took_us += outcome.took.count();
  for (size_t i = 0; i < kBounds.size(); ++i) up_to_bound[i] += outcome.took.count() <= kBounds[i];
}

void CommitOutcomes::Add(const CommitInfo& commit, bool at_start, CommitFacts facts,
                         std::chrono::microseconds took) {
  if (facts.not_taken != 0 && out_of_step_ == 0) out_of_step_ = commit.id;
  const bool taken = !facts.sent.empty() && AllTaken(facts.sent);
  if (taken) Correct(CommitOutcome::kSuperseded, "a later commit took its place");
  for (const Submission& sent : facts.sent) {
    if (!taken) break;
    const bool waits = sent.standing.state == Standing::kPending;
    (waits ? waiting_ : in_force_)[sent.group] = {commit.id, sent.entries};
    if (!waits) waiting_.erase(sent.group);
  }
  CommitOutcome outcome;
  outcome.commit = commit;
  outcome.at_start = at_start;
  outcome.facts = std::move(facts);
  outcome.time_us = NowMicroseconds();
  outcome.took = took;
  Judge(&outcome);
  if (outcome.result == CommitOutcome::kApplied) {
    applied_ = commit.id;
  } else {
    outcome.facts.coverage = {};  // of what was in force before
  }
  Tell(outcome, false);
  counts_.Add(outcome);
  if (outcomes_.size() == kMost) outcomes_.pop_front();
  outcomes_.push_back(std::move(outcome));
}

size_t CommitOutcomes::pending() const {
  return std::count_if(outcomes_.begin(), outcomes_.end(), [](const CommitOutcome& outcome) {
    return outcome.result == CommitOutcome::kPending;
  });
}

StatusLine CommitOutcomes::Line() const {
  if (outcomes_.empty()) return {StatusLine::kWarning, "the configuration is being loaded"};
  const CommitOutcome& last = outcomes_.back();
  const std::string commit = CommitText(last.commit);
  switch (last.result) {
    case CommitOutcome::kApplied:
      return {StatusLine::kOk, commit + " is applied: " + InForceText(false)};
    case CommitOutcome::kPending:
      return {StatusLine::kWarning, commit + " is not in force yet: " + last.reason};
    default:
      return {StatusLine::kError, commit + " is not applied: " + last.reason};
  }
}

void CommitOutcomes::Judge(CommitOutcome* outcome) const {
  const CommitFacts& facts = outcome->facts;
  if (!facts.handled && facts.not_taken == 0) {  // as the one before, for it changes nothing
    if (outcomes_.empty()) return;
    outcome->result = outcomes_.back().result;
    outcome->reason = outcomes_.back().reason;
    return;
  }
  outcome->reason = WhyNotApplied(facts, outcome->at_start);
  if (!outcome->reason.empty()) {
    outcome->result = CommitOutcome::kFailed;
    return;
  }
  for (const Submission& sent : facts.sent) {
    if (sent.standing.state == Standing::kInForce) continue;
    outcome->result = CommitOutcome::kPending;
    outcome->reason = sent.standing.reason;
  }
}

bool CommitOutcomes::Settle(const Standing& standing) {
  if (standing.state == Standing::kInForce || standing.state == Standing::kPartial) {
    for (const auto& [type, group] : waiting_) in_force_[type] = group;
  }
  if (standing.state != Standing::kPending) waiting_.clear();
  const bool concerned = pending() != 0;
  switch (standing.state) {
    case Standing::kInForce:
      Correct(CommitOutcome::kApplied, "");
      break;
    case Standing::kPartial:
    case Standing::kPending:
      Correct(CommitOutcome::kPending, standing.reason);
      break;
    case Standing::kRefused:
      Correct(CommitOutcome::kFailed, "the Filter Manager refused the groups (filtMgrErr " +
                                          std::to_string(standing.error) + "): " + standing.reason);
      break;
  }
  return concerned;
}

void CommitOutcomes::Correct(CommitOutcome::Result result, const std::string& reason) {
  for (CommitOutcome& outcome : outcomes_) {
    if (outcome.result != CommitOutcome::kPending) continue;
    outcome.reason = reason;
    if (result == CommitOutcome::kPending) continue;
    const int64_t now = NowMicroseconds();
    // The system's clock may have been set back meanwhile.
    outcome.took += std::chrono::microseconds(std::max<int64_t>(now - outcome.time_us, 0));
    outcome.time_us = now;
    outcome.result = result;
    if (result == CommitOutcome::kApplied) applied_ = outcome.commit.id;
    counts_.Add(outcome);
    Tell(outcome, true);
  }
}

std::string CommitOutcomes::WhyNotApplied(const CommitFacts& facts, bool at_start) const {
  const std::string said = facts.errors.empty() ? "" : ": " + facts.errors.front();
  // The last one has the reason; those before it were taken back for its sake.
  if (!AllTaken(facts.sent)) {
    const Submission& sent = facts.sent.back();
    return "the Filter Manager refused the " + GroupName(sent.group) + " group (filtMgrErr " +
           std::to_string(sent.standing.error) + ", " + sent.standing.reason + ")" + said;
  }
  if (facts.not_taken != 0) {
    return Counted(facts.not_taken, "change") + " could not be taken over, first " +
           facts.first_not_taken + said;
  }
  if (facts.sent.empty()) return "no groups were sent to the Filter Manager" + said;
  // A load goes on after what it cannot read, and says so in the log alone.
  if (at_start && !facts.errors.empty()) return "not all of it could be loaded" + said;
  if (out_of_step_ != 0) {
    return "a change of commit " + std::to_string(out_of_step_) +
           " could not be taken over; restart the daemon to load the configuration anew";
  }
  return "";
}

void CommitOutcomes::Tell(const CommitOutcome& outcome, bool corrected) const {
  if (outcome.result != CommitOutcome::kSuperseded) LogOutcome(outcome);
  if (events_ == nullptr) return;
  const Origin& origin = outcome.commit.origin;
  CommitJudged event;
  event.commit = outcome.commit.id;
  event.user = origin.user;
  event.session = outcome.at_start ? 0 : origin.session_id;  // which was an earlier process's
  event.comment = origin.comment;
  event.at_start = outcome.at_start;
  event.result = NameOf(outcome.result);
  event.corrected = corrected;
  event.reason = outcome.reason;
  event.took = outcome.took;
  event.interfaces = outcome.facts.coverage.interfaces;
  event.in_force = outcome.facts.coverage.in_force;
  for (const Submission& sent : outcome.facts.sent) {
    event.entries.emplace_back(sent.group, sent.entries);
  }
  events_->Publish(event);
}

void CommitOutcomes::LogOutcome(const CommitOutcome& outcome) const {
  const LogFields fields = FieldsOf(outcome.commit);
  const std::string text = CommitText(outcome.commit) + (outcome.at_start ? " at the start" : "");
  if (outcome.result == CommitOutcome::kPending) {
    Log(LogLevel::kWarning, "%s: it stands, and is not in force yet: %s; in force: %s",
        text.c_str(), outcome.reason.c_str(), InForceText(true).c_str());
  } else if (outcome.result == CommitOutcome::kApplied) {
    Log(LogLevel::kInfo, "%s: applied in %.1f ms; %s%s", text.c_str(),
        static_cast<double>(outcome.took.count()) / 1000, InForceText(false).c_str(),
        CoverageText(outcome.facts.coverage).c_str());
  } else {
    Log(LogLevel::kError, "%s: it stands, but is not applied: %s; in force: %s", text.c_str(),
        outcome.reason.c_str(), InForceText(true).c_str());
  }
}

// "L2 9 entries, L3 20 entries", or "L2 9 entries of commit 4, L3 20 entries of commit 3".
std::string CommitOutcomes::InForceText(bool with_commits) const {
  if (in_force_.empty()) return "what was before the start";
  std::string text;
  for (const auto& [type, group] : in_force_) {
    text += (text.empty() ? "" : ", ") + GroupName(type) + " " +
            (group.entries == 1 ? "1 entry" : std::to_string(group.entries) + " entries");
    if (with_commits) text += " of commit " + std::to_string(group.commit);
  }
  return text;
}

}  // namespace host
