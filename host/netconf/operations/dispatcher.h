// From the text of an <rpc> to the text of its <rpc-reply>. Knows no sockets.
#ifndef HOST_NETCONF_OPERATIONS_DISPATCHER_H_
#define HOST_NETCONF_OPERATIONS_DISPATCHER_H_

#include <memory>
#include <string>

#include "host/netconf/operations/operations.h"
#include "host/netconf/reply/reply_stream.h"
#include "host/xml/generic_xml.h"

namespace host {

class Dispatcher {
 public:
  struct Reply {
    std::string xml;                             // the whole reply, unless there is
    std::unique_ptr<ReplyStream> stream;         // its maker
    std::unique_ptr<Subscription> subscription;  // that the session has from now on; may be null
    bool close_session = false;
    bool bad_rpc = false;  // not even an RPC of the schema
    uint32_t error_count = 0;
  };

  struct Conditions {
    bool cut = false;        // the message was too long: only its start is there
    bool base_1_1 = false;   // what the session agreed on
    bool congested = false;  // too much output waits for its readers
  };

  Dispatcher(const OperationContext& context, const GenericXml& xml, int max_depth)
      : context_(context), xml_(xml), max_depth_(max_depth) {}

  // Carries out one message of `session`.
  Reply Handle(std::string message, const Conditions& conditions, const SessionInfo& session);

 private:
  OperationResult Run(RpcMessage& message, bool congested, const SessionInfo& session);
  std::string Print(const ReplyFrame& frame, const OperationResult& result) const;

  OperationContext context_;
  const GenericXml& xml_;
  const int max_depth_;
};

}  // namespace host

#endif  // HOST_NETCONF_OPERATIONS_DISPATCHER_H_
