// The operations of acl-app-history: the history of running, and what an edit would do.
#include <libyang/libyang.h>

#include <cstdlib>
#include <string>
#include <utility>

#include "host/cdb/diff.h"
#include "host/netconf/operations/difference_xml.h"
#include "host/netconf/operations/operations.h"
#include "host/runtime/date_and_time.h"
#include "host/xml/xml_writer.h"

namespace host {
namespace {

constexpr char kHistoryNamespace[] = "urn:acl-app:history";

// The changes of one commit that are shown to those who may only read. More would hold up the
// commits of others for longer than readers may.
constexpr size_t kChangesForReaders = 2000;

void WriteCommit(const CommitInfo& info, XmlWriter* xml) {
  xml->Leaf("id", info.id);
  xml->Leaf("time", DateAndTime(info.time_us, 6));
  xml->Leaf("user", info.origin.user);
  xml->Leaf("session", info.origin.session_id);
  if (!info.origin.comment.empty()) xml->Leaf("comment", info.origin.comment);
  xml->Leaf("changes", info.changes);
}

uint64_t NumberIn(const OperationCall& call, const char* name, const char* otherwise) {
  return std::strtoull(ParameterText(call, name, otherwise).c_str(), nullptr, 10);
}

OperationResult Reply(XmlWriter* xml) {
  OperationResult result;
  result.data = xml->Take();
  return result;
}

EditPreview PreviewOf(const OperationContext& context, const OperationCall& call) {
  return context.datastore.Preview(InlineConfig(call.input), EditOptionsOf(call));
}

}  // namespace

OperationResult RunGetHistory(const OperationContext& context, const OperationCall& call) {
  XmlWriter xml(kHistoryNamespace);
  for (const CommitInfo& info : context.datastore.History(NumberIn(call, "most", "20"))) {
    xml.Open("commit");
    WriteCommit(info, &xml);
    xml.Close("commit");
  }
  return Reply(&xml);
}

OperationResult RunGetCommit(const OperationContext& context, const OperationCall& call) {
  const uint64_t id = NumberIn(call, "id", "0");
  const CommitInfo info = context.datastore.CommitOf(id).value_or(CommitInfo());
  if (info.changes > kChangesForReaders && !call.session.may_write) {
    return OperationResult::Error({"application", "access-denied",
                                   "commit " + std::to_string(id) + " made " +
                                       std::to_string(info.changes) +
                                       " changes; only those who may write can see so many",
                                   "", "", ""});
  }
  DatastoreErrors errors;
  const Tree diff(context.datastore.DifferenceOf(id, &errors));
  if (!errors.empty()) return OperationResult::Of(errors);
  XmlWriter xml(kHistoryNamespace);
  WriteCommit(info, &xml);
  WriteDifference(diff.get(), &xml);
  return Reply(&xml);
}

OperationResult RunRollback(const OperationContext& context, const OperationCall& call) {
  if (std::optional<RpcError> error = LockedByOther(context, call, "running")) {
    return OperationResult::Error(std::move(*error));
  }
  if (FindParameter(call, "id") == nullptr) return OperationResult::Error(MissingElement("id"));
  const uint64_t before = context.datastore.TransactionId();
  const uint64_t id = NumberIn(call, "id", "0");
  const std::string comment = ParameterText(call, "comment", "");
  Origin origin{call.session.user, call.session.id};
  if (!comment.empty()) origin.comment = "rollback to " + std::to_string(id) + ": " + comment;
  const DatastoreErrors errors = context.datastore.Rollback(id, origin);
  if (!errors.empty()) return OperationResult::Of(errors);
  const uint64_t after = context.datastore.TransactionId();
  if (after == before) return OperationResult::Ok();
  XmlWriter xml(kHistoryNamespace);
  xml.Leaf("id", after);
  OperationResult result = Reply(&xml);
  result.note = "done, transaction " + std::to_string(after);
  return result;
}

OperationResult RunCompare(const OperationContext& context, const OperationCall& call) {
  const EditPreview preview = PreviewOf(context, call);
  if (!preview.errors.empty()) return OperationResult::Of(preview.errors);
  XmlWriter xml(kHistoryNamespace);
  WriteDifference(preview.difference.get(), &xml);
  return Reply(&xml);
}

OperationResult RunCompareCommits(const OperationContext& context, const OperationCall& call) {
  const std::string now = std::to_string(context.datastore.TransactionId());
  DatastoreErrors errors;
  const Tree difference = context.datastore.DifferenceBetween(
      NumberIn(call, "from", "0"), NumberIn(call, "to", now.c_str()), &errors);
  if (!errors.empty()) return OperationResult::Of(errors);
  XmlWriter xml(kHistoryNamespace);
  WriteDifference(difference.get(), &xml);
  return Reply(&xml);
}

OperationResult RunCheck(const OperationContext& context, const OperationCall& call) {
  const EditPreview preview = PreviewOf(context, call);
  const std::optional<uint32_t> capacity = context.datastore.GroupCapacity();
  XmlWriter xml(kHistoryNamespace);
  xml.Leaf("changes", CountChanges(preview.difference.get()));
  for (const auto& [group, entries] : preview.now) {
    xml.Open("group");
    xml.Leaf("type", group);
    if (capacity.has_value()) xml.Leaf("capacity", *capacity);
    xml.Leaf("entries", entries);
    const auto then = preview.then.find(group);
    if (then != preview.then.end()) xml.Leaf("entries-then", then->second);
    xml.Close("group");
  }
  for (const RpcError& error : FromDatastore(preview.errors)) {
    xml.Open("refusal");
    xml.Leaf("tag", error.tag);
    if (!error.path.empty()) xml.Leaf("path", error.path);
    xml.Leaf("message", error.message);
    xml.Close("refusal");
  }
  return Reply(&xml);
}

}  // namespace host
