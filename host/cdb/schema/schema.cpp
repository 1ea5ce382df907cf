// Loading of the YANG modules and translation of libyang's errors.
#include "host/cdb/schema/schema.h"

#include <cstring>
#include <utility>

#include "host/cdb/schema/yang_texts.h"

namespace host {
namespace {

constexpr size_t kMostFeatures = 12;

struct Module {
  const char* name;
  const char* features[kMostFeatures];  // ended by null
};

// ietf-netconf has the protocol's operations and the annotation of edits; the features are those
// that the NETCONF server offers.
constexpr Module kModules[] = {
    {"ietf-netconf",
     {"writable-running", "candidate", "confirmed-commit", "rollback-on-error", "validate", "xpath",
      nullptr}},
    {"ietf-netconf-monitoring", {nullptr}},
    {"ietf-netconf-notifications", {nullptr}},
    {"ietf-netconf-with-defaults", {nullptr}},
    {"notifications", {nullptr}},
    {"nc-notifications", {nullptr}},
    {kAclModule, {nullptr}},
    {"acl-app-commits", {nullptr}},
    {"acl-app-filters", {nullptr}},
    {"acl-app-findings", {nullptr}},
    {"acl-app-history", {nullptr}},
    {"acl-app-netconf", {nullptr}},
    {"acl-app-notifications", {nullptr}},
    {"acl-app-status", {nullptr}},
    // The lists that the standard has; first what they are here, for a reference to interfaces that
    // is compiled once makes configuration of these. The types of lists need features, those with
    // ports over either version of IP also that of IPv6.
    {"acl-app-standard-view", {nullptr}},
    {"ietf-access-control-list",
     {"match-on-eth", "match-on-ipv4", "match-on-ipv6", "match-on-tcp", "match-on-udp", "eth",
      "ipv4", "mixed-eth-ipv4", "mixed-eth-ipv4-ipv6", "interface-stats", "interface-attachment",
      nullptr}},
    {"acl-app-standard", {nullptr}},
};

DatastoreError Failure(std::string message) {
  DatastoreError error;
  error.tag = "operation-failed";
  error.message = std::move(message);
  return error;
}

// The text between the quotes after `label` in libyang's "Schema location "...", data location
// ...".
std::string Location(const std::string& text, const std::string& label) {
  const std::string start = label + " location \"";
  size_t from = text.find(start);
  if (from == std::string::npos) return "";
  from += start.size();
  return text.substr(from, text.find('"', from) - from);
}

// The line number stands last: names that operators chose may stand before it.
std::string LineNumber(const std::string& text) {
  const std::string label = "ine number ";  // it also begins a text
  const size_t at = text.rfind(label);
  if (at == std::string::npos) return "";
  const size_t from = at + label.size();
  return text.substr(from, text.find_first_not_of("0123456789", from) - from);
}

struct TagRule {
  const char* in_message;  // or null
  const char* app_tag;     // or null
  const char* tag;
};

// How libyang's errors map to RFC 6241's tags (RFC 7950, sections 8.3 and 15). First match wins.
constexpr TagRule kTagRules[] = {
    {nullptr, "instance-required", "data-missing"},
    {nullptr, "missing-choice", "data-missing"},
    {nullptr, "data-not-unique", "operation-failed"},
    {nullptr, "must-violation", "operation-failed"},
    {nullptr, "too-many-elements", "operation-failed"},
    {nullptr, "too-few-elements", "operation-failed"},
    {"Mandatory node", nullptr, "data-missing"},
    {"Mandatory choice", nullptr, "data-missing"},
    {"When condition", nullptr, "unknown-element"},
    {"not found as a child", nullptr, "unknown-element"},
    {"No module", nullptr, "unknown-namespace"},
    {"Data for both cases", nullptr, "bad-element"},
    {"Duplicate instance", nullptr, "bad-element"},
    {"missing its key", nullptr, "missing-element"},
};

const char* TagOf(const ly_err_item& item) {
  for (const TagRule& rule : kTagRules) {
    if (rule.app_tag != nullptr && item.apptag != nullptr && strcmp(rule.app_tag, item.apptag) == 0)
      return rule.tag;
    if (rule.in_message != nullptr && strstr(item.msg, rule.in_message) != nullptr) return rule.tag;
  }
  switch (item.vecode) {
    case LYVE_SYNTAX:
    case LYVE_SYNTAX_XML:
    case LYVE_SYNTAX_JSON:
      return "malformed-message";
    case LYVE_DATA:
      return "invalid-value";
    default:
      return "operation-failed";
  }
}

// The first instance of `schema`'s parent below `node` that has no child of `schema`.
const lyd_node* FindLacking(const lyd_node* node, const lysc_node* schema) {
  const lysc_node* parent = lysc_data_parent(schema);
  for (; node != nullptr; node = node->next) {
    if (node->schema == nullptr || (node->schema->nodetype & LYD_NODE_INNER) == 0) continue;
    if (node->schema == parent && FindBySchema(lyd_child(node), schema) == nullptr) return node;
    if (const lyd_node* found = FindLacking(lyd_child(node), schema)) return found;
  }
  return nullptr;
}

std::string InstancePath(const ly_ctx* context, const lyd_node* tree, const ly_err_item& item) {
  const std::string where = item.path != nullptr ? item.path : "";
  std::string path = Location(where, "Data");
  if (path.empty()) path = Location(where, "data");
  if (!path.empty()) return path;
  path = Location(where, "Schema");
  if (path.empty() || tree == nullptr) return path;
  const lysc_node* schema = lys_find_path(context, nullptr, path.c_str(), 0);
  const lyd_node* lacking = schema != nullptr ? FindLacking(tree, schema) : nullptr;
  return lacking != nullptr ? PathOf(lacking) + "/" + schema->name : path;
}

std::string DescribeRange(const lysc_range* range, bool is_signed) {
  std::string text;
  LY_ARRAY_COUNT_TYPE i;
  LY_ARRAY_FOR(range->parts, i) {
    const auto& part = range->parts[i];
    const std::string low = is_signed ? std::to_string(part.min_64) : std::to_string(part.min_u64);
    const std::string high = is_signed ? std::to_string(part.max_64) : std::to_string(part.max_u64);
    if (!text.empty()) text += ", ";
    text += low == high ? low : low + ".." + high;
  }
  return text;
}

std::string DescribeNumber(const lysc_type* type) {
  const auto* number = reinterpret_cast<const lysc_type_num*>(type);
  const bool is_signed = type->basetype >= LY_TYPE_INT8 && type->basetype <= LY_TYPE_INT64;
  if (number->range != nullptr) return DescribeRange(number->range, is_signed);
  switch (type->basetype) {
    case LY_TYPE_UINT8:
      return "0..255";
    case LY_TYPE_UINT16:
      return "0..65535";
    default:
      return "a number";
  }
}

std::string DescribeString(const lysc_type* type) {
  const auto* text = reinterpret_cast<const lysc_type_str*>(type);
  LY_ARRAY_COUNT_TYPE i;
  LY_ARRAY_FOR(text->patterns, i) {
    if (text->patterns[i]->emsg != nullptr) return text->patterns[i]->emsg;
  }
  return "a text";
}

}  // namespace

ContextPtr LoadSchema(const std::string& directory, DatastoreErrors* errors) {
  ly_log_options(LY_LOSTORE);
  ly_ctx* raw = nullptr;
  const std::string search = directory + ":" + directory + "/ietf:" + directory + "/standard";
  if (ly_ctx_new(search.c_str(), LY_CTX_DISABLE_SEARCHDIR_CWD | LY_CTX_SET_PRIV_PARSED, &raw) !=
      LY_SUCCESS) {
    errors->push_back(Failure("cannot read YANG modules in the directory " + directory +
                              ", its ietf and its standard"));
    return nullptr;
  }
  ContextPtr context(raw);
  for (const Module& module : kModules) {
    const char* features[kMostFeatures];
    memcpy(features, module.features, sizeof(features));
    if (ly_ctx_load_module(raw, module.name, nullptr, features) == nullptr) {
      errors->push_back(Failure("cannot load the YANG module " + std::string(module.name) +
                                " from " + directory));
      TakeErrors(raw, nullptr, errors);
      return nullptr;
    }
  }
  ly_err_clean(raw, nullptr);
  const std::string why = WhyOtherModules(raw);
  if (!why.empty()) {
    errors->push_back(Failure(why));
    return nullptr;
  }
  return context;
}

namespace {

// What stands in `text` between its start and the last `end`; false if it does not begin and go on
// so.
bool Between(const std::string& start, const std::string& text, const std::string& end,
             std::string* part) {
  const size_t to = text.rfind(end);
  if (text.compare(0, start.size(), start) != 0 || to == std::string::npos || to < start.size())
    return false;
  *part = text.substr(start.size(), to - start.size());
  return true;
}

// What an operator can do with it, in place of libyang's own texts for constraints that are not
// met. (No regular expressions: their matcher recurses once a character, and takes long to
// compile.)
std::string InWords(const ly_err_item& item, const std::string& path) {
  std::string text = item.msg != nullptr ? item.msg : "";
  std::string part;
  if (Between("When condition \"", text, "\" not satisfied", &part))
    return path.substr(path.rfind('/') + 1) + " is only allowed where " + part;
  if (Between("Mandatory node \"", text, "\" instance does not exist", &part))
    return part + " is missing, it must be given";
  const std::string in = "\" not satisfied in \"";
  if (Between("Unique data leaf(s) \"", text, "\" and ", &part) &&
      part.find(in) != std::string::npos)
    return "the " + part.substr(0, part.find(in)) + " is taken already, by " +
           part.substr(part.find(in) + in.size());
  return text;
}

}  // namespace

void TakeErrors(const ly_ctx* context, const lyd_node* tree, DatastoreErrors* errors) {
  for (const ly_err_item* item = ly_err_first(context);
       item != nullptr && errors->size() <= kMaxErrors; item = item->next) {
    if (item->level != LY_LLERR) continue;
    DatastoreError error;
    error.tag = TagOf(*item);
    if (item->apptag != nullptr) error.app_tag = item->apptag;
    error.path = InstancePath(context, tree, *item);
    error.message = InWords(*item, error.path);
    const std::string line = LineNumber(item->path != nullptr ? item->path : "");
    if (!line.empty()) error.message += " (line " + line + ")";
    const bool repeated = !errors->empty() && errors->back().message == error.message &&
                          errors->back().path == error.path;
    if (!repeated) errors->push_back(std::move(error));
  }
  ly_err_clean(const_cast<ly_ctx*>(context), nullptr);
}

std::string DescribeType(const lysc_type* type) {
  std::string text;
  LY_ARRAY_COUNT_TYPE i;
  switch (type->basetype) {
    case LY_TYPE_UNION: {
      const auto* any = reinterpret_cast<const lysc_type_union*>(type);
      LY_ARRAY_FOR(any->types, i) {
        if (!text.empty()) text += any->types[i]->basetype == LY_TYPE_STRING ? "; " : " or ";
        text += DescribeType(any->types[i]);
      }
      return text;
    }
    case LY_TYPE_ENUM: {
      const auto* enumeration = reinterpret_cast<const lysc_type_enum*>(type);
      LY_ARRAY_FOR(enumeration->enums, i) {
        if (!text.empty()) text += ", ";
        text += enumeration->enums[i].name;
      }
      return text;
    }
    case LY_TYPE_STRING:
      return DescribeString(type);
    case LY_TYPE_EMPTY:
      return "no value";
    case LY_TYPE_LEAFREF:
      return DescribeType(reinterpret_cast<const lysc_type_leafref*>(type)->realtype);
    default:
      return DescribeNumber(type);
  }
}

std::string WhyNotValue(const lysc_node* schema, const std::string& value, std::string* canonical) {
  const ly_ctx* context = schema->module->ctx;
  const char* text = nullptr;  // in the context's dictionary
  const LY_ERR result = lyd_value_validate(context, schema, value.c_str(), value.size(), nullptr,
                                           nullptr, canonical != nullptr ? &text : nullptr);
  if (text != nullptr) {
    *canonical = text;
    lydict_remove(context, text);
  }
  DatastoreErrors reasons;
  TakeErrors(context, nullptr, &reasons);
  if (result == LY_SUCCESS || result == LY_EINCOMPLETE) return "";
  const lysc_type* type = reinterpret_cast<const lysc_node_leaf*>(schema)->type;
  std::string why = reasons.empty() ? "" : reasons.front().message;
  const bool has_own_text = type->basetype == LY_TYPE_STRING || type->basetype == LY_TYPE_LEAFREF;
  if (!has_own_text || why.empty()) why = "expected " + DescribeType(type);
  return "invalid value \"" + value + "\" of " + schema->name + ": " + why;
}

}  // namespace host
