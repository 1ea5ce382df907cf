// The operation of acl-app-findings.
#include "host/netconf/operations/findings_service.h"
#include "host/netconf/operations/operations.h"

namespace host {

OperationResult RunGetFindings(const OperationContext& context, const OperationCall& call) {
  const bool edit = FindParameter(call, "config") != nullptr ||
                    FindParameter(call, "default-operation") != nullptr;
  const bool candidate = FindParameter(call, "candidate") != nullptr;
  if ((edit || candidate) && !call.session.may_write) {
    return OperationResult::Error({"protocol", "access-denied",
                                   "those who may only read can ask for what is found in running",
                                   "", "", ""});
  }
  FindingsService& service = *context.findings;
  OperationResult result;
  if (!edit) {
    result.stream = StreamFindings([&service, candidate](DatastoreErrors* /*errors*/) {
      return candidate ? service.OfCandidate() : service.OfRunning();
    });
    return result;
  }
  const EditOptions options = EditOptionsOf(call);
  const std::shared_ptr<lyd_node> content(TakeInlineConfig(call.input).release(), TreeDeleter());
  result.stream = StreamFindings([&service, options, content](DatastoreErrors* errors) {
    return service.OfEdit(content.get(), options, errors);
  });
  return result;
}

}  // namespace host
