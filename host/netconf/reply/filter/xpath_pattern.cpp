// XPath expressions as filters: see xpath_pattern.h.
#include "host/netconf/reply/filter/xpath_pattern.h"

#include <string_view>
#include <utility>
#include <vector>

#include "host/xml/xml_text.h"

namespace host {
namespace {

using FilterNode = SubtreeFilter::Node;

struct Name {
  const lys_module* module = nullptr;  // null: the schema does not have it
  std::string name;
};

struct Predicate {
  bool self = false;  // compares '.'
  Name child;
  std::optional<std::string> value;  // none: asks for presence
  bool is_number = false;
};

struct Step {
  bool descend = false;  // after //
  Name name;
  std::vector<Predicate> predicates;
};
using Path = std::vector<Step>;

// A recursive-descent parser; each function is false when the text is beyond what is known here.
class Parser {
 public:
  Parser(std::string_view text, const ly_ctx* context) : rest_(text), context_(context) {}

  bool ParseUnion(std::vector<Path>* paths) {
    do {
      if (!ParsePath(&paths->emplace_back())) return false;
    } while (Take("|"));
    return rest_.empty();
  }

 private:
  void SkipBlanks() {
    const size_t first = rest_.find_first_not_of(" \t\r\n");
    rest_.remove_prefix(first == std::string_view::npos ? rest_.size() : first);
  }
  bool Take(std::string_view token) {
    SkipBlanks();
    if (rest_.substr(0, token.size()) != token) return false;
    rest_.remove_prefix(token.size());
    SkipBlanks();
    return true;
  }
  // An NCName, without blanks before and behind.
  std::string TakeIdentifier() {
    size_t size = 0;
    if (!rest_.empty() && IsNameStart(rest_[0])) {
      while (size < rest_.size() && IsNameChar(rest_[size])) ++size;
    }
    std::string identifier(rest_.substr(0, size));
    rest_.remove_prefix(size);
    return identifier;
  }
  // A name of `module`, where no other is given. Neither an axis, a function nor an operator.
  bool ParseName(const lys_module* module, Name* name) {
    name->module = module;
    name->name = TakeIdentifier();
    if (rest_.substr(0, 2) == "::") return false;
    if (rest_.substr(0, 1) == ":") {
      rest_.remove_prefix(1);
      name->module = ly_ctx_get_module_implemented(context_, name->name.c_str());
      name->name = TakeIdentifier();
    } else if (module == nullptr) {
      return false;
    }
    SkipBlanks();
    return !name->name.empty() && rest_.substr(0, 1) != "(";
  }
  bool ParsePath(Path* path) {
    const lys_module* module = nullptr;
    SkipBlanks();
    if (rest_.substr(0, 1) != "/") return false;
    while (rest_.substr(0, 1) == "/") {
      Step& step = path->emplace_back();
      step.descend = Take("//");
      if (!step.descend) Take("/");
      if (!ParseName(module, &step.name)) return false;
      module = step.name.module;
      while (Take("[")) {
        do {
          if (!ParsePredicate(module, &step.predicates.emplace_back())) return false;
        } while (Take("and "));
        if (!Take("]")) return false;
      }
    }
    return true;
  }
  bool ParsePredicate(const lys_module* module, Predicate* predicate) {
    predicate->self = Take(".");
    if (!predicate->self && !ParseName(module, &predicate->child)) return false;
    if (!Take("=")) return !predicate->self;
    const char quote = rest_.empty() ? '\0' : rest_[0];
    size_t size = 0;
    if (quote == '"' || quote == '\'') {
      size = rest_.find(quote, 1);
      if (size == std::string_view::npos) return false;
      predicate->value = rest_.substr(1, size - 1);
      rest_.remove_prefix(size + 1);
    } else {
      while (size < rest_.size() && std::isdigit(static_cast<unsigned char>(rest_[size])) != 0) {
        ++size;
      }
      if (size == 0 || (size > 1 && quote == '0')) return false;
      predicate->is_number = true;
      predicate->value = rest_.substr(0, size);
      rest_.remove_prefix(size);
    }
    SkipBlanks();
    return rest_.substr(0, 1) == "]" || rest_.substr(0, 4) == "and ";
  }

  std::string_view rest_;
  const ly_ctx* context_;
};

// Turns paths into filter nodes, with the schema.
class Compiler {
 public:
  explicit Compiler(const ly_ctx* context) : context_(context) {}

  bool ok() const { return ok_; }

  // What step `index` and those behind it select of the children of `parent` (null: at the top).
  std::vector<FilterNode> Compile(const Path& path, size_t index, const lysc_node* parent) {
    const Step& step = path[index];
    std::vector<FilterNode> nodes;
    if (step.name.module == nullptr) return nodes;
    const lysc_node* schema =
        lys_find_child(parent, step.name.module, step.name.name.c_str(), 0, 0, 0);
    if (schema != nullptr && (schema->nodetype & kData) != 0) AddStep(path, index, schema, &nodes);
    if (step.descend) AddDescents(path, index, parent, &nodes);
    return nodes;
  }

 private:
  static constexpr uint16_t kData = LYS_CONTAINER | LYS_LIST | LYS_LEAF | LYS_LEAFLIST | LYS_NOTIF;

  static FilterNode NodeOf(const lysc_node* schema) {
    FilterNode node;
    node.name_space = schema->module->ns;
    node.name = schema->name;
    return node;
  }

  void AddStep(const Path& path, size_t index, const lysc_node* schema,
               std::vector<FilterNode>* nodes) {
    FilterNode node = NodeOf(schema);
    for (const Predicate& predicate : path[index].predicates) {
      if (!AddPredicate(predicate, schema, &node)) return;
    }
    if (index + 1 < path.size()) {
      std::vector<FilterNode> below = Compile(path, index + 1, schema);
      if (below.empty()) return;
      for (FilterNode& child : below) node.children.push_back(std::move(child));
    }
    nodes->push_back(std::move(node));
  }

  // False when the predicate is never true.
  bool AddPredicate(const Predicate& predicate, const lysc_node* schema, FilterNode* node) {
    if (predicate.self) {
      const bool leaf = (schema->nodetype & LYD_NODE_TERM) != 0;
      ok_ = ok_ && leaf && node->content.empty() && Comparable(predicate, schema);
      if (ok_) node->content = SubtreeFilter::Canonical(context_, schema, *predicate.value);
      return true;
    }
    if (predicate.child.module == nullptr) return false;
    const lysc_node* child =
        lys_find_child(schema, predicate.child.module, predicate.child.name.c_str(), 0, 0, 0);
    if (child == nullptr) return false;
    FilterNode test = NodeOf(child);
    test.only_tests = true;
    if (predicate.value.has_value()) {
      ok_ = ok_ && Comparable(predicate, child);
      if (ok_) test.content = SubtreeFilter::Canonical(context_, child, *predicate.value);
    }
    node->children.push_back(std::move(test));
    return true;
  }

  // Whether the comparison is one of texts.
  static bool Comparable(const Predicate& predicate, const lysc_node* schema) {
    if ((schema->nodetype & LYD_NODE_TERM) == 0 || predicate.value->empty()) return false;
    const LY_DATA_TYPE type = reinterpret_cast<const lysc_node_leaf*>(schema)->type->basetype;
    return !predicate.is_number || (type >= LY_TYPE_UINT8 && type <= LY_TYPE_UINT64) ||
           (type >= LY_TYPE_INT8 && type <= LY_TYPE_INT64) || type == LY_TYPE_UNION;
  }

  void AddDescents(const Path& path, size_t index, const lysc_node* parent,
                   std::vector<FilterNode>* nodes) {
    if (parent != nullptr) return AddDescentsOf(path, index, parent, nullptr, nodes);
    uint32_t module_index = 0;
    while (const lys_module* module = ly_ctx_get_module_iter(context_, &module_index)) {
      if (module->implemented) AddDescentsOf(path, index, nullptr, module->compiled, nodes);
    }
  }

  void AddDescentsOf(const Path& path, size_t index, const lysc_node* parent,
                     const lysc_module* module, std::vector<FilterNode>* nodes) {
    const lysc_node* schema = nullptr;
    while ((schema = lys_getnext(schema, parent, module, 0)) != nullptr) {
      if ((schema->nodetype & (LYS_CONTAINER | LYS_LIST | LYS_NOTIF)) == 0) continue;
      FilterNode node = NodeOf(schema);
      node.children = Compile(path, index, schema);
      if (!node.children.empty()) nodes->push_back(std::move(node));
    }
  }

  const ly_ctx* context_;
  bool ok_ = true;
};

}  // namespace

std::optional<SubtreeFilter> CompileXPath(const std::string& xpath, const ly_ctx* context) {
  std::vector<Path> paths;
  if (!Parser(xpath, context).ParseUnion(&paths)) return std::nullopt;
  Compiler compiler(context);
  std::vector<FilterNode> nodes;
  for (const Path& path : paths) {
    for (FilterNode& node : compiler.Compile(path, 0, nullptr)) nodes.push_back(std::move(node));
  }
  if (!compiler.ok()) return std::nullopt;
  return SubtreeFilter(std::move(nodes));
}

}  // namespace host
