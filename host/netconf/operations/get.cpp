// <get> and <get-config>.
#include <libyang/libyang.h>

#include "host/netconf/operations/operations.h"
#include "host/netconf/reply/retrieval.h"

namespace host {
namespace {

// RFC 6243 section 3: what is printed of leaves that have their default value. No data node of the
// modules that are served has one, so that nothing must be added to what the datastore keeps.
uint32_t PrintOptionsOf(const std::string& with_defaults) {
  static constexpr struct {
    const char* mode;
    uint32_t options;
  } kModes[] = {
      {"explicit", LYD_PRINT_WD_EXPLICIT},
      {"trim", LYD_PRINT_WD_TRIM},
      {"report-all", LYD_PRINT_WD_ALL},
      {"report-all-tagged", LYD_PRINT_WD_ALL_TAG},
  };
  for (const auto& known : kModes) {
    if (with_defaults == known.mode) return known.options;
  }
  return LYD_PRINT_WD_EXPLICIT;
}

OperationResult RunRetrieval(const OperationContext& context, const OperationCall& call,
                             RetrievalRequest request) {
  OperationResult result;
  request.typed_filter = FindParameter(call, "filter");
  if (request.typed_filter != nullptr) {
    request.filter = FindNetconfChild(call.message.GenericOperation(), "filter");
  }
  request.trusted = call.session.may_write;
  request.print_options = PrintOptionsOf(ParameterText(call, "with-defaults", "explicit"));
  result.stream = Retrieve(request, context.datastore, context.pages, &result.errors);
  return result;
}

}  // namespace

OperationResult RunGet(const OperationContext& context, const OperationCall& call) {
  RetrievalRequest request;
  request.configuration = [&datastore = context.datastore] {
    return RetrievalRequest::Configuration{datastore.Running()};
  };
  request.with_state = true;
  return RunRetrieval(context, call, request);
}

OperationResult RunGetConfig(const OperationContext& context, const OperationCall& call) {
  const std::string source = NamedDatastore(call, "source");
  if (source.empty()) return OperationResult::Error(MissingElement("source"));
  RetrievalRequest request;
  request.configuration = [source, &context] {
    return source == "candidate" ? RetrievalRequest::Configuration{context.candidate.Content(),
                                                                   context.candidate.Holder()}
                                 : RetrievalRequest::Configuration{context.datastore.Running()};
  };
  return RunRetrieval(context, call, request);
}

}  // namespace host
