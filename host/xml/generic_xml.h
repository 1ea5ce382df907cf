// XML read without a schema: every element becomes an opaque node of libyang's.
//
// For what a schema would get in the way of: filters (which hold nodes without keys or values),
// hellos, replies, and finding out what is wrong with a message that the schema refused.
#ifndef HOST_XML_GENERIC_XML_H_
#define HOST_XML_GENERIC_XML_H_

#include <libyang/libyang.h>

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/cdb/schema/yang_tree.h"

namespace host {

class GenericXml {
 public:
  // Null when libyang cannot make a context.
  static std::unique_ptr<GenericXml> Create();
  GenericXml(const GenericXml&) = delete;
  GenericXml& operator=(const GenericXml&) = delete;
  ~GenericXml();

  // The document's root element, null with the parser's reason in `error` when it is malformed. To
  // be freed before this object.
  Tree Parse(const std::string& xml, std::string* error) const;

 private:
  explicit GenericXml(ly_ctx* context) : context_(context) {}
  ly_ctx* context_;
};

// For the nodes that Parse() returned and their descendants.
const lyd_node_opaq* AsOpaque(const lyd_node* node);
// Local name, and namespace ("" when it has none).
std::string_view XmlName(const lyd_node* node);
std::string_view XmlNamespace(const lyd_node* node);
// Text content without blanks around it.
std::string_view XmlText(const lyd_node* node);
// Value of an attribute without namespace.
std::optional<std::string_view> XmlAttribute(const lyd_node* node, std::string_view name);
// First child element with this name in NETCONF's namespace, or null.
const lyd_node* FindNetconfChild(const lyd_node* parent, std::string_view name);

}  // namespace host

#endif  // HOST_XML_GENERIC_XML_H_
