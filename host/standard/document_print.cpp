// Printing of documents: see document.h.
#include "host/standard/document.h"
#include "host/standard/document_modules.h"
#include "host/xml/xml_text.h"

namespace host::standard {
namespace {

void AppendJsonText(std::string_view text, std::string* json) {
  static constexpr char kDigits[] = "0123456789abcdef";
  *json += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') *json += '\\';
    if (byte < 0x20) {
      *json += "\\u00";
      *json += kDigits[byte >> 4];
      *json += kDigits[byte & 15];
    } else {
      *json += c;
    }
  }
  *json += '"';
}

void AppendJsonValue(const Node& node, std::string* json) {
  switch (node.form) {
    case Node::Form::kNumber:
    case Node::Form::kNumberItem:
      *json += node.value;
      break;
    case Node::Form::kEmpty:
      *json += "[null]";
      break;
    case Node::Form::kIdentity:
      AppendJsonText(std::string(node.module_of_value) + ":" + node.value, json);
      break;
    default:
      AppendJsonText(node.value, json);
  }
}

bool IsListed(const Node& node) {
  return node.form == Node::Form::kEntry || node.form == Node::Form::kItem ||
         node.form == Node::Form::kNumberItem;
}

bool IsInner(const Node& node) {
  return node.form == Node::Form::kEntry || node.form == Node::Form::kContainer;
}

void AppendJson(const Node& parent, size_t indent, std::string* json) {
  const auto line = [json](size_t depth) { json->append("\n").append(depth, ' '); };
  const std::vector<Node>& children = parent.children;
  *json += '{';
  for (size_t i = 0; i < children.size(); ++i) {
    const Node& node = children[i];
    const bool goes_on = i > 0 && IsListed(node) && children[i - 1].name == node.name;
    if (i > 0) *json += ',';
    size_t depth = indent + 2;
    if (!goes_on) {
      line(depth);
      AppendJsonText(node.module == parent.module
                         ? std::string(node.name)
                         : std::string(node.module) + ":" + std::string(node.name),
                     json);
      *json += IsListed(node) ? ": [" : ": ";
    }
    if (IsListed(node)) line(depth += 2);
    if (IsInner(node)) {
      AppendJson(node, depth, json);
    } else {
      AppendJsonValue(node, json);
    }
    const bool last = i + 1 == children.size() || children[i + 1].name != node.name;
    if (IsListed(node) && last) {
      line(indent + 2);
      *json += ']';
    }
  }
  if (!children.empty()) line(indent);
  *json += '}';
}

void AppendXml(const Node& node, std::string_view around, size_t indent, std::string* xml) {
  const std::string name(node.name);
  xml->append(indent, ' ').append("<").append(name);
  if (node.module != around) {
    const Module* module = FindModule(node.module);
    xml->append(" xmlns=\"").append(module != nullptr ? module->space : "").append("\"");
  }
  const Module* of_value =
      node.form == Node::Form::kIdentity ? FindModule(node.module_of_value) : nullptr;
  if (of_value != nullptr) {
    xml->append(" xmlns:").append(of_value->prefix).append("=\"");
    xml->append(of_value->space).append("\"");
  }
  if (node.children.empty() && node.value.empty()) {
    xml->append("/>\n");
    return;
  }
  *xml += '>';
  if (!node.children.empty()) {
    *xml += '\n';
    for (const Node& child : node.children) AppendXml(child, node.module, indent + 2, xml);
    xml->append(indent, ' ');
  } else if (of_value != nullptr) {
    xml->append(of_value->prefix).append(":").append(node.value);
  } else {
    xml->append(XmlEscape(node.value));
  }
  xml->append("</").append(name).append(">\n");
}

}  // namespace

std::string Document::Print(Format format) const {
  std::string text;
  if (format == Format::kJson) {
    AppendJson(root, 0, &text);
    return text + "\n";
  }
  for (const Node& node : root.children) AppendXml(node, "", 0, &text);
  return text;
}

}  // namespace host::standard
