// The table of operations and their helpers: see operations.h.
#include "host/netconf/operations/operations.h"

#include <libyang/libyang.h>

#include <cstring>
#include <utility>

namespace host {
namespace {

constexpr char kNetconf[] = "ietf-netconf";
constexpr char kMonitoring[] = "ietf-netconf-monitoring";
constexpr char kFilters[] = "acl-app-filters";
constexpr char kFindings[] = "acl-app-findings";
constexpr char kHistory[] = "acl-app-history";
constexpr char kNotifications[] = "notifications";
constexpr char kStatus[] = "acl-app-status";

constexpr Operation kOperations[] = {
    {kNetconf, "get", OperationKind::kQuery, RunGet},
    {kNetconf, "get-config", OperationKind::kQuery, RunGetConfig},
    {kNetconf, "edit-config", OperationKind::kChange, RunEditConfig},
    {kNetconf, "copy-config", OperationKind::kChange, RunCopyConfig},
    {kNetconf, "delete-config", OperationKind::kChange, RunDeleteConfig},
    {kNetconf, "commit", OperationKind::kChange, RunCommit},
    {kNetconf, "cancel-commit", OperationKind::kChange, RunCancelCommit},
    {kNetconf, "discard-changes", OperationKind::kChange, RunDiscardChanges},
    {kNetconf, "validate", OperationKind::kChange, RunValidate},
    {kNetconf, "lock", OperationKind::kChange, RunLock},
    {kNetconf, "unlock", OperationKind::kChange, RunUnlock},
    {kNetconf, "close-session", OperationKind::kOwn, RunCloseSession},
    {kNetconf, "kill-session", OperationKind::kChange, RunKillSession},
    {kMonitoring, "get-schema", OperationKind::kQuery, RunGetSchema},
    {kFilters, "get-hits", OperationKind::kQuery, RunAnswered},
    {kNotifications, "create-subscription", OperationKind::kOwn, RunCreateSubscription},
    {kFilters, "trace", OperationKind::kQuery, RunAnswered},
    {kHistory, "get-history", OperationKind::kQuery, RunGetHistory},
    {kHistory, "get-commit", OperationKind::kQuery, RunGetCommit},
    {kHistory, "rollback", OperationKind::kChange, RunRollback},
    {kHistory, "compare", OperationKind::kChange, RunCompare},
    {kHistory, "compare-commits", OperationKind::kChange, RunCompareCommits},
    {kHistory, "check", OperationKind::kChange, RunCheck},
    {kFindings, "get-findings", OperationKind::kQuery, RunGetFindings},
    {kStatus, "recover", OperationKind::kChange, RunRecover},
};

}  // namespace

const Operation* FindOperation(std::string_view module, std::string_view name) {
  for (const Operation& operation : kOperations) {
    if (module == operation.module && name == operation.name) return &operation;
  }
  return nullptr;
}

lyd_node* FindParameter(const OperationCall& call, const char* name) {
  for (lyd_node* child = lyd_child(call.input); child != nullptr; child = child->next) {
    if (child->schema != nullptr && std::strcmp(child->schema->name, name) == 0) return child;
  }
  return nullptr;
}

std::string ParameterText(const OperationCall& call, const char* name, const char* otherwise) {
  const lyd_node* leaf = FindParameter(call, name);
  return leaf != nullptr ? lyd_get_value(leaf) : otherwise;
}

std::string NamedDatastore(const OperationCall& call, const char* name) {
  const lyd_node* container = FindParameter(call, name);
  const lyd_node* named = container != nullptr ? lyd_child(container) : nullptr;
  return named != nullptr && named->schema != nullptr ? named->schema->name : "";
}

EditOptions EditOptionsOf(const OperationCall& call) {
  EditOptions options;
  const std::string operation = ParameterText(call, "default-operation", "merge");
  if (operation == "replace") options.default_operation = DefaultOperation::kReplace;
  if (operation == "none") options.default_operation = DefaultOperation::kNone;
  return options;
}

const lyd_node* InlineConfig(const lyd_node* parent) {
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    if (child->schema == nullptr || std::strcmp(child->schema->name, "config") != 0) continue;
    const auto* any = reinterpret_cast<const lyd_node_any*>(child);
    return any->value_type == LYD_ANYDATA_DATATREE ? any->value.tree : nullptr;
  }
  return nullptr;
}

Tree TakeInlineConfig(lyd_node* parent) {
  lyd_node* child;
  LY_LIST_FOR(lyd_child(parent), child) {
    if (child->schema == nullptr || std::strcmp(child->schema->name, "config") != 0) continue;
    auto* any = reinterpret_cast<lyd_node_any*>(child);
    if (any->value_type != LYD_ANYDATA_DATATREE) return nullptr;
    return Tree(std::exchange(any->value.tree, nullptr));
  }
  return nullptr;
}

std::optional<RpcError> LockedByOther(const OperationContext& context, const OperationCall& call,
                                      const std::string& datastore) {
  if (!context.locks.HeldByOther(datastore, call.session.id)) return std::nullopt;
  const std::string holder = std::to_string(context.locks.HolderOf(datastore));
  return RpcError{"protocol", "in-use", "session " + holder + " holds the lock of " + datastore,
                  "",         "",       ""};
}

}  // namespace host
