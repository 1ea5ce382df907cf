// Small pieces of XML text: escaping, and a look at a message's outline before it is parsed.
#ifndef HOST_XML_XML_TEXT_H_
#define HOST_XML_XML_TEXT_H_

#include <cctype>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/cdb/edit/edit.h"

namespace host {

inline constexpr char kNetconfNamespace[] = "urn:ietf:params:xml:ns:netconf:base:1.0";

// Of the names of XML and YANG, as far as they are ASCII.
inline bool IsNameStart(char c) {
  return std::isalpha(static_cast<unsigned char>(c)) != 0 || c == '_';
}
inline bool IsNameChar(char c) {
  return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '_' || c == '-' || c == '.';
}

// `text` as element content or attribute value. Bytes that are no UTF-8, and characters that
// XML cannot hold, become '?'.
std::string XmlEscape(std::string_view text);

// An element with a text and no attributes.
inline std::string XmlElement(const std::string& name, std::string_view text) {
  return "<" + name + ">" + XmlEscape(text) + "</" + name + ">";
}

// `xml` with kNoNamespace in place of every empty default namespace (xmlns=""). libyang 2.1.30
// reads through a null pointer when it compares an element without namespace with a sibling of its
// name.
std::string NameEmptyNamespaces(std::string xml);

// `xml`, a message whose outline says that namespaces are missing, with what there is no doubt
// about: operations and their parameters without a namespace are NETCONF's (some clients send
// <config> so), and so is an attribute operation="..." on a node of <config>. All else that has
// none, such as an element with a prefix that is not declared, gets kNoNamespace, so that it can be
// parsed and then be refused by its name. Where that is too much, `xml` as it is.
std::string CompleteNamespaces(std::string xml);

// Takes a byte order mark (UTF-8) off the front.
void DropByteOrderMark(std::string* xml);

// What the parser behind the scan takes quadratic time for is bounded.
inline constexpr size_t kMaxAttributes = 64;            // of one element, declarations included
inline constexpr size_t kMaxDeclarationsInScope = 256;  // of namespaces
inline constexpr size_t kMaxSelectBytes = 4096;         // an XPath expression, as written
inline constexpr size_t kMaxParameterElements = 1000;   // parameters and contents of <filter>

// What a message looks like from outside.
struct XmlOutline {
  enum class Fault {
    kNone,
    kMalformed,  // not an XML document, or one with a document type declaration
    kTooDeep,
    kTooManyAttributes,
    kSelectTooLong,
    kTooManyParameters,
  };
  Fault fault = Fault::kNone;
  size_t elements = 0;               // all of them
  std::string_view root;             // qualified name of the root element, empty when not found
  std::string_view root_attributes;  // its attributes and namespace declarations, as written
  // Some element that may be data of an edit has an attribute that may be another than NETCONF's
  // operation. Never false when one has; such attributes pass the parser without a trace.
  bool foreign_attributes = false;
  // An element, or an attribute that may be an edit operation, has no namespace.
  bool namespaces_missing = false;
  // Content of the one <config> that is a parameter, or within <source>, and the namespace
  // declarations in scope there, by prefix ("" for the default). Empty when there is none, or more
  // than one, or when it holds anything but one element.
  std::string_view config;
  std::vector<std::pair<std::string_view, std::string_view>> config_declarations;
};

// The one element that is the outline's `config`, with the declarations that it relies on, as a
// document of its own. Empty when it has none.
std::string ConfigDocument(const XmlOutline& outline);

// Scans `message` without building anything, so that the recursive parser behind it is safe from
// deep nesting and from what takes it long. Only as strict as that needs: a message without fault
// may still be malformed. The root's name and attributes are given as far as they were found, also
// with a fault, but for a root with too many of them. The views point into `message`.
XmlOutline ScanXml(std::string_view message, int max_depth);

}  // namespace host

#endif  // HOST_XML_XML_TEXT_H_
