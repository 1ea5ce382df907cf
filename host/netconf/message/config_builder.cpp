// Builds configurations from plain text: see config_builder.h.
#include "host/netconf/message/config_builder.h"

#include <array>
#include <string>

#include "host/runtime/watchdog.h"

namespace host {
namespace {

constexpr std::string_view kBlanks = " \t\r\n";

// Whether values of the type mean the same in every format, so that their text is all there is to
// them.
bool IsPlain(const lysc_type* type) {
  LY_ARRAY_COUNT_TYPE i;
  switch (type->basetype) {
    case LY_TYPE_INT8:
    case LY_TYPE_INT16:
    case LY_TYPE_INT32:
    case LY_TYPE_UINT8:
    case LY_TYPE_UINT16:
    case LY_TYPE_UINT32:
    case LY_TYPE_BOOL:
    case LY_TYPE_EMPTY:
    case LY_TYPE_ENUM:
    case LY_TYPE_STRING:
      return true;
    case LY_TYPE_LEAFREF:
      return IsPlain(reinterpret_cast<const lysc_type_leafref*>(type)->realtype);
    case LY_TYPE_UNION: {
      const auto* members = reinterpret_cast<const lysc_type_union*>(type);
      LY_ARRAY_FOR(members->types, i) {
        if (!IsPlain(members->types[i])) return false;
      }
      return true;
    }
    default:
      return false;
  }
}

// Whether an element's text is its value as it stands.
bool IsPlain(std::string_view value) {
  for (const char c : value) {
    if (c <= ' ' || c > '~' || c == '&' || c == '>') return false;
  }
  return true;
}

class ConfigBuilder {
 public:
  ConfigBuilder(const ly_ctx* context, std::string_view text) : context_(context), rest_(text) {}

  // Null when something is not plain.
  Tree Build(std::string_view name_space) {
    Tag tag;
    if (!TakeTag(&tag) || !tag.starts) return nullptr;
    const bool built = BuildElement(tag, nullptr, FindModule(tag, {name_space, nullptr}));
    if (built && rest_.find_first_not_of(kBlanks) == std::string_view::npos) return std::move(top_);
    return nullptr;
  }

 private:
  struct Tag {
    std::string_view name;
    std::string_view name_space;  // that it declares, or empty
    std::string_view operation;   // of NETCONF's edits, or empty
    bool starts = false, ends = false;
  };
  // A default namespace, and its module when that is known.
  struct Scope {
    std::string_view name_space;
    const lys_module* module;
  };
  static constexpr size_t kMostKeys = 3;

  // Takes blanks and the tag behind them off the text.
  bool TakeTag(Tag* tag) {
    const size_t start = rest_.find_first_not_of(kBlanks);
    if (start == std::string_view::npos || rest_[start] != '<') return false;
    return TakeTagAt(start, tag);
  }

  bool TakeTagAt(size_t start, Tag* tag) {
    const size_t end = rest_.find('>', start);
    if (end == std::string_view::npos) return false;
    std::string_view text = rest_.substr(start + 1, end - start - 1);
    rest_.remove_prefix(end + 1);
    tag->starts = tag->ends = true;
    if (!text.empty() && text.front() == '/') {
      tag->starts = false;
      text.remove_prefix(1);
    } else if (!text.empty() && text.back() == '/') {
      text.remove_suffix(1);
    } else {
      tag->ends = false;
    }
    const size_t blank = text.find(' ');
    tag->name = text.substr(0, blank);
    tag->name_space = tag->operation = {};
    if (blank != std::string_view::npos &&
        (!tag->starts || !ReadAttributes(text.substr(blank), tag))) {
      return false;
    }
    return !tag->name.empty() &&
           tag->name.find_first_of("!?:/\"'=\t\r\n<") == std::string_view::npos;
  }

  // Reads a declaration of the default namespace and an edit operation, each behind one blank.
  static bool ReadAttributes(std::string_view text, Tag* tag) {
    constexpr std::string_view kOperation = ":operation";
    while (!text.empty()) {
      const size_t equals = text.find("=\"");
      if (equals == std::string_view::npos) return false;
      const size_t end = text.find('"', equals + 2);
      if (end == std::string_view::npos || text.front() != ' ') return false;
      const std::string_view name = text.substr(1, equals - 1);
      const std::string_view value = text.substr(equals + 2, end - equals - 2);
      const bool declares = name == "xmlns";
      const bool operates = name.size() > kOperation.size() &&
                            name.substr(name.size() - kOperation.size()) == kOperation;
      if (name.find_first_of(kBlanks) != std::string_view::npos || value.empty() ||
          name.substr(0, 6) == "xmlns:" || !(declares || operates)) {
        return false;
      }
      std::string_view& kept = declares ? tag->name_space : tag->operation;
      if (!kept.empty()) return false;
      kept = value;
      text.remove_prefix(end + 1);
    }
    return true;
  }

  // Takes the value of the element that has been opened, and its end.
  bool TakeValue(const Tag& tag, std::string* value) {
    value->clear();
    if (tag.ends) return true;
    const size_t end = rest_.find('<');
    if (end == std::string_view::npos || !IsPlain(rest_.substr(0, end))) return false;
    value->assign(rest_.substr(0, end));
    Tag closing;
    return TakeTagAt(end, &closing) && !closing.starts && closing.name == tag.name;
  }

  Scope FindModule(const Tag& tag, const Scope& around) const {
    if (tag.name_space.empty() && around.module != nullptr) return around;
    const std::string_view name_space = tag.name_space.empty() ? around.name_space : tag.name_space;
    return {name_space,
            ly_ctx_get_module_implemented_ns(context_, std::string(name_space).c_str())};
  }

  // Builds the element whose start was taken, and takes all of it.
  bool BuildElement(const Tag& tag, lyd_node* parent, const Scope& scope) {
    if (scope.module == nullptr) return false;
    const lysc_node* schema = lys_find_child(parent != nullptr ? parent->schema : nullptr,
                                             scope.module, tag.name.data(), tag.name.size(), 0, 0);
    if (schema == nullptr || lysc_is_key(schema) || (schema->flags & LYS_CONFIG_R) != 0)
      return false;
    lyd_node* node = nullptr;
    switch (schema->nodetype) {
      case LYS_LEAF:
      case LYS_LEAFLIST:
        return parent != nullptr &&
               IsPlain(reinterpret_cast<const lysc_node_leaf*>(schema)->type) &&
               TakeValue(tag, &values_[0]) &&
               lyd_new_term(parent, schema->module, schema->name, values_[0].c_str(), 0, &node) ==
                   LY_SUCCESS &&
               SetOperation(tag, node);
      case LYS_CONTAINER:
        if (lyd_new_inner(parent, schema->module, schema->name, 0, &node) != LY_SUCCESS)
          return false;
        if (parent == nullptr) top_.reset(node);
        return SetOperation(tag, node) && (tag.ends || BuildContent(tag, node, scope));
      case LYS_LIST:
        FeedWatchdog();
        return parent != nullptr && !tag.ends && BuildEntry(tag, schema, parent, scope);
      default:
        return false;
    }
  }

  // An entry has its keys first, in their order.
  bool BuildEntry(const Tag& tag, const lysc_node* schema, lyd_node* parent, const Scope& scope) {
    size_t count = 0;
    for (const lysc_node* key = lysc_node_child(schema); key != nullptr && lysc_is_key(key);
         key = key->next) {
      Tag taken;
      if (count == kMostKeys || !IsPlain(reinterpret_cast<const lysc_node_leaf*>(key)->type) ||
          !TakeTag(&taken) || !taken.starts || taken.name != key->name ||
          !taken.name_space.empty() || !taken.operation.empty() ||
          !TakeValue(taken, &values_[count])) {
        return false;
      }
      ++count;
    }
    lyd_node* entry = nullptr;
    return count != 0 && scope.module == schema->module &&
           lyd_new_list(parent, schema->module, schema->name, 0, &entry, values_[0].c_str(),
                        values_[1].c_str(), values_[2].c_str()) == LY_SUCCESS &&
           SetOperation(tag, entry) && BuildContent(tag, entry, scope);
  }

  bool SetOperation(const Tag& tag, lyd_node* node) const {
    return tag.operation.empty() ||
           lyd_new_meta(context_, node, nullptr, "ietf-netconf:operation",
                        std::string(tag.operation).c_str(), 0, nullptr) == LY_SUCCESS;
  }

  // Builds what is within `node` up to the end tag.
  bool BuildContent(const Tag& tag, lyd_node* node, const Scope& scope) {
    Tag next;
    while (TakeTag(&next)) {
      if (!next.starts) return next.name == tag.name;
      if (!BuildElement(next, node, FindModule(next, scope))) return false;
    }
    return false;
  }

  const ly_ctx* context_;
  std::string_view rest_;
  Tree top_;
  std::array<std::string, kMostKeys> values_;  // members to save allocations
};

}  // namespace

Tree BuildConfig(const ly_ctx* context, std::string_view text, std::string_view name_space) {
  Tree tree = ConfigBuilder(context, text).Build(name_space);
  if (tree == nullptr) ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
  return tree;
}

}  // namespace host
