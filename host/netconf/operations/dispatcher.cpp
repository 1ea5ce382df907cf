// From message to reply: see dispatcher.h.
#include "host/netconf/operations/dispatcher.h"

#include <limits>
#include <utility>

#include "host/runtime/log_text.h"
#include "host/runtime/middleware.h"

namespace host {
namespace {

// What those who may only read can ask for needs few elements. More are not parsed: keys that are
// repeated thousands of times take the parser seconds.
constexpr size_t kMaxReaderElements = 2000;

void LogResult(const RpcMessage& message, const OperationResult& result,
               const SessionInfo& session) {
  const char* name = message.name();
  if (!result.errors.empty()) {
    const RpcError& error = result.errors.front();
    const std::string path = error.path.empty() ? "" : " " + CutText(error.path, kMaxOutsideText);
    session.log->Write(LogLevel::kWarning,
                       "netconf: session %u (%s): %s refused with %zu error(s), first: %s%s: %s",
                       session.id, session.user.c_str(), name, result.errors.size(),
                       error.tag.c_str(), path.c_str(),
                       CutText(error.message, kMaxOutsideText).c_str());
  } else {
    session.log->Write(LogLevel::kInfo, "netconf: session %u (%s): %s %s", session.id,
                       session.user.c_str(), name,
                       result.note.empty() ? "done" : result.note.c_str());
  }
}

}  // namespace

OperationResult Dispatcher::Run(RpcMessage& message, bool congested, const SessionInfo& session) {
  const lysc_node* schema = message.OperationSchema();
  const Operation* operation =
      schema != nullptr ? FindOperation(schema->module->name, schema->name) : nullptr;
  // Before the message's errors: what is wrong with it can be long to find and to tell.
  if (operation != nullptr && operation->kind == OperationKind::kChange && !session.may_write) {
    return OperationResult::Error({"protocol", "access-denied",
                                   session.user + " may read, but not change anything", "", "",
                                   ""});
  }
  if (!message.valid()) {
    OperationResult result;
    result.errors = message.errors();
    return result;
  }
  if (operation == nullptr) {
    return OperationResult::Error(OperationNotSupported(std::string("the operation \"") +
                                                        schema->name + "\" is not supported"));
  }
  if (congested && operation->kind == OperationKind::kQuery) {
    return OperationResult::Error(
        {"protocol", "resource-denied", "too many replies wait for their readers", "", "", ""});
  }
  return operation->run(context_, {session, message, message.Operation()});
}

Dispatcher::Reply Dispatcher::Handle(std::string message_text, const Conditions& conditions,
                                     const SessionInfo& session) {
  const size_t max_elements =
      session.may_write ? std::numeric_limits<size_t>::max() : kMaxReaderElements;
  RpcMessage message(std::move(message_text), conditions.cut, max_depth_, max_elements,
                     context_.datastore.Context(), xml_);
  OperationResult result = Run(message, conditions.congested, session);
  LimitErrors(&result.errors);
  for (RpcError& error : result.errors) {
    // RFC 6241 Appendix A: not to be sent to a peer of base:1.0.
    if (!conditions.base_1_1 && error.tag == "malformed-message") error.tag = "operation-failed";
  }
  Reply reply;
  reply.close_session = result.close_session;
  reply.subscription = std::move(result.subscription);
  reply.bad_rpc = !message.valid();
  reply.error_count = result.errors.size();
  ReplyFrame frame{message.ReplyStart(), message.ReplyEnd(), message.ReplyChildNamespace()};
  if (result.stream != nullptr && result.errors.empty()) {
    const std::string name =
        "session " + std::to_string(session.id) + " (" + session.user + "): " + message.name();
    reply.stream = std::make_unique<ReplyStream>(std::move(frame), std::move(result.stream),
                                                 context_.datastore.Context(), name, session.log);
    return reply;
  }
  LogResult(message, result, session);
  reply.xml = Print(frame, result);
  return reply;
}

std::string Dispatcher::Print(const ReplyFrame& frame, const OperationResult& result) const {
  if (!result.errors.empty()) {
    return PrintErrorReply(frame, result.errors, context_.datastore.Context());
  }
  const std::string ok = "<ok" + frame.child_namespace + "/>";
  return frame.start + (result.data.empty() ? ok : result.data) + frame.end;
}

}  // namespace host
