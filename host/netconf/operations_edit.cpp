// <edit-config>.
#include <libyang/libyang.h>

#include "host/netconf/operations.h"

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

}  // namespace

// The edit is applied as a whole or not at all, whatever error-option says: "stop-on-error" and
// "rollback-on-error" come to the same, and "continue-on-error" as well but for its reports, for
// the datastore names every error it finds.
OperationResult RunEditConfig(const OperationContext& context, const OperationCall& call) {
  const std::string target = NamedDatastore(call, "target");
  if (target.empty()) return OperationResult::Error(MissingElement("target"));
  const lyd_node* config = FindParameter(call, "config");
  if (config == nullptr) return OperationResult::Error(MissingElement("config"));
  if (target != "running") {
    return OperationResult::Error(
        OperationNotSupported("the datastore " + target + " cannot be edited"));
  }
  if (context.locks.HeldByOther(target, call.session.id)) {
    return OperationResult::Error({"protocol", "in-use",
                                   "session " + std::to_string(context.locks.HolderOf(target)) +
                                       " holds the lock of " + target,
                                   "", "", ""});
  }
  const auto* any = reinterpret_cast<const lyd_node_any*>(config);
  const lyd_node* edit = any->value_type == LYD_ANYDATA_DATATREE ? any->value.tree : nullptr;
  EditOptions options;
  options.default_operation =
      ReadDefaultOperation(ParameterText(call, "default-operation", "merge"));
  options.test_option = ReadTestOption(ParameterText(call, "test-option", "test-then-set"));
  // Nothing to merge changes nothing; nothing as a replacement deletes all.
  if (edit == nullptr && options.default_operation != DefaultOperation::kReplace) {
    return OperationResult::Ok();
  }
  OperationResult result;
  result.errors =
      FromDatastore(context.datastore.Edit(edit, options, {call.session.user, call.session.id}));
  if (result.errors.empty()) {
    result.note = "transaction " + std::to_string(context.datastore.TransactionId());
  }
  return result;
}

}  // namespace host
