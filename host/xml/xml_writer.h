// Writes the content of a reply: elements of one namespace, without blanks between them.
#ifndef HOST_XML_XML_WRITER_H_
#define HOST_XML_XML_WRITER_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>

#include "host/xml/xml_text.h"

namespace host {

class XmlWriter {
 public:
  // The topmost elements declare `name_space`.
  explicit XmlWriter(std::string_view name_space) : name_space_(name_space) {}

  void Open(std::string_view name) {
    xml_.append("<").append(name);
    if (depth_++ == 0) xml_.append(" xmlns=\"").append(name_space_).append("\"");
    xml_.append(">");
  }
  // `name` is that of the last element that was opened and not closed.
  void Close(std::string_view name) {
    --depth_;
    xml_.append("</").append(name).append(">");
  }
  void Leaf(std::string_view name, std::string_view text) {
    Open(name);
    xml_.append(XmlEscape(text));
    Close(name);
  }
  void Leaf(std::string_view name, uint64_t number) { Leaf(name, std::to_string(number)); }
  // The same within another element, with attributes as they are written, such as declarations of
  // namespaces: " xmlns=\"urn:other\"".
  void Leaf(std::string_view name, std::string_view text, std::string_view attributes) {
    xml_.append("<").append(name).append(attributes).append(">");
    xml_.append(XmlEscape(text)).append("</").append(name).append(">");
  }

  std::string Take() { return std::move(xml_); }

 private:
  std::string name_space_;
  std::string xml_;
  int depth_ = 0;
};

}  // namespace host

#endif  // HOST_XML_XML_WRITER_H_
