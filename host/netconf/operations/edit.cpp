// <edit-config>, <copy-config> and <delete-config>.
#include <libyang/libyang.h>

#include <utility>

#include "host/netconf/operations/operations.h"

namespace host {
namespace {

DefaultOperation ReadDefaultOperation(const std::string& text) {
  if (text == "replace") return DefaultOperation::kReplace;
  return text == "none" ? DefaultOperation::kNone : DefaultOperation::kMerge;
}

TestOption ReadTestOption(const std::string& text) {
  if (text == "set") return TestOption::kSet;
  return text == "test-only" ? TestOption::kTestOnly : TestOption::kTestThenSet;
}

// Edits running or the candidate.
OperationResult EditDatastore(const OperationContext& context, const OperationCall& call,
                              const std::string& target, Tree edit, const EditOptions& options) {
  OperationResult result;
  const Origin origin{call.session.user, call.session.id, ParameterText(call, "comment", "")};
  if (target == "candidate") {
    result.errors = FromDatastore(context.candidate.Edit(edit.get(), options, origin));
    return result;
  }
  const uint64_t before = context.datastore.TransactionId();
  result.errors = FromDatastore(context.datastore.EditFrom(std::move(edit), options, origin));
  const uint64_t after = context.datastore.TransactionId();
  if (after != before) result.note = "done, transaction " + std::to_string(after);
  return result;
}

// Why the container `name` of the input names no datastore that can be written; empty otherwise.
std::optional<RpcError> CheckTarget(const OperationContext& context, const OperationCall& call,
                                    std::string* target) {
  *target = NamedDatastore(call, "target");
  if (target->empty()) return MissingElement("target");
  return LockedByOther(context, call, *target);
}

}  // namespace

// The edit is applied as a whole or not at all, whatever error-option says: "stop-on-error" and
// "rollback-on-error" come to the same, and "continue-on-error" as well but for its reports, for
// the datastore names every error it finds.
OperationResult RunEditConfig(const OperationContext& context, const OperationCall& call) {
  std::string target;
  if (std::optional<RpcError> error = CheckTarget(context, call, &target)) {
    return OperationResult::Error(std::move(*error));
  }
  if (FindParameter(call, "config") == nullptr) {
    return OperationResult::Error(MissingElement("config"));
  }
  Tree edit = TakeInlineConfig(call.input);
  EditOptions options;
  options.default_operation =
      ReadDefaultOperation(ParameterText(call, "default-operation", "merge"));
  options.test_option = ReadTestOption(ParameterText(call, "test-option", "test-then-set"));
  // Nothing to merge changes nothing; nothing as a replacement deletes all.
  if (edit == nullptr && options.default_operation != DefaultOperation::kReplace) {
    return OperationResult::Ok();
  }
  return EditDatastore(context, call, target, std::move(edit), options);
}

OperationResult RunCopyConfig(const OperationContext& context, const OperationCall& call) {
  std::string target;
  if (std::optional<RpcError> error = CheckTarget(context, call, &target)) {
    return OperationResult::Error(std::move(*error));
  }
  const std::string source = NamedDatastore(call, "source");
  if (source.empty()) return OperationResult::Error(MissingElement("source"));
  if (source == target) {
    return OperationResult::Error(
        {"protocol", "invalid-value", "source and target are the same", "", "", ""});
  }
  if (source == "running") {
    context.candidate.Discard();
    return OperationResult::Ok();
  }
  Tree content = source == "candidate" ? CopyTree(context.candidate.Content())
                                       : TakeInlineConfig(FindParameter(call, "source"));
  // Without a test option to choose, the candidate may be invalid (RFC 7950 section 8.3.3).
  return EditDatastore(context, call, target, std::move(content),
                       {DefaultOperation::kReplace,
                        target == "candidate" ? TestOption::kSet : TestOption::kTestThenSet});
}

// Neither running (RFC 6241 section 7.4) nor the candidate can be deleted, and there are no others.
OperationResult RunDeleteConfig(const OperationContext&, const OperationCall&) {
  return OperationResult::Error(
      OperationNotSupported("there is no configuration that can be deleted"));
}

}  // namespace host
