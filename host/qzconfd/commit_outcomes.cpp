// What became of each commit: see commit_outcomes.h.
#include "host/qzconfd/commit_outcomes.h"

#include <utility>

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

int64_t NowMicroseconds() {
  const auto since_1970 = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration_cast<std::chrono::microseconds>(since_1970).count();
}

}  // namespace

void CommitOutcomes::Add(const CommitInfo& commit, bool at_start, CommitFacts facts,
                         std::chrono::microseconds took) {
  if (facts.not_taken != 0 && out_of_step_ == 0) out_of_step_ = commit.id;
  for (const Submission& sent : facts.sent) {
    if (sent.error == 0) in_force_[sent.group] = {commit.id, sent.entries};
  }
  CommitOutcome outcome;
  outcome.commit = commit;
  outcome.at_start = at_start;
  outcome.reason = WhyNotApplied(facts, at_start);
  outcome.applied = outcome.reason.empty();
  outcome.facts = std::move(facts);
  outcome.time_us = NowMicroseconds();
  outcome.took = took;
  if (outcome.applied) applied_ = commit.id;
  LogOutcome(outcome);
  if (outcomes_.size() == kMost) outcomes_.pop_front();
  outcomes_.push_back(std::move(outcome));
}

StatusLine CommitOutcomes::Line() const {
  if (outcomes_.empty()) return {StatusLine::kWarning, "the configuration is being loaded"};
  const CommitOutcome& last = outcomes_.back();
  const std::string commit = CommitText(last.commit);
  if (last.applied) return {StatusLine::kOk, commit + " is applied: " + InForceText(false)};
  return {StatusLine::kError, commit + " is not applied: " + last.reason};
}

std::string CommitOutcomes::WhyNotApplied(const CommitFacts& facts, bool at_start) const {
  const std::string said = facts.errors.empty() ? "" : ": " + facts.errors.front();
  for (const Submission& sent : facts.sent) {
    if (sent.error == 0) continue;
    return "the Filter Manager refused the " + GroupName(sent.group) + " group (filtMgrErr " +
           std::to_string(sent.error) + ", " + sent.reason + ")" + said;
  }
  if (facts.not_taken != 0) {
    return Counted(facts.not_taken, "change") + " could not be taken over, first " +
           facts.first_not_taken + said;
  }
  if (!facts.handled) return outcomes_.empty() ? "" : outcomes_.back().reason;
  if (facts.sent.empty()) return "no groups were sent to the Filter Manager" + said;
  // A load goes on after what it cannot read, and says so in the log alone.
  if (at_start && !facts.errors.empty()) return "not all of it could be loaded" + said;
  if (out_of_step_ != 0) {
    return "a change of commit " + std::to_string(out_of_step_) +
           " could not be taken over; restart the daemon to load the configuration anew";
  }
  return "";
}

void CommitOutcomes::LogOutcome(const CommitOutcome& outcome) const {
  const std::string text = CommitText(outcome.commit) + (outcome.at_start ? " at the start" : "");
  if (outcome.applied) {
    Log(LogLevel::kInfo, "%s: applied in %.1f ms; %s", text.c_str(),
        static_cast<double>(outcome.took.count()) / 1000, InForceText(false).c_str());
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
