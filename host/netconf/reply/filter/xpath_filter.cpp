// XPath filters: see xpath_filter.h.
#include "host/netconf/reply/filter/xpath_filter.h"

#include <libyang/libyang.h>

#include <algorithm>
#include <string_view>

#include "host/xml/xml_text.h"

namespace host {
namespace {

constexpr size_t kMaxLength = 4096;

constexpr std::string_view kAxes[] = {
    "child", "self", "parent", "descendant", "descendant-or-self", "ancestor", "ancestor-or-self"};
// Below a predicate only what leads down.
constexpr std::string_view kPredicateAxes[] = {"child", "self"};

// The expression without its literals, which may hold anything.
std::string WithoutLiterals(const std::string& xpath) {
  std::string rest;
  for (size_t pos = 0; pos < xpath.size(); ++pos) {
    const char c = xpath[pos];
    rest += c;
    if (c != '\'' && c != '"') continue;
    pos = std::min(xpath.find(c, pos + 1), xpath.size() - 1);
    rest += c;
  }
  return rest;
}

// The expression without what only tests; literals are gone.
std::string WithoutPredicates(const std::string& text) {
  std::string rest;
  int depth = 0;
  for (const char c : text) {
    if (c == '[') ++depth;
    if (depth == 0) rest += c;
    if (c == ']') --depth;
  }
  return rest;
}

// The names in an expression, and the modules that are named before them. A name without one is of
// a module of those that the expression names, that of the step before; where it names none, of
// any.
class NamesOf {
 public:
  explicit NamesOf(const std::string& xpath) {
    for (size_t pos = 0; pos < xpath.size();) {
      size_t end = pos;
      while (end < xpath.size() && IsNameChar(xpath[end])) ++end;
      const bool is_module = xpath[end] == ':';
      if (end > pos) (is_module ? modules_ : names_).insert(xpath.substr(pos, end - pos));
      pos = end + 1;
    }
  }

  bool Has(const lysc_node* node) const {
    return names_.count(node->name) > 0 &&
           (modules_.empty() || modules_.count(node->module->name) > 0);
  }
  // Whether it has the name of `node` or of one below.
  bool HasAnyOf(const lysc_node* node) const {
    if (Has(node)) return true;
    const lysc_node* child = nullptr;
    while ((child = lys_getnext(child, node, nullptr, 0)) != nullptr) {
      if (HasAnyOf(child)) return true;
    }
    return false;
  }

 private:
  std::unordered_set<std::string> names_, modules_;
};

bool AxisAllowed(std::string_view axis, bool in_predicate) {
  if (in_predicate) {
    for (const std::string_view allowed : kPredicateAxes) {
      if (axis == allowed) return true;
    }
    return false;
  }
  for (const std::string_view allowed : kAxes) {
    if (axis == allowed) return true;
  }
  return false;
}

}  // namespace

std::string WhyTooCostly(const std::string& xpath) {
  if (xpath.size() > kMaxLength) return "the expression is too long";
  const std::string text = WithoutLiterals(xpath);
  int predicates = 0;
  for (size_t pos = 0; pos < text.size(); ++pos) {
    const std::string_view rest = std::string_view(text).substr(pos);
    const char before = pos > 0 ? text[pos - 1] : ' ';
    const bool in_predicate = predicates > 0;
    if (rest[0] == '[') ++predicates;
    if (rest[0] == ']') --predicates;
    if (rest.substr(0, 2) == "::") {
      size_t start = pos;
      while (start > 0 && IsNameChar(text[start - 1])) --start;
      if (!AxisAllowed(std::string_view(text).substr(start, pos - start), in_predicate)) {
        return "the axis " + text.substr(start, pos - start) + " is not allowed here";
      }
    }
    if (!in_predicate) continue;
    if (rest.substr(0, 2) == "//") return "a predicate must not search with //";
    if (rest.substr(0, 2) == "..") return "a predicate must not look at parents";
    // A relative path goes on after a name, a '.', a '*' or an end of predicate or call.
    if (rest[0] == '/' && !IsNameChar(before) && before != '*' && before != ']' && before != ')') {
      return "a predicate must not start from the root";
    }
    for (const std::string_view function : {"current", "deref"}) {
      if (rest.substr(0, function.size()) == function && !IsNameChar(before) &&
          rest.find_first_not_of(" \t\r\n", function.size()) != std::string_view::npos &&
          rest[rest.find_first_not_of(" \t\r\n", function.size())] == '(') {
        return "a predicate must not call " + std::string(function) + "()";
      }
    }
  }
  return {};
}

bool XPathFilter::MaySelect(const lysc_node* top) const {
  if (top == nullptr) return false;
  const std::string text = WithoutLiterals(xpath_);
  if (text == "/") return true;
  const std::string path = WithoutPredicates(text);
  for (const char* any : {"*", "node()", ".", "::"}) {
    if (path.find(any) != std::string::npos) return true;
  }
  const NamesOf names(text);
  return path.find("//") == std::string::npos ? names.Has(top) : names.HasAnyOf(top);
}

bool XPathFilter::Evaluate(const lyd_node* first, std::string* error) {
  selected_.clear();
  above_selected_.clear();
  if (first == nullptr) return true;
  ly_set* found = nullptr;
  if (lyd_find_xpath3(nullptr, first, xpath_.c_str(), nullptr, &found) != LY_SUCCESS) {
    const char* reason = ly_errmsg(LYD_CTX(first));
    *error = reason != nullptr ? reason : "it cannot be evaluated";
    ly_err_clean(const_cast<ly_ctx*>(LYD_CTX(first)), nullptr);
    return false;
  }
  for (uint32_t i = 0; i < found->count; ++i) {
    const lyd_node* node = found->dnodes[i];
    selected_.insert(node);
    for (node = lyd_parent(node); node != nullptr; node = lyd_parent(node)) {
      if (!above_selected_.insert(node).second) break;
    }
  }
  ly_set_free(found, nullptr);
  return true;
}

Tree XPathFilter::Select(const lyd_node* node, bool* whole) const {
  *whole = selected_.count(node) != 0;
  if (*whole || above_selected_.count(node) == 0) return nullptr;
  lyd_node* copy = nullptr;
  if (lyd_dup_single(node, nullptr, LYD_DUP_NO_META | LYD_DUP_WITH_FLAGS, &copy) != LY_SUCCESS) {
    return nullptr;
  }
  Tree owner(copy);
  for (const lyd_node* child = lyd_child_no_keys(node); child != nullptr; child = child->next) {
    bool all = false;
    Tree part = Select(child, &all);
    lyd_node* duplicate = nullptr;
    if (all &&
        lyd_dup_single(child, nullptr, LYD_DUP_RECURSIVE | LYD_DUP_NO_META | LYD_DUP_WITH_FLAGS,
                       &duplicate) == LY_SUCCESS) {
      part.reset(duplicate);
    }
    if (part != nullptr) lyd_insert_child(copy, part.release());
  }
  return owner;
}

}  // namespace host
