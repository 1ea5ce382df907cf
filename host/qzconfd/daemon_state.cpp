// How the daemon is, as operational data.
#include "host/qzconfd/daemon_state.h"

#include <cstdint>

#include "host/runtime/log.h"

namespace host {
namespace {

constexpr char kModule[] = "acl-app-status";

// Adds leaves; the first refusal stands, later calls do nothing.
class Writer {
 public:
  explicit Writer(const lys_module* module) : module_(module) {}

  bool ok() const { return ok_; }

  lyd_node* Inner(lyd_node* parent, const char* name) {
    lyd_node* node = nullptr;
    if (ok_) ok_ = lyd_new_inner(parent, module_, name, 0, &node) == LY_SUCCESS;
    return node;
  }
  lyd_node* Entry(lyd_node* parent, const char* list, const std::string& key) {
    lyd_node* node = nullptr;
    if (ok_) ok_ = lyd_new_list(parent, module_, list, 0, &node, key.c_str()) == LY_SUCCESS;
    return node;
  }
  // Control characters, which no YANG string has, become blanks.
  void Leaf(lyd_node* parent, const char* name, std::string value) {
    for (char& c : value) {
      if (static_cast<unsigned char>(c) < 0x20) c = ' ';
    }
    if (ok_) ok_ = lyd_new_term(parent, module_, name, value.c_str(), 0, nullptr) == LY_SUCCESS;
  }
  void Number(lyd_node* parent, const char* name, uint64_t value) {
    if (value != 0) Leaf(parent, name, std::to_string(value));
  }

 private:
  const lys_module* module_;
  bool ok_ = true;
};

const char* NameOf(StatusLine::State state) {
  static constexpr const char* kNames[] = {"ok", "warning", "error"};
  return kNames[state];
}

void AddStorage(const StateDoubt& doubt, const std::string& held, lyd_node* top, Writer* writer) {
  lyd_node* storage = writer->Inner(top, "storage");
  if (!held.empty()) writer->Leaf(storage, "filters-held", "");
  if (doubt.reasons.empty()) return writer->Leaf(storage, "state", "sound");
  writer->Leaf(storage, "state", "in-doubt");
  for (const std::string& reason : doubt.reasons) writer->Leaf(storage, "reason", reason);
  writer->Number(storage, "found", doubt.found);
  writer->Number(storage, "acknowledged", doubt.acknowledged);
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
                           const std::string& held) {
  const ly_ctx* const context = datastore.Context();
  Writer writer(ly_ctx_get_module_implemented(context, kModule));
  lyd_node* const top = writer.Inner(nullptr, "daemon");
  for (const auto& [name, report] : board.reports()) {
    if (report == nullptr) continue;
    const StatusLine line = report();
    lyd_node* const part = writer.Entry(top, "part", name);
    writer.Leaf(part, "state", NameOf(line.state));
    writer.Leaf(part, "text", line.text);
  }
  AddStorage(datastore.Doubt(), held, top, &writer);
  if (writer.ok()) return top;
  Log(LogLevel::kError, "the daemon's status cannot be shown: %s", ly_errmsg(context));
  lyd_free_all(top);
  return nullptr;
}

}  // namespace host
