// Documents in XML, by expat: see document.h. Namespaces are what they are where a name or a prefix
// stands, so that values of identities keep their modules. A document type declaration, which could
// make much of little, is refused.
#include <expat.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <memory>
#include <unordered_map>
#include <utility>

#include "host/standard/document_modules.h"

namespace host::standard {
namespace {

constexpr char kSeparator = '\n';  // between namespace and name, in neither of which it may be
constexpr char kBlanks[] = " \t\r\n";

// Names and texts keep the blanks around them, unless these are the layout of lines.
void TrimValue(Node* node) {
  static constexpr std::string_view kTexts[] = {"acl-name",  "description",  "id",
                                                "interface", "interface-id", "interface-name",
                                                "name",      "profile-name", "set-name"};
  std::string& value = node->value;
  const bool text = std::find(std::begin(kTexts), std::end(kTexts), node->name) != std::end(kTexts);
  if (text && value.find('\n') == std::string::npos) return;
  value.erase(value.find_last_not_of(kBlanks) + 1);
  value.erase(0, value.find_first_not_of(kBlanks));
}

class XmlReader {
 public:
  explicit XmlReader(Document* document)
      : document_(document), parser_(XML_ParserCreateNS(nullptr, kSeparator), XML_ParserFree) {
    places_.push_back({&document->root, {}});
  }

  std::string Read(const std::string& text) {
    if (parser_ == nullptr) return "there is no memory";
    XML_Parser parser = parser_.get();
    XML_SetUserData(parser, this);
    XML_SetElementHandler(parser, &XmlReader::Start, &XmlReader::End);
    XML_SetCharacterDataHandler(parser, &XmlReader::Text);
    XML_SetNamespaceDeclHandler(parser, &XmlReader::StartPrefix, &XmlReader::EndPrefix);
    XML_SetStartDoctypeDeclHandler(parser, &XmlReader::Doctype);
    constexpr size_t kMost = size_t{1} << 24;  // bytes at a time
    size_t at = 0;
    bool last = false;
    while (!last) {
      const size_t size = std::min(kMost, text.size() - at);
      last = at + size == text.size();
      if (XML_Parse(parser, text.data() + at, static_cast<int>(size), last ? 1 : 0) ==
          XML_STATUS_ERROR) {
        if (error_.empty()) error_ = XML_ErrorString(XML_GetErrorCode(parser));
        return "line " + std::to_string(XML_GetCurrentLineNumber(parser)) + ": " + error_;
      }
      at += size;
    }
    return "";
  }

 private:
  struct Name {
    std::string_view name, module;
  };
  struct Place {
    Node* node;  // the last one of its parent, so it stays where it is while it is worked on
    std::vector<Node> annotations;
  };

  static XmlReader* Of(void* self) { return static_cast<XmlReader*>(self); }

  static void Start(void* self, const XML_Char* name, const XML_Char** attributes) {
    Of(self)->StartElement(name, attributes);
  }
  static void End(void* self, const XML_Char* /*name*/) { Of(self)->EndElement(); }
  static void Text(void* self, const XML_Char* text, int size) {
    Of(self)->places_.back().node->value.append(text, static_cast<size_t>(size));
  }
  static void StartPrefix(void* self, const XML_Char* prefix, const XML_Char* space) {
    Of(self)->spaces_[prefix == nullptr ? "" : prefix].emplace_back(space == nullptr ? "" : space);
  }
  static void EndPrefix(void* self, const XML_Char* prefix) {
    Of(self)->spaces_[prefix == nullptr ? "" : prefix].pop_back();
  }
  static void Doctype(void* self, const XML_Char* /*name*/, const XML_Char* /*system_id*/,
                      const XML_Char* /*public_id*/, int /*has_subset*/) {
    Of(self)->Fail("a document type declaration, which is not read");
  }

  void Fail(std::string why) {
    if (error_.empty()) error_ = std::move(why);
    XML_StopParser(parser_.get(), XML_FALSE);
  }

  // The module or, of an unknown one, the namespace.
  std::string_view ModuleOf(std::string_view space) {
    const Module* module = FindSpace(space);
    return module != nullptr ? std::string_view(module->name) : document_->Keep(space);
  }

  const Name& NameFor(const char* qualified) {
    const auto known = names_.find(qualified);
    if (known != names_.end()) return known->second;
    const std::string_view whole = document_->Keep(qualified);
    const size_t end = whole.find(kSeparator);
    const Name name = end == std::string_view::npos ? Name{whole, ""}
                                                    : Name{document_->Keep(whole.substr(end + 1)),
                                                           ModuleOf(whole.substr(0, end))};
    return names_.emplace(whole, name).first->second;
  }

  void StartElement(const char* qualified, const char** attributes) {
    if (places_.size() > kDeepestNode) return Fail("it is too deep");
    const Name& name = NameFor(qualified);
    Node& node = places_.back().node->children.emplace_back();
    node.name = name.name;
    node.module = name.module;
    Place& place = places_.emplace_back(Place{&node, {}});
    for (; *attributes != nullptr; attributes += 2) {
      const Name& attribute = NameFor(attributes[0]);
      Node& annotation = place.annotations.emplace_back();
      annotation.form = Node::Form::kAnnotation;
      annotation.module = attribute.module;
      annotation.value = std::string(attribute.name) + "=\"" + attributes[1] + "\"";
    }
  }

  void EndElement() {
    Place place = std::move(places_.back());
    places_.pop_back();
    Node* node = place.node;
    const bool leaf = node->children.empty();
    if (leaf) {
      TrimValue(node);
      if (!node->value.empty()) node->form = Node::Form::kText;
      TakeIdentity(node);
    } else {
      if (node->value.find_first_not_of(kBlanks) != std::string::npos) {
        return Fail("text between the elements of <" + std::string(node->name) + ">");
      }
      node->value.clear();
    }
    if (place.annotations.empty()) return;
    // As in JSON: "@" within a container, "@leaf" beside a leaf.
    std::string name = "@";
    if (leaf) name.append(node->name);
    std::vector<Node>* siblings = leaf ? &places_.back().node->children : &node->children;
    for (Node& annotation : place.annotations) {
      annotation.name = document_->Keep(name);
      siblings->push_back(std::move(annotation));
    }
  }

  // Takes the prefix off the name of an identity, where it is declared.
  void TakeIdentity(Node* node) {
    if (!MayBeIdentity(node->name)) return;
    const size_t colon = node->value.find(':');
    if (colon == std::string::npos || StartsWithDigit(node->value, colon + 1)) return;
    const auto space = spaces_.find(std::string_view(node->value).substr(0, colon));
    if (space == spaces_.end() || space->second.empty()) return;
    node->module_of_value = ModuleOf(space->second.back());
    node->value.erase(0, colon + 1);
  }

  Document* document_;
  const std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> parser_;
  std::vector<Place> places_;
  std::unordered_map<std::string_view, Name> names_;                     // by qualified name
  std::map<std::string, std::vector<std::string>, std::less<>> spaces_;  // in scope, by prefix
  std::string error_;
};

}  // namespace

std::string ReadXml(const std::string& text, Document* document) {
  return XmlReader(document).Read(text);
}

}  // namespace host::standard
