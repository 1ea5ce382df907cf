// <lock>, <unlock>, <close-session> and <kill-session>.
#include <cstdlib>

#include "host/netconf/operations/operations.h"

namespace host {
OperationResult RunLock(const OperationContext& context, const OperationCall& call) {
  const std::string target = NamedDatastore(call, "target");
  if (target.empty()) return OperationResult::Error(MissingElement("target"));
  const uint32_t holder = context.locks.HolderOf(target);
  if (holder != 0) {
    return OperationResult::Error(
        LockDenied(holder, holder == call.session.id
                               ? "this session holds the lock already"
                               : "session " + std::to_string(holder) + " holds the lock"));
  }
  // RFC 6241 section 7.5.
  if (target == "candidate" && context.candidate.modified()) {
    const Origin& editor = context.candidate.editor();
    return OperationResult::Error(
        LockDenied(editor.session_id, "the candidate has changes of session " +
                                          std::to_string(editor.session_id) + " (" + editor.user +
                                          ") that are neither committed nor discarded"));
  }
  if (target == "running" && context.confirmed.ongoing() &&
      context.confirmed.session() != call.session.id) {
    return OperationResult::Error(
        LockDenied(context.confirmed.session(), "a confirmed commit is ongoing"));
  }
  context.locks.Take(target, call.session.id);
  return OperationResult::Ok();
}

OperationResult RunUnlock(const OperationContext& context, const OperationCall& call) {
  const std::string target = NamedDatastore(call, "target");
  if (target.empty()) return OperationResult::Error(MissingElement("target"));
  if (context.locks.HolderOf(target) != call.session.id) {
    return OperationResult::ProtocolError("operation-failed",
                                          "this session does not hold the lock");
  }
  context.locks.Release(target);
  // RFC 6241 section 8.3.5.2: what was not committed goes with the lock.
  if (target == "candidate") context.candidate.Discard();
  return OperationResult::Ok();
}

OperationResult RunCloseSession(const OperationContext&, const OperationCall&) {
  OperationResult result;
  result.close_session = true;
  return result;
}

OperationResult RunKillSession(const OperationContext& context, const OperationCall& call) {
  const lyd_node* parameter = FindParameter(call, "session-id");
  if (parameter == nullptr) return OperationResult::Error(MissingElement("session-id"));
  const uint32_t id = std::strtoul(lyd_get_value(parameter), nullptr, 10);
  if (id == call.session.id)
    return OperationResult::ProtocolError("invalid-value", "a session cannot kill itself");
  if (!context.sessions.KillSession(id, call.session)) {
    return OperationResult::ProtocolError("invalid-value",
                                          "there is no session " + std::to_string(id));
  }
  return OperationResult::Ok();
}

}  // namespace host
