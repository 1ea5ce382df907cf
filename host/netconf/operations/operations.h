// The NETCONF operations (RFC 6241 section 7), a function each, and the table of them.
//
// An operation works on the services of the server and answers at once. It never touches a socket:
// what it gives back is the content of the <rpc-reply>.
#ifndef HOST_NETCONF_OPERATIONS_OPERATIONS_H_
#define HOST_NETCONF_OPERATIONS_OPERATIONS_H_

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/cdb/datastore.h"
#include "host/cdb/tree_pages.h"
#include "host/netconf/message/rpc_error.h"
#include "host/netconf/message/rpc_message.h"
#include "host/netconf/notifications/notifier.h"
#include "host/netconf/operations/candidate.h"
#include "host/netconf/operations/confirmed_commit.h"
#include "host/netconf/operations/findings_service.h"
#include "host/netconf/operations/locks.h"
#include "host/netconf/peer/peer_log.h"
#include "host/netconf/reply/data_stream.h"

namespace host {

// The session that an operation comes from.
struct SessionInfo {
  uint32_t id = 0;
  std::string user;
  bool may_write = false;
  std::shared_ptr<PeerLog> log;  // of the user, never null
  bool subscribed = false;       // to notifications
};

// What operations can do to other sessions.
class SessionControl {
 public:
  virtual ~SessionControl() = default;
  // Ends session `id`. False when there is none.
  virtual bool KillSession(uint32_t id, const SessionInfo& killer) = 0;
};

struct OperationContext {
  Datastore& datastore;
  Candidate& candidate;
  ConfirmedCommit& confirmed;
  Locks& locks;
  SessionControl& sessions;
  // Shared by all who read in pages.
  std::shared_ptr<PageMemory> pages = std::make_shared<PageMemory>(size_t{16} << 20);
  std::shared_ptr<FindingsService> findings =
      std::make_shared<FindingsService>(datastore, candidate, pages);
  Notifier* notifier = nullptr;  // null: there are no notifications
};

struct OperationCall {
  const SessionInfo& session;
  const RpcMessage& message;
  lyd_node* input;  // the operation's node; its children are the parameters
};

struct OperationResult {
  RpcErrors errors;
  std::string data;                    // XML inside the reply; empty: <ok/>
  std::unique_ptr<DataStream> stream;  // in place of `data`
  // What the session is to be sent once it has the reply.
  std::unique_ptr<Subscription> subscription;
  bool close_session = false;
  std::string note;  // for the log

  static OperationResult Ok() { return {}; }
  static OperationResult Error(RpcError error) {
    OperationResult result;
    result.errors.push_back(std::move(error));
    return result;
  }
  // The datastore's errors; none: as Ok().
  static OperationResult Of(const DatastoreErrors& errors) {
    OperationResult result;
    result.errors = FromDatastore(errors);
    return result;
  }
  // An error of the layer that operations are of (RFC 6241 section 4.3).
  static OperationResult ProtocolError(const char* tag, std::string message) {
    return Error({"protocol", tag, std::move(message), "", "", ""});
  }
};

enum class OperationKind {
  kQuery,   // gives data, which can be large; open to everybody
  kOwn,     // concerns the session alone; open to everybody
  kChange,  // changes what others see, or works as hard as that; for those who may write
};

struct Operation {
  const char* module;
  const char* name;
  OperationKind kind;
  OperationResult (*run)(const OperationContext& context, const OperationCall& call);
};

// The operation for an RPC's schema node; null when the server does not have it.
const Operation* FindOperation(std::string_view module, std::string_view name);

OperationResult RunGet(const OperationContext& context, const OperationCall& call);
OperationResult RunGetConfig(const OperationContext& context, const OperationCall& call);
OperationResult RunEditConfig(const OperationContext& context, const OperationCall& call);
OperationResult RunCopyConfig(const OperationContext& context, const OperationCall& call);
OperationResult RunDeleteConfig(const OperationContext& context, const OperationCall& call);
OperationResult RunCommit(const OperationContext& context, const OperationCall& call);
OperationResult RunCancelCommit(const OperationContext& context, const OperationCall& call);
OperationResult RunDiscardChanges(const OperationContext& context, const OperationCall& call);
OperationResult RunValidate(const OperationContext& context, const OperationCall& call);
OperationResult RunLock(const OperationContext& context, const OperationCall& call);
OperationResult RunUnlock(const OperationContext& context, const OperationCall& call);
OperationResult RunCloseSession(const OperationContext& context, const OperationCall& call);
OperationResult RunKillSession(const OperationContext& context, const OperationCall& call);
OperationResult RunGetSchema(const OperationContext& context, const OperationCall& call);
OperationResult RunGetHistory(const OperationContext& context, const OperationCall& call);
OperationResult RunGetCommit(const OperationContext& context, const OperationCall& call);
OperationResult RunRollback(const OperationContext& context, const OperationCall& call);
OperationResult RunCreateSubscription(const OperationContext& context, const OperationCall& call);
OperationResult RunAnswered(const OperationContext& context, const OperationCall& call);
OperationResult RunRecover(const OperationContext& context, const OperationCall& call);
OperationResult RunCompare(const OperationContext& context, const OperationCall& call);
OperationResult RunCompareCommits(const OperationContext& context, const OperationCall& call);
OperationResult RunCheck(const OperationContext& context, const OperationCall& call);
OperationResult RunGetFindings(const OperationContext& context, const OperationCall& call);

// Helpers of the operations.

// The input's child `name`, or null.
lyd_node* FindParameter(const OperationCall& call, const char* name);
// Text of the leaf `name` of the input; `otherwise` when it is absent.
std::string ParameterText(const OperationCall& call, const char* name, const char* otherwise);
// The datastore named by the container `name` ("source", "target") of the input; empty when the
// container or its choice is missing.
std::string NamedDatastore(const OperationCall& call, const char* name);
// How an edit is to be made, by the input's parameters.
EditOptions EditOptionsOf(const OperationCall& call);
// First node of the data within the child <config> of `parent`; null when it is empty.
const lyd_node* InlineConfig(const lyd_node* parent);
// The same data, taken out of the input.
Tree TakeInlineConfig(lyd_node* parent);
// The error to answer with when another session holds the lock of `datastore`.
std::optional<RpcError> LockedByOther(const OperationContext& context, const OperationCall& call,
                                      const std::string& datastore);

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_OPERATIONS_H_
