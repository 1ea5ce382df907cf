// Operations that other parts of the process answer (host/runtime/state_providers.h).
#include <libyang/libyang.h>

#include <cstdlib>
#include <memory>
#include <string>
#include <utility>

#include "host/cdb/operational_store.h"
#include "host/netconf/operations/operations.h"

namespace host {
namespace {

class TextPiecesStream : public DataStream {
 public:
  explicit TextPiecesStream(std::unique_ptr<StateProviders::TextPieces> pieces)
      : pieces_(std::move(pieces)) {}

  bool in_data() const override { return false; }
  RpcErrors Begin() override { return {}; }
  Progress Next(std::string* xml) override {
    return pieces_->Next(xml) ? Progress::kMore : Progress::kEnd;
  }

 private:
  const std::unique_ptr<StateProviders::TextPieces> pieces_;
};

}  // namespace

OperationResult RunAnswered(const OperationContext& context, const OperationCall& call) {
  const auto& providers = context.datastore.Operational().providers();
  const char* const name = call.input->schema->name;
  std::string error = std::string("nobody answers ") + name;
  if (providers != nullptr && providers->LongAnswerOf(name) != nullptr) {
    OperationResult result;
    result.stream = std::make_unique<TextPiecesStream>(providers->LongAnswerOf(name)(call.input));
    return result;
  }
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
