// <get> and <get-config>.
#include "host/netconf/operations.h"
#include "host/netconf/retrieval.h"

namespace host {
namespace {

OperationResult RunRetrieval(const OperationContext& context, const OperationCall& call,
                             RetrievalRequest request) {
  OperationResult result;
  if (FindParameter(call, "filter") != nullptr) {
    request.filter = FindNetconfChild(call.message.GenericOperation(), "filter");
  }
  result.errors = Retrieve(request, context.datastore, &result.data);
  result.data_needs_tag = true;
  return result;
}

}  // namespace

OperationResult RunGet(const OperationContext& context, const OperationCall& call) {
  RetrievalRequest request;
  request.configuration = context.datastore.Running();
  request.with_state = true;
  return RunRetrieval(context, call, request);
}

OperationResult RunGetConfig(const OperationContext& context, const OperationCall& call) {
  const std::string source = NamedDatastore(call, "source");
  if (source.empty()) return OperationResult::Error(MissingElement("source"));
  RetrievalRequest request;
  request.configuration =
      source == "candidate" ? context.candidate.Content() : context.datastore.Running();
  return RunRetrieval(context, call, request);
}

}  // namespace host
