// Diagnosis of configurations: see config_diagnosis.h.
#include "host/netconf/message/config_diagnosis.h"

#include <cstring>
#include <string>

#include "host/cdb/schema/schema.h"
#include "host/xml/generic_xml.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

constexpr char kYangNamespace[] = "urn:ietf:params:xml:ns:yang:1";
constexpr char kDefaultsNamespace[] = "urn:ietf:params:xml:ns:netconf:default:1.0";

std::string Quoted(std::string_view value) {
  const char quote = value.find('\'') == std::string_view::npos ? '\'' : '"';
  return quote + std::string(value) + quote;
}

class Diagnosis {
 public:
  Diagnosis(const ly_ctx* context, RpcErrors* errors) : context_(context), errors_(errors) {}

  void CheckChildren(const lyd_node* parent, const lysc_node* parent_schema,
                     const std::string& parent_path) {
    for (const lyd_node* node = lyd_child(parent); node != nullptr && errors_->size() <= kMaxErrors;
         node = node->next) {
      Check(node, parent_schema, parent_path);
    }
  }

 private:
  void Check(const lyd_node* node, const lysc_node* parent_schema, const std::string& parent_path) {
    const std::string name(XmlName(node)), name_space(XmlNamespace(node));
    const lys_module* module = ly_ctx_get_module_implemented_ns(context_, name_space.c_str());
    if (module == nullptr) return Add(UnknownNamespace(name, name_space), parent_path + "/" + name);
    const lysc_node* schema = lys_find_child(parent_schema, module, name.c_str(), 0, 0, 0);
    const bool qualified = parent_schema == nullptr || parent_schema->module != module;
    const std::string path =
        parent_path + "/" + (qualified ? std::string(module->name) + ":" : "") + name;
    if (schema == nullptr) return Add(UnknownElement(name), path);
    const std::string instance = path + KeysOf(node, schema);
    CheckAttributes(node, instance);
    if ((schema->nodetype & LYD_NODE_TERM) != 0) return CheckValue(node, schema, instance);
    if (!XmlText(node).empty()) Add(BadElement(name, name + " has a value of its own"), instance);
    CheckChildren(node, schema, instance);
  }

  static std::string KeysOf(const lyd_node* node, const lysc_node* schema) {
    std::string keys;
    if (schema->nodetype != LYS_LIST) return keys;
    for (const lysc_node* key = lysc_node_child(schema); key != nullptr && lysc_is_key(key);
         key = key->next) {
      for (const lyd_node* child = lyd_child(node); child != nullptr; child = child->next) {
        if (XmlName(child) != key->name) continue;
        keys += std::string("[") + key->name + "=" + Quoted(XmlText(child)) + "]";
        break;
      }
    }
    return keys;
  }

  void CheckValue(const lyd_node* node, const lysc_node* schema, const std::string& path) {
    const std::string name(XmlName(node)), value(XmlText(node));
    if (lyd_child(node) != nullptr) {
      return Add(BadElement(name, name + " has elements within, it takes a value"), path);
    }
    std::string why = WhyNotValue(schema, value);
    // libyang's check takes hexadecimal and octal numbers, which its parser refuses.
    const lysc_type* type = reinterpret_cast<const lysc_node_leaf*>(schema)->type;
    if (why.empty() && value.size() > 1 && value[0] == '0' && type->basetype != LY_TYPE_STRING) {
      why = "invalid value \"" + value + "\" of " + name + ": expected " + DescribeType(type) +
            ", numbers in decimal";
    }
    const bool goes = value.empty() && (operation_ == "delete" || operation_ == "remove");
    if (!why.empty() && !goes) {
      RpcError error = BadElement(name, why);
      error.tag = "invalid-value";
      Add(std::move(error), path);
    }
  }

  // Leaves the node's edit operation in operation_.
  void CheckAttributes(const lyd_node* node, const std::string& path) {
    static constexpr std::string_view kOperations[] = {"merge", "replace", "create", "delete",
                                                       "remove"};
    operation_.clear();
    const std::string element(XmlName(node));
    for (const lyd_attr* attr = AsOpaque(node)->attr; attr != nullptr; attr = attr->next) {
      const std::string_view name_space =
          attr->name.module_ns != nullptr ? attr->name.module_ns : "";
      if (name_space == kYangNamespace) continue;  // insert and what goes with it
      // RFC 6243 section 6: a value that was read as a default.
      if (name_space == kDefaultsNamespace && std::strcmp(attr->name.name, "default") == 0)
        continue;
      if (name_space != kNetconfNamespace || std::strcmp(attr->name.name, "operation") != 0) {
        Add(UnknownAttribute(attr->name.name, element), path);
        continue;
      }
      operation_ = attr->value;
      bool known = false;
      for (const std::string_view operation : kOperations) known |= operation == operation_;
      if (known) continue;
      Add(BadAttribute("operation", element,
                       "\"" + operation_ +
                           "\" is no edit operation; there are merge, replace, create, delete and "
                           "remove"),
          path);
    }
  }

  void Add(RpcError error, const std::string& path) {
    error.type = "application";
    error.path = path;
    errors_->push_back(std::move(error));
  }

  const ly_ctx* context_;
  RpcErrors* errors_;
  std::string operation_;
};

}  // namespace

void DiagnoseConfig(const lyd_node* config, const ly_ctx* context, RpcErrors* errors) {
  if (!XmlText(config).empty()) {
    errors->push_back(BadElement("config", kTextConfig));
  }
  Diagnosis(context, errors).CheckChildren(config, nullptr, "");
}

}  // namespace host
