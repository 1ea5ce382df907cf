// <commit>, <cancel-commit>, <discard-changes> and <validate>.
#include <libyang/libyang.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "host/netconf/operations/operations.h"

namespace host {

namespace {

// Why a commit without a token is refused while another's confirmed commit is ongoing.
std::string WhyInUse(const ConfirmedCommit& confirmed) {
  const std::string whose = confirmed.session() == 0
                                ? " that needs its persist-id: confirm or cancel it first"
                                : " of session " + std::to_string(confirmed.session()) +
                                      ", which has to confirm or cancel it first";
  return "a confirmed commit is ongoing" + whose + ", or wait: it is taken back in " +
         std::to_string(confirmed.Remaining()) + " s";
}

}  // namespace

// A commit while a confirmed commit is ongoing confirms or extends it, and so must come from its
// session, or name its token.
OperationResult RunCommit(const OperationContext& context, const OperationCall& call) {
  ConfirmedCommit& confirmed = context.confirmed;
  const std::string persist_id = ParameterText(call, "persist-id", "");
  if (confirmed.ongoing() ? !confirmed.BelongsTo(call.session.id, persist_id)
                          : !persist_id.empty()) {
    return persist_id.empty()
               ? OperationResult::ProtocolError("in-use", WhyInUse(confirmed))
               : OperationResult::ProtocolError(
                     "invalid-value", confirmed.ongoing()
                                          ? "the ongoing confirmed commit has another persist-id"
                                          : "no commit waits to be confirmed");
  }
  for (const char* datastore : {"running", "candidate"}) {
    if (std::optional<RpcError> error = LockedByOther(context, call, datastore)) {
      return OperationResult::Error(std::move(*error));
    }
  }
  const bool to_be_confirmed = FindParameter(call, "confirmed") != nullptr;
  if (to_be_confirmed) {
    const DatastoreErrors errors = confirmed.Prepare();
    if (!errors.empty()) return OperationResult::Of(errors);
  }
  const Origin origin{call.session.user, call.session.id, ParameterText(call, "comment", "")};
  const uint64_t before = context.datastore.TransactionId();
  OperationResult result = OperationResult::Of(context.candidate.Commit(origin));
  if (!result.errors.empty()) {
    if (to_be_confirmed && !confirmed.ongoing()) confirmed.Forget();
    return result;
  }
  const uint64_t after = context.datastore.TransactionId();
  result.note = after == before ? "done" : "done, transaction " + std::to_string(after);
  if (!to_be_confirmed) {
    const bool ongoing = confirmed.ongoing();
    result.errors = FromDatastore(confirmed.Confirm(origin));
    if (ongoing) result.note += ", confirmed";
    return result;
  }
  const std::chrono::seconds timeout(
      std::strtoul(ParameterText(call, "confirm-timeout", "600").c_str(), nullptr, 10));
  confirmed.Begin(timeout, origin, ParameterText(call, "persist", ""));
  result.note += ", to be confirmed within " + std::to_string(timeout.count()) + " s";
  return result;
}

OperationResult RunCancelCommit(const OperationContext& context, const OperationCall& call) {
  if (!context.confirmed.ongoing()) {
    return OperationResult::ProtocolError("operation-failed", "no confirmed commit is ongoing");
  }
  if (!context.confirmed.BelongsTo(call.session.id, ParameterText(call, "persist-id", ""))) {
    return OperationResult::ProtocolError(
        "invalid-value", "the ongoing confirmed commit is not of this session or token");
  }
  if (std::optional<RpcError> error = LockedByOther(context, call, "running")) {
    return OperationResult::Error(std::move(*error));
  }
  return OperationResult::Of(context.confirmed.Cancel("cancelled by " + call.session.user,
                                                      {call.session.user, call.session.id}));
}

OperationResult RunDiscardChanges(const OperationContext& context, const OperationCall& call) {
  if (std::optional<RpcError> error = LockedByOther(context, call, "candidate")) {
    return OperationResult::Error(std::move(*error));
  }
  context.candidate.Discard();
  return OperationResult::Ok();
}

OperationResult RunValidate(const OperationContext& context, const OperationCall& call) {
  const std::string source = NamedDatastore(call, "source");
  if (source.empty()) return OperationResult::Error(MissingElement("source"));
  if (source == "candidate") return OperationResult::Of(context.candidate.Validate());
  if (source == "running") return OperationResult::Ok();  // it always is
  return OperationResult::Of(context.datastore.Edit(
      InlineConfig(FindParameter(call, "source")),
      {DefaultOperation::kReplace, TestOption::kTestOnly}, {call.session.user, call.session.id}));
}

}  // namespace host
