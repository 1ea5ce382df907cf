// Retrieval of configuration and state: see retrieval.h.
#include "host/netconf/retrieval.h"

#include <libyang/libyang.h>

#include <cstdlib>
#include <optional>

#include "host/cdb/operational_store.h"
#include "host/netconf/generic_xml.h"
#include "host/netconf/subtree_filter.h"
#include "host/netconf/xpath_filter.h"

namespace host {
namespace {

bool Print(const lyd_node* node, uint32_t options, std::string* xml) {
  char* text = nullptr;
  if (lyd_print_mem(&text, node, LYD_XML, options) != LY_SUCCESS) return false;
  if (text != nullptr) *xml += text;
  free(text);
  return true;
}

// One of the two kinds of filters, or none, which selects all.
class Filter {
 public:
  // What is wrong with the request's filter; nothing when it is ready.
  RpcErrors Read(const RetrievalRequest& request, const ly_ctx* context) {
    if (request.filter == nullptr) return {};
    if (XmlAttribute(request.filter, "type") != "xpath") {
      subtree_.emplace(request.filter, context);
      return {};
    }
    const lyd_meta* select =
        lyd_find_meta(request.typed_filter->meta, nullptr, "ietf-netconf:select");
    if (select == nullptr) return {MissingAttribute("select", "filter")};
    const std::string xpath = lyd_get_meta_value(select);
    const std::string why = WhyTooCostly(xpath);
    if (!why.empty()) return {BadAttribute("select", "filter", why)};
    xpath_.emplace(xpath);
    return {};
  }
  bool MaySelect(const lys_module* module, const char* name) const {
    if (subtree_.has_value()) return subtree_->MaySelect(module, name);
    return !xpath_.has_value() || xpath_->MaySelect(name);
  }
  // To be called before Select() for the siblings from `first` on.
  bool Prepare(const lyd_node* first, std::string* error) {
    return !xpath_.has_value() || xpath_->Evaluate(first, error);
  }
  Tree Select(const lyd_node* node, bool* whole) const {
    if (subtree_.has_value()) return subtree_->Select(node, whole);
    if (xpath_.has_value()) return xpath_->Select(node, whole);
    *whole = true;
    return nullptr;
  }

 private:
  std::optional<SubtreeFilter> subtree_;
  std::optional<XPathFilter> xpath_;
};

// Collects the selected parts of top-level nodes as XML.
class Collector {
 public:
  Collector(Filter* filter, uint32_t print_options, std::string* xml)
      : filter_(filter), options_(print_options), xml_(xml) {}

  // Adds what the filter selects of the node and its following siblings.
  RpcErrors AddSiblings(const lyd_node* first) {
    std::string error;
    if (!filter_->Prepare(first, &error)) return {BadAttribute("select", "filter", error)};
    for (; first != nullptr; first = first->next) {
      if (!Add(first)) {
        return {{"application", "operation-failed", "the data cannot be printed", "", "", ""}};
      }
    }
    return {};
  }

 private:
  bool Add(const lyd_node* node) {
    bool whole = false;
    Tree part = filter_->Select(node, &whole);
    if (!whole && part == nullptr) return true;
    const bool with_defaults = (options_ & (LYD_PRINT_WD_ALL | LYD_PRINT_WD_ALL_TAG)) != 0;
    if (whole && with_defaults) part = CopyOf(node);
    // The datastore does not keep what only has its default value.
    if (with_defaults && lyd_new_implicit_tree(part.get(), 0, nullptr) != LY_SUCCESS) return false;
    return Print(part != nullptr ? part.get() : node, options_ | LYD_PRINT_SHRINK, xml_);
  }

  static Tree CopyOf(const lyd_node* node) {
    lyd_node* copy = nullptr;
    lyd_dup_single(node, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_WITH_FLAGS, &copy);
    return Tree(copy);
  }

  Filter* filter_;
  const uint32_t options_;
  std::string* xml_;
};

}  // namespace

RpcErrors Retrieve(const RetrievalRequest& request, Datastore& datastore, std::string* xml) {
  const ly_ctx* context = datastore.Context();
  Filter filter;
  RpcErrors errors = filter.Read(request, context);
  if (!errors.empty()) return errors;
  Collector collector(&filter, request.print_options, xml);
  errors = collector.AddSiblings(request.configuration);
  if (!errors.empty() || !request.with_state) return errors;
  // Building the state can be costly: only what the filter may select.
  const Tree state =
      datastore.Operational().Read([&](const std::string& module_name, const std::string& node) {
        const lys_module* module = ly_ctx_get_module_implemented(context, module_name.c_str());
        return module != nullptr && filter.MaySelect(module, node.c_str());
      });
  return collector.AddSiblings(state.get());
}

}  // namespace host
