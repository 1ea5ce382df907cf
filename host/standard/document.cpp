// Reading and printing of documents: see document.h.
#include "host/standard/document.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <nlohmann/json.hpp>
#include <utility>

#include "host/xml/generic_xml.h"
#include "host/xml/xml_text.h"

namespace host::standard {

const Module kAccessControlList = {"ietf-access-control-list",
                                   "urn:ietf:params:xml:ns:yang:ietf-access-control-list", "acl"};
const Module kAclEnhancements = {"ietf-acl-enh", "urn:ietf:params:xml:ns:yang:ietf-acl-enh",
                                 "acl-enh"};
const Module kOpenConfigAcl = {"openconfig-acl", "http://openconfig.net/yang/acl", "oc-acl"};
const Module kOpenConfigMatch = {"openconfig-packet-match",
                                 "http://openconfig.net/yang/header-fields", "oc-pkt-match"};
const Module kOpenConfigMatchTypes = {"openconfig-packet-match-types",
                                      "http://openconfig.net/yang/packet-match-types",
                                      "oc-pkt-match-types"};
const Module kOpenConfigSets = {"openconfig-defined-sets",
                                "http://openconfig.net/yang/defined-sets", "oc-sets"};
const Module kOpenConfigInterfaces = {"openconfig-interfaces",
                                      "http://openconfig.net/yang/interfaces", "oc-if"};
const Module kOwnStandard = {"acl-app-standard", "urn:acl-app:standard", "acl-x"};
const Module kOwn = {"acl-app", "urn:acl-app:acl", "acl-app"};

namespace {

// Whether `name`, the value of `node` behind a prefix, may be that of an identity. Texts of people
// have colons, too.
bool MayBeIdentity(const Node& node, std::string_view name) {
  if (node.name == "description" || node.name == "name" || name.empty()) return false;
  return std::all_of(name.begin(), name.end(), [](unsigned char c) {
    return std::isalnum(c) != 0 || c == '_' || c == '-' || c == '.';
  });
}

constexpr const Module* kModules[] = {
    &kAccessControlList,    &kAclEnhancements,      &kOpenConfigAcl,
    &kOpenConfigMatch,      &kOpenConfigMatchTypes, &kOpenConfigSets,
    &kOpenConfigInterfaces, &kOwnStandard,          &kOwn};

const Module* FindModule(std::string_view name) {
  for (const Module* module : kModules) {
    if (name == module->name) return module;
  }
  return nullptr;
}

const Module* FindSpace(std::string_view space) {
  for (const Module* module : kModules) {
    if (space == module->space) return module;
  }
  return nullptr;
}

const std::string kNothing;

// Builds nodes while nlohmann's parser goes through the text (its SAX interface).
class JsonReader : public nlohmann::json_sax<nlohmann::json> {
 public:
  explicit JsonReader(Document* document) : document_(document) {}

  const std::string& error() const { return error_; }

  bool null() override {
    Place& place = places_.back();
    if (!place.in_array) return Fail("null has no meaning in YANG data");
    AddLeaf(Node::Form::kEmpty, "");
    return true;
  }
  bool boolean(bool value) override { return AddScalar(true, value ? "true" : "false"); }
  bool number_integer(number_integer_t value) override {
    return AddScalar(true, std::to_string(value));
  }
  bool number_unsigned(number_unsigned_t value) override {
    return AddScalar(true, std::to_string(value));
  }
  bool number_float(number_float_t /*value*/, const string_t& text) override {
    return AddScalar(true, text);
  }
  bool string(string_t& value) override { return AddScalar(false, value); }
  bool binary(binary_t& /*value*/) override { return Fail("binary data"); }
  bool start_object(size_t /*elements*/) override {
    if (places_.empty()) {
      places_.push_back({&document_->root});
      return true;
    }
    Place& place = places_.back();
    if (place.name.empty()) return Fail("an object without a name");
    if (places_.size() > kDeepest) return Fail("it is too deep");
    Node& node = AddNode(place.in_array ? Node::Form::kEntry : Node::Form::kContainer);
    places_.push_back({&node});
    return true;
  }
  bool key(string_t& text) override {
    Place& place = places_.back();
    const size_t colon = text.find(':');
    place.module = colon == std::string::npos
                       ? place.node->module
                       : document_->Keep(std::string_view(text).substr(0, colon));
    place.name =
        document_->Keep(std::string_view(text).substr(colon == std::string::npos ? 0 : colon + 1));
    return true;
  }
  bool end_object() override {
    places_.pop_back();
    return true;
  }
  bool start_array(size_t /*elements*/) override {
    if (places_.empty() || places_.back().in_array) return Fail("an array where none may be");
    places_.back().in_array = true;
    return true;
  }
  bool end_array() override {
    places_.back().in_array = false;
    return true;
  }
  bool parse_error(size_t /*position*/, const std::string& /*token*/,
                   const nlohmann::detail::exception& what) override {
    error_ = what.what();
    return false;
  }

 private:
  static constexpr size_t kDeepest = 64;
  struct Place {
    Node* node;  // the last one of its parent, so it stays where it is while it is worked on
    std::string_view name = {}, module = {};
    bool in_array = false;
  };

  bool Fail(const char* why) {
    error_ = why;
    return false;
  }
  Node& AddNode(Node::Form form) {
    Place& place = places_.back();
    Node& node = place.node->children.emplace_back();
    node.name = place.name;
    node.module = place.module;
    node.form = form;
    return node;
  }
  void AddLeaf(Node::Form form, std::string value) { AddNode(form).value = std::move(value); }
  bool AddScalar(bool number, std::string value) {
    if (places_.empty() || places_.back().name.empty()) return Fail("a value without a name");
    Node& node = AddNode(places_.back().in_array ? Node::Form::kItem : Node::Form::kText);
    if (number)
      node.form = node.form == Node::Form::kItem ? Node::Form::kNumberItem : Node::Form::kNumber;
    const size_t colon = value.find(':');
    const Module* module =
        colon == std::string::npos ? nullptr : FindModule(value.substr(0, colon));
    if (module != nullptr && MayBeIdentity(node, value.substr(colon + 1))) {
      node.module_of_value = module->name;
      value.erase(0, colon + 1);
    }
    node.value = std::move(value);
    return true;
  }

  Document* document_;
  std::vector<Place> places_;
  std::string error_;
};

// The namespaces that prefixes of an XML document stand for. One that stands for several in one
// document stands for none here; libyang does not tell which it is where a value has it.
using Prefixes = std::map<std::string, std::string>;

Prefixes PrefixesIn(const std::string& xml) {
  Prefixes prefixes;
  constexpr std::string_view kStart = "xmlns:";
  for (size_t at = 0; (at = xml.find(kStart, at)) != std::string::npos;) {
    at += kStart.size();
    const size_t equals = xml.find('=', at);
    if (equals == std::string::npos || equals + 2 >= xml.size()) break;
    const size_t end = xml.find(xml[equals + 1], equals + 2);
    if (end == std::string::npos) break;
    const std::string space = xml.substr(equals + 2, end - equals - 2);
    const auto [it, is_new] = prefixes.emplace(xml.substr(at, equals - at), space);
    if (!is_new && it->second != space) it->second = "?";
    at = end;
  }
  return prefixes;
}

class XmlReader {
 public:
  XmlReader(Prefixes prefixes, Document* document)
      : prefixes_(std::move(prefixes)), document_(document) {}

  void Read(const lyd_node* element, Node* node) {
    const std::string_view space = XmlNamespace(element);
    const Module* module = FindSpace(space);
    node->name = document_->Keep(XmlName(element));
    node->module = module != nullptr ? module->name : document_->Keep(space);
    const lyd_node* child;
    LY_LIST_FOR(lyd_child(element), child) { Read(child, &node->children.emplace_back()); }
    if (!node->children.empty()) return;
    node->value = XmlText(element);
    if (!node->value.empty()) node->form = Node::Form::kText;
    TakeIdentity(node);
  }

 private:
  // Takes the prefix off a value that has one which is declared.
  void TakeIdentity(Node* node) {
    const size_t colon = node->value.find(':');
    if (colon == std::string::npos) return;
    const auto prefix = prefixes_.find(node->value.substr(0, colon));
    if (prefix == prefixes_.end() || !MayBeIdentity(*node, node->value.substr(colon + 1))) return;
    const Module* module = FindSpace(prefix->second);
    node->module_of_value = module != nullptr ? module->name : document_->Keep(prefix->second);
    node->value.erase(0, colon + 1);
  }

  const Prefixes prefixes_;
  Document* document_;
};

std::string ReadXml(std::string text, Document* document) {
  const XmlOutline outline = ScanXml(text, 64);
  if (outline.fault != XmlOutline::Fault::kNone) return "it is no XML that can be read";
  // Examples and exports have their envelope without a namespace.
  if (outline.namespaces_missing) text = CompleteNamespaces(std::move(text));
  const std::unique_ptr<GenericXml> reader = GenericXml::Create();
  std::string error = "there is no memory";
  const Tree tree = reader == nullptr ? nullptr : reader->Parse(text, &error);
  if (tree == nullptr) return error;
  const bool enveloped = XmlName(tree.get()) == "config" || XmlName(tree.get()) == "data";
  const bool ours = XmlNamespace(tree.get()) == kOwn.space;
  const lyd_node* first = enveloped && !ours ? lyd_child(tree.get()) : tree.get();
  const lyd_node* element;
  XmlReader xml(PrefixesIn(text), document);
  LY_LIST_FOR(first, element) { xml.Read(element, &document->root.children.emplace_back()); }
  return "";
}

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

const Node* Node::Find(std::string_view child) const {
  for (const Node& node : children) {
    if (node.name == child) return &node;
  }
  return nullptr;
}

const std::string& Node::ValueOf(std::string_view child) const {
  const Node* node = Find(child);
  return node == nullptr ? kNothing : node->value;
}

Node& Node::Add(std::string_view child, Form with_form, std::string text) {
  Node& node = children.emplace_back();
  node.name = child;
  node.module = module;
  node.form = with_form;
  node.value = std::move(text);
  return node;
}

std::string_view Document::Keep(std::string_view text) {
  const auto at = std::lower_bound(known_.begin(), known_.end(), text);
  if (at != known_.end() && *at == text) return *at;
  return *known_.insert(at, kept_.emplace_back(text));
}

std::string Document::Read(const std::string& text) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string::npos) return "it is empty";
  if (text[first] == '<') return ReadXml(text, this);
  if (text[first] != '{') return "it is neither JSON nor XML";
  JsonReader reader(this);
  if (nlohmann::json::sax_parse(text, &reader)) return "";
  return reader.error().empty() ? "it is no JSON" : reader.error();
}

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
