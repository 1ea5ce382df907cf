// The <filter> of a request: see compiled_filter.h.
#include "host/netconf/reply/filter/compiled_filter.h"

#include <libyang/libyang.h>

#include <utility>

#include "host/netconf/reply/filter/xpath_filter.h"
#include "host/netconf/reply/filter/xpath_pattern.h"
#include "host/xml/generic_xml.h"

namespace host {

std::optional<CompiledFilter> CompileFilter(const lyd_node* filter, const lyd_node* typed,
                                            const ly_ctx* context, bool trusted,
                                            RpcErrors* errors) {
  CompiledFilter compiled;
  if (filter == nullptr) return compiled;
  if (XmlAttribute(filter, "type") != "xpath") {
    compiled.subtree = std::make_unique<SubtreeFilter>(filter, context);
    return compiled;
  }
  const lyd_meta* select = lyd_find_meta(typed->meta, nullptr, "ietf-netconf:select");
  if (select == nullptr) {
    errors->push_back(MissingAttribute("select", "filter"));
    return std::nullopt;
  }
  const std::string xpath = lyd_get_meta_value(select);
  if (std::optional<SubtreeFilter> pattern = CompileXPath(xpath, context)) {
    compiled.subtree = std::make_unique<SubtreeFilter>(std::move(*pattern));
    return compiled;
  }
  const std::string why = WhyTooCostly(xpath);
  if (!why.empty()) {
    errors->push_back(BadAttribute("select", "filter", why));
    return std::nullopt;
  }
  if (!trusted) {
    errors->push_back(
        {"protocol", "resource-denied",
         "those who may only read can select with location paths of names whose predicates compare "
         "a child with a value; this expression would hold up everybody else",
         "", "", ""});
    return std::nullopt;
  }
  compiled.xpath = xpath;
  return compiled;
}

}  // namespace host
