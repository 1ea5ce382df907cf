// <get-schema> (RFC 6022 section 3).
#include <libyang/libyang.h>

#include <cstdlib>

#include "host/netconf/operations/operations.h"
#include "host/xml/xml_text.h"

namespace host {
namespace {

struct Format {
  const char* identity;
  LYS_OUTFORMAT format;
};
constexpr Format kFormats[] = {
    {"yang", LYS_OUT_YANG},
    {"yin", LYS_OUT_YIN},
};

OperationResult Refuse(const std::string& message) {
  return OperationResult::Error({"application", "invalid-value", message, "", "", ""});
}

// The module `name`, of `revision` if that is not empty, else of the only one there is.
const lys_module* FindModule(const ly_ctx* context, const std::string& name,
                             const std::string& revision) {
  if (!revision.empty()) return ly_ctx_get_module(context, name.c_str(), revision.c_str());
  const lys_module* module = ly_ctx_get_module_implemented(context, name.c_str());
  return module != nullptr ? module : ly_ctx_get_module_latest(context, name.c_str());
}

}  // namespace

OperationResult RunGetSchema(const OperationContext& context, const OperationCall& call) {
  const std::string name = ParameterText(call, "identifier", "");
  if (name.empty()) return OperationResult::Error(MissingElement("identifier"));
  const std::string revision = ParameterText(call, "version", "");
  std::string format = ParameterText(call, "format", "yang");
  format.erase(0, format.find(':') + 1);
  const Format* found = nullptr;
  for (const Format& known : kFormats) {
    if (format == known.identity) found = &known;
  }
  if (found == nullptr) return Refuse("schemas are not given in the format " + format);
  const lys_module* module = FindModule(context.datastore.Context(), name, revision);
  if (module == nullptr)
    return Refuse("there is no schema " + name + (revision.empty() ? "" : " " + revision));
  char* text = nullptr;
  if (lys_print_mem(&text, module, found->format, 0) != LY_SUCCESS) {
    return OperationResult::Error(
        {"application", "operation-failed", "the schema cannot be printed", "", "", ""});
  }
  OperationResult result;
  result.data = "<data xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\">" +
                XmlEscape(text) + "</data>";
  result.note = name;
  free(text);
  return result;
}

}  // namespace host
