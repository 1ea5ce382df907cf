// The daemon's schema: see schema.h.
#include "tools/aclctl/schema.h"

#include <cstdlib>
#include <cstring>

#include "host/xml/xml_text.h"

namespace aclctl {
namespace {

struct Fetcher {
  Client* client;
  Failure failure;
};

void FreeText(void* text, void* /*user_data*/) { free(text); }

// libyang's ly_module_imp_clb.
LY_ERR FetchModule(const char* name, const char* revision, const char* submodule,
                   const char* /*submodule_revision*/, void* user_data, LYS_INFORMAT* format,
                   const char** text, ly_module_imp_data_free_clb* free_text) {
  auto* fetcher = static_cast<Fetcher*>(user_data);
  std::string request =
      "<get-schema xmlns=\"urn:ietf:params:xml:ns:yang:ietf-netconf-monitoring\"><identifier>" +
      host::XmlEscape(submodule != nullptr ? submodule : name) + "</identifier>";
  if (revision != nullptr) request += host::XmlElement("version", revision);
  host::Tree reply;
  fetcher->failure = fetcher->client->Call(request + "</get-schema>", &reply);
  if (fetcher->failure || lyd_child(reply.get()) == nullptr) return LY_ENOTFOUND;
  *format = LYS_IN_YANG;
  *text = strdup(host::AsOpaque(lyd_child(reply.get()))->value);
  *free_text = FreeText;
  return LY_SUCCESS;
}

std::string TakeReason(const ly_ctx* context) {
  const char* message = ly_errmsg(context);
  const char* path = ly_errpath(context);
  std::string reason = message != nullptr ? message : "unknown reason";
  if (path != nullptr) reason += std::string(" (") + path + ")";
  return reason;
}

}  // namespace

Failure FetchSchema(Client* client, const std::vector<std::string>& modules,
                    host::ContextPtr* context) {
  ly_ctx* raw = nullptr;
  if (ly_ctx_new(nullptr, LY_CTX_NO_YANGLIBRARY | LY_CTX_DISABLE_SEARCHDIRS, &raw) != LY_SUCCESS) {
    return {kProtocol, "cannot make a schema", {}};
  }
  context->reset(raw);
  Fetcher fetcher{client, {}};
  ly_ctx_set_module_imp_clb(raw, FetchModule, &fetcher);
  for (const std::string& module : modules) {
    if (ly_ctx_load_module(raw, module.c_str(), nullptr, nullptr) != nullptr) continue;
    if (fetcher.failure) return fetcher.failure;
    return {kProtocol, "the daemon's schema " + module + " cannot be used: " + TakeReason(raw), {}};
  }
  ly_ctx_set_module_imp_clb(raw, nullptr, nullptr);
  return {};
}

Failure Convert(const ly_ctx* context, const std::string& xml, Format format, std::string* text) {
  lyd_node* raw = nullptr;
  const LY_ERR result =
      lyd_parse_data_mem(context, xml.c_str(), LYD_XML, LYD_PARSE_ONLY | LYD_PARSE_STRICT, 0, &raw);
  const host::Tree tree(raw);
  char* printed = nullptr;
  if (result != LY_SUCCESS ||
      lyd_print_mem(&printed, raw, format == Format::kJson ? LYD_JSON : LYD_XML,
                    LYD_PRINT_WITHSIBLINGS | LYD_PRINT_KEEPEMPTYCONT) != LY_SUCCESS) {
    return {kProtocol, "the daemon's data cannot be understood: " + TakeReason(context), {}};
  }
  *text = printed != nullptr ? printed : "";
  free(printed);
  if (text->empty() || text->back() != '\n') *text += '\n';
  return {};
}

Failure ConvertOutput(const ly_ctx* context, const std::string& operation,
                      const std::string& output, std::string* text) {
  const size_t colon = operation.find(':');
  const lys_module* module =
      ly_ctx_get_module_implemented(context, operation.substr(0, colon).c_str());
  const std::string name = operation.substr(colon + 1);
  const std::string xml = "<" + name + " xmlns=\"" + (module != nullptr ? module->ns : "") + "\">" +
                          output + "</" + name + ">";
  ly_in* in = nullptr;
  lyd_node *raw = nullptr, *node = nullptr;
  const bool read =
      ly_in_new_memory(xml.c_str(), &in) == LY_SUCCESS &&
      lyd_parse_op(context, nullptr, in, LYD_XML, LYD_TYPE_REPLY_YANG, &raw, &node) == LY_SUCCESS;
  ly_in_free(in, 0);
  const host::Tree tree(raw);
  char* printed = nullptr;
  if (!read ||
      lyd_print_mem(&printed, lyd_child(node), LYD_JSON, LYD_PRINT_WITHSIBLINGS) != LY_SUCCESS) {
    return {kProtocol, "the daemon's answer cannot be understood: " + TakeReason(context), {}};
  }
  *text = printed != nullptr ? printed : "{}\n";
  free(printed);
  return {};
}

}  // namespace aclctl
