// Builds stored units from their text.
#include "host/cdb/storage/unit_builder.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

constexpr uint32_t Bit(LY_DATA_TYPE type) { return uint32_t{1} << type; }

// Types by how JSON has their values. 64 bits, which are strings there, are left to the parser.
constexpr uint32_t kNumbers = Bit(LY_TYPE_INT8) | Bit(LY_TYPE_INT16) | Bit(LY_TYPE_INT32) |
                              Bit(LY_TYPE_UINT8) | Bit(LY_TYPE_UINT16) | Bit(LY_TYPE_UINT32);
constexpr uint32_t kStrings = Bit(LY_TYPE_STRING) | Bit(LY_TYPE_ENUM);
constexpr uint32_t kTruths = Bit(LY_TYPE_BOOL);
constexpr uint32_t kNothing = Bit(LY_TYPE_EMPTY);

bool IsPlain(char c) { return c >= ' ' && c <= '~' && c != '\\'; }

}  // namespace

bool UnitBuilder::Add(lyd_node* parent, const lysc_node* schema, std::string_view text) {
  // Found here, before anything is built that would have to go.
  if (!std::all_of(text.begin(), text.end(), IsPlain)) return false;
  std::unique_ptr<Kind>& list = lists_[schema];
  if (list == nullptr) list = MakeKind(schema);
  rest_ = text;
  lyd_node* entry = nullptr;
  if (BuildEntry(*list, parent, &entry) && rest_.empty()) return true;
  // Some of what was built may be what later values would have been copied from.
  if (entry != nullptr) lists_.clear();
  lyd_free_tree(entry);
  ly_err_clean(schema->module->ctx, nullptr);
  return false;
}

std::unique_ptr<UnitBuilder::Kind> UnitBuilder::MakeKind(const lysc_node* schema) {
  auto kind = std::make_unique<Kind>();
  kind->schema = schema;
  kind->name = schema->name;
  const lysc_node* child = nullptr;
  while ((child = lys_getnext(child, schema, nullptr, 0)) != nullptr) {
    // Names of another module's have a prefix, and so are not found.
    if ((child->flags & LYS_CONFIG_R) == 0 && child->module == schema->module)
      kind->children.push_back(MakeKind(child));
  }
  return kind;
}

// Keys are the first members, in their order.
bool UnitBuilder::BuildEntry(const Kind& list, lyd_node* parent, lyd_node** entry) {
  std::array<Value, kMostKeys> keys;
  size_t count = 0;
  for (; count < list.children.size() && lysc_is_key(list.children[count]->schema); ++count) {
    std::string_view name;
    if (count == kMostKeys || !Take(count == 0 ? "{" : ",") || !TakeString(&name) ||
        name != list.children[count]->name || !Take(":") || !TakeValue(&keys[count])) {
      return false;
    }
    values_[count].assign(keys[count].text);
  }
  if (count == 0 ||
      lyd_new_list(parent, list.schema->module, list.schema->name, 0, entry, values_[0].c_str(),
                   values_[1].c_str(), values_[2].c_str()) != LY_SUCCESS) {
    return false;
  }
  const lyd_node* key = lyd_child(*entry);
  for (size_t i = 0; i < count; ++i, key = key->next) {
    if (!IsValue(key, keys[i])) return false;
  }
  return Take("}") || (Take(",") && BuildMembers(list, *entry, count));
}

// Builds members up to the end of the object that they are in, from the child `next` on.
bool UnitBuilder::BuildMembers(const Kind& of, lyd_node* parent, size_t next) {
  do {
    std::string_view name;
    if (!TakeString(&name) || !Take(":")) return false;
    while (next < of.children.size() && of.children[next]->name != name) ++next;
    if (next == of.children.size()) return false;
    Kind* const child = of.children[next++].get();
    bool built = false;
    if (child->schema->nodetype == LYS_LEAF) built = BuildLeaf(child, parent);
    if (child->schema->nodetype == LYS_LEAFLIST) built = BuildLeafList(child, parent);
    if (IsPlainContainer(child->schema)) built = BuildContainer(child, parent);
    if (!built) return false;
  } while (Take(","));
  return Take("}");
}

bool UnitBuilder::BuildContainer(Kind* container, lyd_node* parent) {
  lyd_node* node = nullptr;
  if (container->built != nullptr) {
    auto* const inner = reinterpret_cast<lyd_node_inner*>(parent);
    if (lyd_dup_single(container->built, inner, LYD_DUP_NO_META, &node) != LY_SUCCESS) return false;
  } else if (lyd_new_inner(parent, container->schema->module, container->schema->name, 0, &node) !=
             LY_SUCCESS) {
    return false;
  }
  container->built = node;
  return Take("{") && BuildMembers(*container, node, 0);
}

bool UnitBuilder::BuildLeaf(Kind* leaf, lyd_node* parent) {
  constexpr size_t kMostValues = 1024;
  Value value;
  if (!TakeValue(&value)) return false;
  const auto known = leaf->values.find(value.text);
  if (known != leaf->values.end()) {
    auto* const inner = reinterpret_cast<lyd_node_inner*>(parent);
    return (known->second.types & value.types) != 0 &&
           lyd_dup_single(known->second.node, inner, LYD_DUP_NO_META, nullptr) == LY_SUCCESS;
  }
  values_[0].assign(value.text);
  lyd_node* node = nullptr;
  if (lyd_new_term(parent, leaf->schema->module, leaf->schema->name, values_[0].c_str(), 0,
                   &node) != LY_SUCCESS ||
      !IsValue(node, value)) {
    return false;
  }
  // The text is libyang's, and stays as long as there is a node with it.
  if (leaf->values.size() < kMostValues)
    leaf->values.emplace(TextOf(node), Built{node, value.types});
  return true;
}

bool UnitBuilder::BuildLeafList(Kind* list, lyd_node* parent) {
  if (!Take("[")) return false;
  do {
    if (!BuildLeaf(list, parent)) return false;
  } while (Take(","));
  return Take("]");
}

// Whether libyang has understood the value's text as its form in JSON wants it: of a union's
// members it tries them all, the parser only those that have values of the form. What neither
// refuses is the same for both.
bool UnitBuilder::IsValue(const lyd_node* leaf, const Value& value) {
  const lyd_value* stored = &reinterpret_cast<const lyd_node_term*>(leaf)->value;
  while (stored->realtype->basetype == LY_TYPE_UNION) stored = &stored->subvalue->value;
  return (value.types & Bit(stored->realtype->basetype)) != 0 && TextOf(leaf) == value.text;
}

bool UnitBuilder::Take(std::string_view expected) {
  if (rest_.substr(0, expected.size()) != expected) return false;
  rest_.remove_prefix(expected.size());
  return true;
}

bool UnitBuilder::TakeString(std::string_view* text) {
  if (rest_.empty() || rest_.front() != '"') return false;
  size_t end = 1;
  while (end < rest_.size() && rest_[end] != '"') {
    ++end;
  }
  if (end == rest_.size()) return false;
  *text = rest_.substr(1, end - 1);
  rest_.remove_prefix(end + 1);
  return true;
}

bool UnitBuilder::TakeValue(Value* value) {
  static constexpr std::pair<std::string_view, Value> kWords[] = {
      {"[null]", {kNothing, ""}}, {"true", {kTruths, "true"}}, {"false", {kTruths, "false"}}};
  value->types = kStrings;
  if (TakeString(&value->text)) return true;
  for (const auto& [word, meaning] : kWords) {
    *value = meaning;
    if (Take(word)) return true;
  }
  // A number that is not written as one has another canonical text.
  *value = {kNumbers, rest_.substr(0, rest_.find_first_not_of("-0123456789"))};
  rest_.remove_prefix(value->text.size());
  return !value->text.empty();
}

}  // namespace host
