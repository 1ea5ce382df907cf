// Retrieval of configuration and state: see retrieval.h.
#include "host/netconf/retrieval.h"

#include <libyang/libyang.h>

#include <cstdlib>
#include <optional>

#include "host/cdb/operational_store.h"
#include "host/netconf/generic_xml.h"
#include "host/netconf/subtree_filter.h"

namespace host {
namespace {

bool Print(const lyd_node* node, uint32_t options, std::string* xml) {
  char* text = nullptr;
  if (lyd_print_mem(&text, node, LYD_XML, options) != LY_SUCCESS) return false;
  if (text != nullptr) *xml += text;
  free(text);
  return true;
}

// Collects the selected parts of top-level nodes as XML.
class Collector {
 public:
  Collector(const SubtreeFilter* filter, uint32_t print_options, std::string* xml)
      : filter_(filter), options_(print_options | LYD_PRINT_SHRINK), xml_(xml) {}

  bool Wants(const lys_module* module, const char* name) const {
    return filter_ == nullptr || filter_->MaySelect(module, name);
  }
  // Adds what the filter selects of the node and its following siblings.
  void AddSiblings(const lyd_node* first) {
    for (; first != nullptr; first = first->next) Add(first);
  }
  bool failed() const { return failed_; }

 private:
  void Add(const lyd_node* node) {
    bool whole = filter_ == nullptr;
    const Tree part = whole ? nullptr : filter_->Select(node, &whole);
    const lyd_node* selected = whole ? node : part.get();
    if (selected != nullptr && !Print(selected, options_, xml_)) failed_ = true;
  }

  const SubtreeFilter* filter_;
  const uint32_t options_;
  std::string* xml_;
  bool failed_ = false;
};

}  // namespace

RpcErrors Retrieve(const RetrievalRequest& request, Datastore& datastore, std::string* xml) {
  std::optional<SubtreeFilter> filter;
  if (request.filter != nullptr) {
    const auto type = XmlAttribute(request.filter, "type");
    if (type.has_value() && *type != "subtree") {
      return {BadAttribute("type", "filter",
                           "there are no filters of type \"" + std::string(*type) + "\"")};
    }
    filter.emplace(request.filter, datastore.Context());
  }
  Collector collector(filter.has_value() ? &*filter : nullptr, request.print_options, xml);
  collector.AddSiblings(request.configuration);
  if (request.with_state) {
    // Building the state can be costly: only what the filter may select.
    const Tree state =
        datastore.Operational().Read([&](const std::string& module_name, const std::string& node) {
          const lys_module* module =
              ly_ctx_get_module_implemented(datastore.Context(), module_name.c_str());
          return module != nullptr && collector.Wants(module, node.c_str());
        });
    collector.AddSiblings(state.get());
  }
  if (collector.failed()) {
    return {{"application", "operation-failed", "the data cannot be printed", "", "", ""}};
  }
  return {};
}

}  // namespace host
