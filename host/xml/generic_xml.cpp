// XML read without a schema: see generic_xml.h.
#include "host/xml/generic_xml.h"

#include <cstring>

#include "host/xml/xml_text.h"

namespace host {

std::unique_ptr<GenericXml> GenericXml::Create() {
  ly_ctx* context = nullptr;
  if (ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY, &context) != LY_SUCCESS) return nullptr;
  return std::unique_ptr<GenericXml>(new GenericXml(context));
}

GenericXml::~GenericXml() { ly_ctx_destroy(context_); }

Tree GenericXml::Parse(const std::string& xml, std::string* error) const {
  lyd_node* tree = nullptr;
  if (lyd_parse_data_mem(context_, NameEmptyNamespaces(xml).c_str(), LYD_XML,
                         LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &tree) == LY_SUCCESS &&
      tree != nullptr) {
    return Tree(tree);
  }
  const char* reason = ly_errmsg(context_);
  *error = reason != nullptr ? reason : "no element";
  ly_err_clean(context_, nullptr);
  lyd_free_all(tree);
  return nullptr;
}

const lyd_node_opaq* AsOpaque(const lyd_node* node) {
  return reinterpret_cast<const lyd_node_opaq*>(node);
}

std::string_view XmlName(const lyd_node* node) { return AsOpaque(node)->name.name; }

std::string_view XmlNamespace(const lyd_node* node) {
  const char* name_space = AsOpaque(node)->name.module_ns;
  return name_space != nullptr && std::strcmp(name_space, kNoNamespace) != 0 ? name_space : "";
}

std::string_view XmlText(const lyd_node* node) {
  constexpr std::string_view kBlanks = " \t\r\n";
  std::string_view text = AsOpaque(node)->value;
  const size_t first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::optional<std::string_view> XmlAttribute(const lyd_node* node, std::string_view name) {
  for (const lyd_attr* attr = AsOpaque(node)->attr; attr != nullptr; attr = attr->next) {
    if (attr->name.module_ns == nullptr && name == attr->name.name) return attr->value;
  }
  return std::nullopt;
}

const lyd_node* FindNetconfChild(const lyd_node* parent, std::string_view name) {
  for (const lyd_node* child = lyd_child(parent); child != nullptr; child = child->next) {
    if (XmlName(child) == name && XmlNamespace(child) == kNetconfNamespace) return child;
  }
  return nullptr;
}

}  // namespace host
