// Retrieval of configuration and state: see retrieval.h.
#include "host/netconf/reply/retrieval.h"

#include <libyang/libyang.h>

#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>

#include "host/cdb/list_order.h"
#include "host/cdb/operational_store.h"
#include "host/netconf/reply/data_printer.h"
#include "host/netconf/reply/filter/compiled_filter.h"
#include "host/netconf/reply/filter/subtree_filter.h"
#include "host/netconf/reply/filter/xpath_filter.h"
#include "host/netconf/reply/tree_view.h"

namespace host {
namespace {

using ConfigurationSource = std::function<RetrievalRequest::Configuration()>;

// All data, or what a subtree filter selects.
class ViewStream : public DataStream {
 public:
  ViewStream(ConfigurationSource configuration, bool with_state,
             std::unique_ptr<const SubtreeFilter> filter, uint32_t print_options,
             Datastore& datastore, std::shared_ptr<PageMemory> memory)
      : configuration_(std::move(configuration)),
        with_state_(with_state),
        filter_(std::move(filter)),
        datastore_(datastore),
        memory_(std::move(memory)),
        printer_(print_options) {}

  RpcErrors Begin() override {
    const RetrievalRequest::Configuration configuration = configuration_();
    view_.emplace(configuration.first, configuration.tree, filter_.get(), memory_);
    return {};
  }

  Progress Next(std::string* xml) override {
    if (view_.has_value()) {
      const Progress progress = PrintPage(xml);
      if (progress != Progress::kEnd) return progress;
      view_.reset();
    }
    if (with_state_ && NextState()) return Progress::kMore;
    if (pieces_ != nullptr && pieces_->failed()) return Progress::kFailed;
    printer_.Finish(xml);
    return Progress::kEnd;
  }

 private:
  // Prints what there is of the view, up to about a page. No part outlives the view, which keeps
  // alive what the part's page is of.
  Progress PrintPage(std::string* xml) {
    ViewPart part;
    size_t nodes = 0;
    while (view_->Next(&part)) {
      if (!printer_.Print(part, xml)) return Progress::kFailed;
      nodes += part.count;
      if (nodes >= memory_->page_nodes) return Progress::kMore;
    }
    return Progress::kEnd;
  }

  // Turns to the next tree of state; false when there is none left.
  bool NextState() {
    if (!written_seen_) {
      written_seen_ = true;
      return See(CopyTree(datastore_.Operational().written().Shown()), false);
    }
    if (pieces_ != nullptr) {
      if (lyd_node* piece = pieces_->Next(datastore_.Context())) return See(Tree(piece), true);
      if (pieces_->failed()) return false;
      pieces_.reset();
    }
    const std::shared_ptr<StateProviders>& providers = datastore_.Operational().providers();
    if (providers == nullptr || next_provider_ >= providers->entries().size()) return false;
    const auto provider = std::next(providers->entries().begin(), next_provider_++);
    if (!MaySelect(*provider)) return true;
    if (provider->open == nullptr) return See(Tree(provider->build(datastore_.Context())), false);
    pieces_ = provider->open();
    return true;
  }

  bool See(Tree tree, bool piece) {
    const std::shared_ptr<const lyd_node> shared = std::move(tree);
    printer_.SetPieces(piece);
    // Pieces can be joined where they are taken apart.
    const int few_children = piece ? 0 : TreeView::kFewChildren;
    view_.emplace(shared.get(), shared, filter_.get(), memory_, few_children);
    return true;
  }

  bool MaySelect(const StateProviders::Entry& provider) const {
    const lys_module* module =
        ly_ctx_get_module_implemented(datastore_.Context(), provider.module.c_str());
    return module != nullptr &&
           (filter_ == nullptr || filter_->MaySelect(module, provider.top_node.c_str()));
  }

  const ConfigurationSource configuration_;
  const bool with_state_;
  const std::unique_ptr<const SubtreeFilter> filter_;
  Datastore& datastore_;
  const std::shared_ptr<PageMemory> memory_;
  DataPrinter printer_;
  std::optional<TreeView> view_;
  bool written_seen_ = false;
  std::unique_ptr<StateProviders::Pieces> pieces_;
  size_t next_provider_ = 0;
};

// What an XPath expression that is no pattern selects. It is evaluated, and the result printed, at
// once: nobody else is served meanwhile. State that takes long to build is refused
// (OperationalStore::Read), as this may not be what everybody else waits for.
class XPathStream : public DataStream {
 public:
  XPathStream(ConfigurationSource configuration, bool with_state, const std::string& xpath,
              uint32_t print_options, Datastore& datastore)
      : configuration_(std::move(configuration)),
        with_state_(with_state),
        filter_(xpath),
        print_options_(print_options),
        datastore_(datastore) {}

  RpcErrors Begin() override {
    const RetrievalRequest::Configuration configuration = configuration_();
    RpcErrors errors = Add(configuration.first);
    if (!errors.empty() || !with_state_) return errors;
    // Building the state can be costly: only what the expression may select.
    DatastoreErrors wrong;
    const Tree state = datastore_.Operational().Read(
        [this](const std::string& module, const std::string& node) {
          return filter_.MaySelect(TopNode(module, node));
        },
        &wrong);
    return wrong.empty() ? Add(state.get()) : FromDatastore(wrong);
  }

  Progress Next(std::string* xml) override {
    constexpr size_t kPart = size_t{32} << 10;
    const size_t size = std::min(kPart, text_.size() - given_);
    xml->append(text_, given_, size);
    given_ += size;
    return given_ == text_.size() ? Progress::kEnd : Progress::kMore;
  }

 private:
  RpcErrors Add(const lyd_node* first) {
    std::string error;
    if (!filter_.Evaluate(first, &error)) return {BadAttribute("select", "filter", error)};
    for (; first != nullptr; first = first->next) {
      bool whole = false;
      const Tree part = filter_.Select(first, &whole);
      const lyd_node* selected = whole ? first : part.get();
      if (selected != nullptr && !Print(selected)) {
        return {{"application", "operation-failed", "the data cannot be printed", "", "", ""}};
      }
    }
    return {};
  }

  // The top-level node of state; null where the schema does not have it.
  const lysc_node* TopNode(const std::string& module, const std::string& node) const {
    const lys_module* known = ly_ctx_get_module_implemented(datastore_.Context(), module.c_str());
    return known == nullptr ? nullptr : lys_find_child(nullptr, known, node.c_str(), 0, 0, 0);
  }

  bool Print(const lyd_node* node) {
    const Tree ordered = InKeyOrder(node);
    if (ordered != nullptr) node = ordered.get();
    char* text = nullptr;
    if (lyd_print_mem(&text, node, LYD_XML, print_options_ | LYD_PRINT_SHRINK) != LY_SUCCESS) {
      return false;
    }
    if (text != nullptr) text_ += text;
    free(text);
    return true;
  }

  const ConfigurationSource configuration_;
  const bool with_state_;
  XPathFilter filter_;
  const uint32_t print_options_;
  Datastore& datastore_;
  std::string text_;
  size_t given_ = 0;
};

}  // namespace

std::unique_ptr<DataStream> Retrieve(const RetrievalRequest& request, Datastore& datastore,
                                     const std::shared_ptr<PageMemory>& memory, RpcErrors* errors) {
  std::optional<CompiledFilter> filter = CompileFilter(
      request.filter, request.typed_filter, datastore.Context(), request.trusted, errors);
  if (!filter.has_value()) return nullptr;
  if (!filter->xpath.empty()) {
    return std::make_unique<XPathStream>(request.configuration, request.with_state, filter->xpath,
                                         request.print_options, datastore);
  }
  return std::make_unique<ViewStream>(request.configuration, request.with_state,
                                      std::move(filter->subtree), request.print_options, datastore,
                                      memory);
}

}  // namespace host
