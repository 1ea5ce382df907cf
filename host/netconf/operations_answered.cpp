// Operations that other parts of the process answer (host/runtime/state_providers.h).
#include <libyang/libyang.h>

#include <cstdlib>
#include <string>

#include "host/cdb/operational_store.h"
#include "host/netconf/operations.h"

namespace host {

OperationResult RunAnswered(const OperationContext& context, const OperationCall& call) {
  const auto& providers = context.datastore.Operational().providers();
  const char* const name = call.input->schema->name;
  std::string error = std::string("nobody answers ") + name;
  lyd_node* output = nullptr;
  if (providers != nullptr && providers->AnswerOf(name) != nullptr) {
    output = providers->AnswerOf(name)(call.input, &error);
  }
  if (output == nullptr) {
    return OperationResult::Error({"application", "invalid-value", error, "", "", ""});
  }
  char* text = nullptr;
  OperationResult result;
  if (lyd_print_mem(&text, lyd_child(output), LYD_XML, LYD_PRINT_SHRINK | LYD_PRINT_WITHSIBLINGS) ==
      LY_SUCCESS) {
    result.data = text;
  }
  std::free(text);
  lyd_free_all(output);
  return result;
}

}  // namespace host
