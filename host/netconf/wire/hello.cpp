// The <hello> exchange: see hello.h.
#include "host/netconf/wire/hello.h"

#include <algorithm>
#include <cstdlib>

#include "host/xml/xml_text.h"

namespace host {
namespace {

constexpr const char* kProtocolCapabilities[] = {
    kBase10,
    kBase11,
    "urn:ietf:params:netconf:capability:writable-running:1.0",
    "urn:ietf:params:netconf:capability:candidate:1.0",
    "urn:ietf:params:netconf:capability:confirmed-commit:1.1",
    "urn:ietf:params:netconf:capability:rollback-on-error:1.0",
    "urn:ietf:params:netconf:capability:validate:1.1",
    "urn:ietf:params:netconf:capability:xpath:1.0",
    "urn:ietf:params:netconf:capability:notification:1.0",
    "urn:ietf:params:netconf:capability:interleave:1.0",
    // NOLINTNEXTLINE(bugprone-suspicious-missing-comma): one text on two lines
    "urn:ietf:params:netconf:capability:with-defaults:1.0?basic-mode=explicit&"
    "also-supported=report-all,report-all-tagged,trim",
};

// What is implemented of a module, and how otherwise, as names between commas.
std::string FeaturesOf(const lys_module* module) {
  std::string names;
  uint32_t index = 0;
  const lysp_feature* feature = nullptr;
  while ((feature = lysp_feature_next(feature, module->parsed, &index)) != nullptr) {
    if ((feature->flags & LYS_FENABLED) != 0) names += std::string(",") + feature->name;
  }
  return names;
}

std::string DeviationsOf(const lys_module* module) {
  std::string names;
  LY_ARRAY_COUNT_TYPE i;
  LY_ARRAY_FOR(module->deviated_by, i) { names += std::string(",") + module->deviated_by[i]->name; }
  return names;
}

// A parameter of a module's capability, of names that each stand behind a comma; empty without any.
std::string Parameter(const char* name, const std::string& names) {
  return names.empty() ? "" : "&" + std::string(name) + "=" + names.substr(1);
}

std::string Hello(const std::vector<std::string>& capabilities, uint32_t session_id) {
  std::string xml = std::string("<hello xmlns=\"") + kNetconfNamespace + "\"><capabilities>";
  for (const std::string& capability : capabilities) {
    xml += XmlElement("capability", capability);
  }
  xml += "</capabilities>";
  if (session_id != 0) xml += "<session-id>" + std::to_string(session_id) + "</session-id>";
  return xml + "</hello>";
}

}  // namespace

std::string YangLibraryContentId(const ly_ctx* context) {
  // The modules do not change while the process lives, but between versions of it.
  uint64_t hash = 14695981039346656037u;  // FNV-1a
  uint32_t index = 0;
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    for (const char* text : {module->name, module->revision}) {
      for (; text != nullptr && *text != '\0'; ++text) {
        hash = (hash ^ static_cast<unsigned char>(*text)) * 1099511628211u;
      }
    }
  }
  return std::to_string(hash);
}

std::vector<std::string> ServerCapabilities(const ly_ctx* context) {
  std::vector<std::string> capabilities(std::begin(kProtocolCapabilities),
                                        std::end(kProtocolCapabilities));
  capabilities.push_back(
      "urn:ietf:params:netconf:capability:yang-library:1.1?revision=2019-01-04&content-id=" +
      YangLibraryContentId(context));
  uint32_t index = ly_ctx_internal_modules_count(context);
  while (const lys_module* module = ly_ctx_get_module_iter(context, &index)) {
    if (!module->implemented) continue;
    std::string capability = std::string(module->ns) + "?module=" + module->name;
    if (module->revision != nullptr) capability += std::string("&revision=") + module->revision;
    capabilities.push_back(capability + Parameter("features", FeaturesOf(module)) +
                           Parameter("deviations", DeviationsOf(module)));
  }
  return capabilities;
}

std::string ServerHello(uint32_t session_id, const std::vector<std::string>& capabilities) {
  return Hello(capabilities, session_id);
}

std::string ClientHello(const std::vector<std::string>& capabilities) {
  return Hello(capabilities, 0);
}

bool PeerHello::Has(const std::string& capability) const {
  return std::find(capabilities.begin(), capabilities.end(), capability) != capabilities.end();
}

bool ParseHello(std::string message, const GenericXml& xml, PeerHello* hello, std::string* error) {
  DropByteOrderMark(&message);
  constexpr int kMaxDepth = 8;
  if (ScanXml(message, kMaxDepth).fault != XmlOutline::Fault::kNone) {
    *error = "the hello is not well-formed";
    return false;
  }
  const Tree root = xml.Parse(message, error);
  if (root == nullptr) return false;
  if (XmlName(root.get()) != "hello" || XmlNamespace(root.get()) != kNetconfNamespace) {
    *error = "the first message is no hello";
    return false;
  }
  const lyd_node* list = FindNetconfChild(root.get(), "capabilities");
  for (const lyd_node* item = lyd_child(list); item != nullptr; item = item->next) {
    if (XmlName(item) == "capability") hello->capabilities.emplace_back(XmlText(item));
  }
  if (const lyd_node* id = FindNetconfChild(root.get(), "session-id")) {
    hello->session_id = std::strtoul(std::string(XmlText(id)).c_str(), nullptr, 10);
    if (hello->session_id == 0) {
      *error = "the session-id of the hello is no number";
      return false;
    }
  }
  return true;
}

}  // namespace host
