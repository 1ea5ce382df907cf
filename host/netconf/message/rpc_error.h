// Errors of NETCONF operations (RFC 6241 section 4.3 and Appendix A).
#ifndef HOST_NETCONF_MESSAGE_RPC_ERROR_H_
#define HOST_NETCONF_MESSAGE_RPC_ERROR_H_

#include <string>
#include <vector>

#include "host/cdb/datastore.h"

struct ly_ctx;

namespace host {

struct RpcError {
  std::string type;  // "transport", "rpc", "protocol" or "application"
  std::string tag;
  std::string message;
  std::string app_tag;  // empty: none
  std::string path;     // instance path in libyang's form, empty: none
  std::string info;     // content of error-info as XML, empty: none
};
using RpcErrors = std::vector<RpcError>;

// The <rpc-error> element, as XML. `context` gives the namespaces of the modules in the path.
std::string PrintRpcError(const RpcError& error, const ly_ctx* context);

// Common errors, with the error-info that Appendix A requires.
RpcError OperationNotSupported(const std::string& message);
RpcError MissingElement(const std::string& element);
RpcError BadElement(const std::string& element, const std::string& message);
RpcError UnknownElement(const std::string& element);
RpcError MissingAttribute(const std::string& attribute, const std::string& element);
RpcError UnknownAttribute(const std::string& attribute, const std::string& element);
RpcError BadAttribute(const std::string& attribute, const std::string& element,
                      const std::string& message);
RpcError UnknownNamespace(const std::string& element, const std::string& name_space);
RpcError LockDenied(uint32_t session_id, const std::string& message);

// Leaves the first kMaxErrors of `*errors`, and one that says so, where there are more.
void LimitErrors(RpcErrors* errors);

// What the datastore refused, as errors of the application layer; at most so many.
RpcErrors FromDatastore(const DatastoreErrors& errors);

}  // namespace host

#endif  // HOST_NETCONF_MESSAGE_RPC_ERROR_H_
