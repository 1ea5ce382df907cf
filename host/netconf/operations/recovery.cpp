// <recover> of acl-app-status: the operator's word on a state that is in doubt.
#include <cstdlib>
#include <string>

#include "host/netconf/operations/operations.h"
#include "host/xml/xml_writer.h"

namespace host {

OperationResult RunRecover(const OperationContext& context, const OperationCall& call) {
  const std::string accept = ParameterText(call, "accept", "");
  const bool replace = FindParameter(call, "config") != nullptr;
  if (accept.empty() && !replace && FindParameter(call, "empty") == nullptr)
    return OperationResult::Error(MissingElement("accept"));
  if (accept == "0") {
    return OperationResult::Error(
        {"protocol", "invalid-value", "there is no commit 0", "", "", ""});
  }
  const Recovery recovery{std::strtoull(accept.c_str(), nullptr, 10),
                          replace ? InlineConfig(call.input) : nullptr};
  OperationResult result;
  result.errors =
      FromDatastore(context.datastore.Recover(recovery, {call.session.user, call.session.id, ""}));
  if (!result.errors.empty()) return result;
  // A commit that was to be confirmed is settled by that, too.
  context.confirmed.Confirm({call.session.user, call.session.id});
  const uint64_t id = context.datastore.TransactionId();
  XmlWriter xml("urn:acl-app:status");
  xml.Leaf("id", id);
  result.data = xml.Take();
  result.note = "done, transaction " + std::to_string(id);
  return result;
}

}  // namespace host
