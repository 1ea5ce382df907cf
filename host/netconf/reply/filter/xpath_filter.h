// XPath filters (RFC 6241 section 8.9).
//
// One thread serves everybody, so an expression must not be able to keep it busy: what is evaluated
// per node may only look at that node and below. Expressions beyond that are refused.
#ifndef HOST_NETCONF_REPLY_FILTER_XPATH_FILTER_H_
#define HOST_NETCONF_REPLY_FILTER_XPATH_FILTER_H_

#include <string>
#include <unordered_set>

#include "host/cdb/schema/yang_tree.h"

namespace host {

// Why the cost of `xpath` could grow faster than the data; empty when it cannot.
std::string WhyTooCostly(const std::string& xpath);

class XPathFilter {
 public:
  // `xpath` in libyang's own form: names carry the module's name as prefix.
  explicit XPathFilter(std::string xpath) : xpath_(std::move(xpath)) {}

  // False when the filter cannot select anything of the top-level node `top` (null: of none).
  bool MaySelect(const lysc_node* top) const;
  // Evaluates the expression on the siblings from `first` on. False with the reason in `error` when
  // it cannot be.
  bool Evaluate(const lyd_node* first, std::string* error);

  // What was selected of `node`: all (`*whole` is then true and nothing is returned), a copy of a
  // part, or nothing (null). For nodes of the last evaluation.
  Tree Select(const lyd_node* node, bool* whole) const;

 private:
  const std::string xpath_;
  std::unordered_set<const lyd_node*> selected_;
  std::unordered_set<const lyd_node*> above_selected_;
};

}  // namespace host

#endif  // HOST_NETCONF_REPLY_FILTER_XPATH_FILTER_H_
