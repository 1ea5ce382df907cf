// Errors of NETCONF operations: see rpc_error.h.
#include "host/netconf/message/rpc_error.h"

#include <libyang/libyang.h>

#include <utility>

#include "host/netconf/message/qualified_path.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

// Name of the node that a path ends with, without prefix and predicates.
std::string LastName(const std::string& path) {
  size_t start = 0, end = 0;
  char quote = 0;
  int brackets = 0;
  for (size_t pos = 0; pos < path.size(); ++pos) {
    const char c = path[pos];
    if (quote != 0) {
      if (c == quote) quote = 0;
    } else if (c == '\'' || c == '"') {
      quote = c;
    } else if (c == '[' || c == ']') {
      brackets += c == '[' ? 1 : -1;
    } else if (brackets == 0 && (c == '/' || c == ':')) {
      start = end = pos + 1;
    } else if (brackets == 0) {
      end = pos + 1;
    }
  }
  return path.substr(start, end - start);
}

RpcError Protocol(const char* tag, std::string message, std::string info) {
  return {"protocol", tag, std::move(message), "", "", std::move(info)};
}

}  // namespace

std::string PrintRpcError(const RpcError& error, const ly_ctx* context) {
  // The children take the reply's namespace from here, whatever prefix the reply itself has.
  std::string xml = std::string("<rpc-error xmlns=\"") + kNetconfNamespace + "\">";
  xml += XmlElement("error-type", error.type);
  xml += XmlElement("error-tag", error.tag);
  xml += "<error-severity>error</error-severity>";
  if (!error.app_tag.empty()) xml += XmlElement("error-app-tag", error.app_tag);
  if (!error.path.empty()) {
    std::string declarations;
    const std::string path = QualifiedPath(error.path, context, &declarations);
    xml += "<error-path" + declarations;
    xml += ">" + XmlEscape(path) + "</error-path>";
  }
  if (!error.message.empty()) {
    xml += "<error-message xml:lang=\"en\">" + XmlEscape(error.message) + "</error-message>";
  }
  if (!error.info.empty()) xml += "<error-info>" + error.info + "</error-info>";
  return xml + "</rpc-error>";
}

RpcError OperationNotSupported(const std::string& message) {
  return Protocol("operation-not-supported", message, "");
}

RpcError MissingElement(const std::string& element) {
  return Protocol("missing-element", "the element \"" + element + "\" is missing",
                  XmlElement("bad-element", element));
}

RpcError BadElement(const std::string& element, const std::string& message) {
  return Protocol("bad-element", message, XmlElement("bad-element", element));
}

RpcError UnknownElement(const std::string& element) {
  return Protocol("unknown-element", "the element \"" + element + "\" is not known here",
                  XmlElement("bad-element", element));
}

RpcError MissingAttribute(const std::string& attribute, const std::string& element) {
  return {"rpc",
          "missing-attribute",
          "the attribute \"" + attribute + "\" of <" + element + "> is missing",
          "",
          "",
          XmlElement("bad-attribute", attribute) + XmlElement("bad-element", element)};
}

RpcError UnknownAttribute(const std::string& attribute, const std::string& element) {
  return Protocol("unknown-attribute",
                  "the attribute \"" + attribute + "\" of <" + element + "> is not known here",
                  XmlElement("bad-attribute", attribute) + XmlElement("bad-element", element));
}

RpcError BadAttribute(const std::string& attribute, const std::string& element,
                      const std::string& message) {
  return Protocol("bad-attribute", message,
                  XmlElement("bad-attribute", attribute) + XmlElement("bad-element", element));
}

RpcError UnknownNamespace(const std::string& element, const std::string& name_space) {
  return Protocol("unknown-namespace",
                  name_space.empty() ? "<" + element + "> has no namespace"
                                     : "the namespace \"" + name_space + "\" is not known here",
                  XmlElement("bad-element", element) + XmlElement("bad-namespace", name_space));
}

RpcError LockDenied(uint32_t session_id, const std::string& message) {
  return Protocol("lock-denied", message, XmlElement("session-id", std::to_string(session_id)));
}

void LimitErrors(RpcErrors* errors) {
  if (errors->size() <= kMaxErrors) return;
  errors->resize(kMaxErrors);
  errors->push_back({"application", "operation-failed",
                     "there are more errors; these are the first " + std::to_string(kMaxErrors), "",
                     "", ""});
}

RpcErrors FromDatastore(const DatastoreErrors& errors) {
  RpcErrors result;
  for (const DatastoreError& error : errors) {
    // Appendix A: these tags name the element.
    const bool names_element = error.tag == "unknown-element" || error.tag == "missing-element" ||
                               error.tag == "bad-element" || error.tag == "bad-attribute";
    std::string element = error.bad_element;
    if (element.empty() && names_element) element = LastName(error.path);
    std::string info;
    // The datastore looks at one attribute only.
    if (error.tag == "bad-attribute") info += XmlElement("bad-attribute", "operation");
    if (!element.empty()) info += XmlElement("bad-element", element);
    if (!error.bad_namespace.empty()) info += XmlElement("bad-namespace", error.bad_namespace);
    result.push_back(
        {"application", error.tag, error.message, error.app_tag, error.path, std::move(info)});
    if (result.size() > kMaxErrors) break;
  }
  LimitErrors(&result);
  return result;
}

}  // namespace host
