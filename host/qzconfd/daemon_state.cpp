// How the daemon is, as operational data.
#include "host/qzconfd/daemon_state.h"

#include <cstdint>

#include "host/runtime/date_and_time.h"
#include "host/runtime/log.h"
#include "host/runtime/tree_writer.h"
#include "host/runtime/version.h"

namespace host {
namespace {

const char* NameOf(StatusLine::State state) {
  static constexpr const char* kNames[] = {"ok", "warning", "error"};
  return kNames[state];
}

void AddStorage(const StateDoubt& doubt, const std::string& held, lyd_node* top,
                TreeWriter* writer) {
  lyd_node* storage = writer->Inner(top, "storage");
  if (!held.empty()) writer->Leaf(storage, "filters-held", "");
  if (doubt.reasons.empty()) return writer->Leaf(storage, "state", "sound");
  writer->Leaf(storage, "state", "in-doubt");
  for (const std::string& reason : doubt.reasons) writer->Text(storage, "reason", reason);
  if (doubt.found != 0) writer->Leaf(storage, "found", doubt.found);
  if (doubt.acknowledged != 0) writer->Leaf(storage, "acknowledged", doubt.acknowledged);
  if (!doubt.sound) writer->Leaf(storage, "damaged", "");
}

}  // namespace

StatusLine StorageLine(const Datastore& datastore) {
  const StateDoubt doubt = datastore.Doubt();
  if (doubt.reasons.empty())
    return {StatusLine::kOk, "commit " + std::to_string(datastore.TransactionId())};
  std::string text = "in doubt: " + doubt.reasons.front();
  if (doubt.reasons.size() > 1)
    text += " (and " + std::to_string(doubt.reasons.size() - 1) + " more)";
  return {StatusLine::kError, text};
}

lyd_node* BuildDaemonState(const Datastore& datastore, const StatusBoard& board,
                           const std::string& held, int64_t started_us) {
  const ly_ctx* const context = datastore.Context();
  TreeWriter writer(ly_ctx_get_module_implemented(context, "acl-app-status"));
  lyd_node* const top = writer.Inner(nullptr, "daemon");
  writer.Leaf(top, "version", Version());
  writer.Leaf(top, "started", DateAndTime(started_us, 3));
  writer.Leaf(top, "log-lines-dropped", DroppedLogLines());
  for (const auto& [name, report] : board.reports()) {
    if (report == nullptr) continue;
    const StatusLine line = report();
    lyd_node* const part = writer.List(top, "part", name);
    writer.Leaf(part, "state", NameOf(line.state));
    writer.Text(part, "text", line.text);
  }
  AddStorage(datastore.Doubt(), held, top, &writer);
  if (writer.ok()) return top;
  Log(LogLevel::kError, "the daemon's status cannot be shown: %s", ly_errmsg(context));
  lyd_free_all(top);
  return nullptr;
}

}  // namespace host
