// What became of the commits, as operational data: see commit_state.h.
#include "host/qzconfd/commit_state.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string>

#include "host/runtime/date_and_time.h"
#include "host/runtime/log.h"

namespace host {
namespace {

constexpr char kModule[] = "acl-app-commits";
// By CommitOutcome::Result.
constexpr const char* kResults[] = {"applied", "pending", "failed", "superseded"};

// Adds nodes below given parents. The first refusal stands; later calls do nothing.
class Writer {
 public:
  explicit Writer(const lys_module* module) : module_(module) {}

  bool ok() const { return ok_; }

  lyd_node* Top(const char* name) {
    lyd_node* node = nullptr;
    if (ok_) ok_ = lyd_new_inner(nullptr, module_, name, 0, &node) == LY_SUCCESS;
    return node;
  }
  lyd_node* Entry(lyd_node* parent, const char* list, const std::string& key) {
    lyd_node* node = nullptr;
    if (ok_) ok_ = lyd_new_list(parent, module_, list, 0, &node, key.c_str()) == LY_SUCCESS;
    return node;
  }
  void Leaf(lyd_node* parent, const char* name, const std::string& value) {
    if (ok_) ok_ = lyd_new_term(parent, module_, name, value.c_str(), 0, nullptr) == LY_SUCCESS;
  }
  // A text that may be empty, or hold what no YANG string does.
  void Text(lyd_node* parent, const char* name, std::string value) {
    for (char& c : value) {
      if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    }
    if (!value.empty()) Leaf(parent, name, value);
  }

 private:
  const lys_module* module_;
  bool ok_ = true;
};

void AddCommit(const CommitOutcome& outcome, lyd_node* top, Writer* writer) {
  const Origin& origin = outcome.commit.origin;
  lyd_node* node = writer->Entry(top, "commit", std::to_string(outcome.commit.id));
  writer->Text(node, "user", origin.user);
  // A session of an earlier process is none of this one's.
  if (origin.session_id != 0 && !outcome.at_start) {
    writer->Leaf(node, "session-id", std::to_string(origin.session_id));
  }
  writer->Text(node, "comment", origin.comment);
  if (outcome.at_start) writer->Leaf(node, "at-start", "");
  writer->Leaf(node, "time", DateAndTime(outcome.time_us, 3));
  writer->Leaf(node, "duration",
               std::to_string(std::min<int64_t>(outcome.took.count(), UINT32_MAX)));
  writer->Leaf(node, "result", kResults[outcome.result]);
  writer->Text(node, "reason", outcome.reason);
  for (const std::string& error : outcome.facts.errors) writer->Text(node, "error", error);
  const Coverage& coverage = outcome.facts.coverage;
  if (coverage.interfaces != 0) {
    writer->Leaf(node, "interfaces", std::to_string(coverage.interfaces));
    writer->Leaf(node, "interfaces-in-force", std::to_string(coverage.in_force));
  }
  for (const Submission& sent : outcome.facts.sent) {
    lyd_node* group = writer->Entry(node, "group", sent.group);
    writer->Leaf(group, "entries", std::to_string(sent.entries));
    const int error = sent.standing.error;
    if (error != 0) writer->Leaf(group, "error", std::to_string(error));
  }
}

}  // namespace

lyd_node* BuildCommitState(const ly_ctx* context, uint64_t running,
                           const CommitOutcomes& outcomes) {
  Writer writer(ly_ctx_get_module_implemented(context, kModule));
  lyd_node* top = writer.Top("commits");
  writer.Leaf(top, "running", std::to_string(running));
  if (outcomes.applied() != 0) writer.Leaf(top, "applied", std::to_string(outcomes.applied()));
  for (const auto& [type, in_force] : outcomes.in_force()) {
    lyd_node* group = writer.Entry(top, "group", type);
    writer.Leaf(group, "commit", std::to_string(in_force.commit));
    writer.Leaf(group, "entries", std::to_string(in_force.entries));
  }
  for (const CommitOutcome& outcome : outcomes.all()) AddCommit(outcome, top, &writer);
  if (writer.ok()) return top;
  Log(LogLevel::kError, "what became of the commits cannot be shown: %s", ly_errmsg(context));
  lyd_free_all(top);
  return nullptr;
}

}  // namespace host
