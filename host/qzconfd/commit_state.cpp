// What became of the commits, as operational data: see commit_state.h.
#include "host/qzconfd/commit_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string>
#include <utility>

#include "host/runtime/date_and_time.h"
#include "host/runtime/log.h"
#include "host/runtime/tree_writer.h"

namespace host {
namespace {

void AddCommit(const CommitOutcome& outcome, lyd_node* top, TreeWriter* writer) {
  const Origin& origin = outcome.commit.origin;
  lyd_node* node = writer->List(top, "commit", std::to_string(outcome.commit.id));
  writer->Text(node, "user", origin.user);
  // A session of an earlier process is none of this one's.
  if (origin.session_id != 0 && !outcome.at_start) {
    writer->Leaf(node, "session-id", origin.session_id);
  }
  writer->Text(node, "comment", origin.comment);
  if (outcome.at_start) writer->Leaf(node, "at-start", "");
  writer->Leaf(node, "time", DateAndTime(outcome.time_us, 3));
  writer->Leaf(node, "duration",
               std::to_string(std::min<int64_t>(outcome.took.count(), UINT32_MAX)));
  writer->Leaf(node, "result", NameOf(outcome.result));
  writer->Text(node, "reason", outcome.reason);
  for (const std::string& error : outcome.facts.errors) writer->Text(node, "error", error);
  const Coverage& coverage = outcome.facts.coverage;
  if (coverage.interfaces != 0) {
    writer->Leaf(node, "interfaces", coverage.interfaces);
    writer->Leaf(node, "interfaces-in-force", coverage.in_force);
  }
  for (const Submission& sent : outcome.facts.sent) {
    lyd_node* group = writer->List(node, "group", sent.group);
    writer->Leaf(group, "entries", sent.entries);
    const int error = sent.standing.error;
    if (error != 0) writer->Leaf(group, "error", std::to_string(error));
  }
}

void AddStatistics(const CommitOutcomes& outcomes, lyd_node* top, TreeWriter* writer) {
  const CommitCounts& counts = outcomes.counts();
  lyd_node* node = writer->Inner(top, "statistics");
  const std::pair<const char*, uint64_t> leaves[] = {{"applied", counts.applied},
                                                     {"failed", counts.failed},
                                                     {"superseded", counts.superseded},
                                                     {"pending", outcomes.pending()},
                                                     {"duration", counts.took_us}};
  for (const auto& [name, value] : leaves) writer->Leaf(node, name, value);
  for (size_t i = 0; i < counts.up_to_bound.size(); ++i) {
    lyd_node* bucket = writer->List(node, "bucket", std::to_string(CommitCounts::kBounds[i]));
    writer->Leaf(bucket, "commits", counts.up_to_bound[i]);
  }
}

}  // namespace

lyd_node* BuildCommitState(const ly_ctx* context, uint64_t running,
                           const CommitOutcomes& outcomes) {
  TreeWriter writer(ly_ctx_get_module_implemented(context, "acl-app-commits"));
  lyd_node* top = writer.Inner(nullptr, "commits");
  writer.Leaf(top, "running", running);
  if (outcomes.applied() != 0) writer.Leaf(top, "applied", outcomes.applied());
  for (const auto& [type, in_force] : outcomes.in_force()) {
    lyd_node* group = writer.List(top, "group", type);
    writer.Leaf(group, "commit", in_force.commit);
    writer.Leaf(group, "entries", in_force.entries);
  }
  AddStatistics(outcomes, top, &writer);
  for (const CommitOutcome& outcome : outcomes.all()) AddCommit(outcome, top, &writer);
  if (writer.ok()) return top;
  Log(LogLevel::kError, "what became of the commits cannot be shown: %s", ly_errmsg(context));
  lyd_free_all(top);
  return nullptr;
}

}  // namespace host
