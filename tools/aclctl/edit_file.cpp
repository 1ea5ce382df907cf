// Edits in files: see edit_file.h.
#include "tools/aclctl/edit_file.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/aclctl/schema.h"

namespace aclctl {
namespace {

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
}

Failure ReadFile(const std::string& path, std::string* content) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rb"),
                                                             std::fclose);
  char buffer[65536];
  size_t size = 0;
  while (file != nullptr && (size = std::fread(buffer, 1, sizeof(buffer), file.get())) > 0) {
    content->append(buffer, size);
  }
  if (file != nullptr && std::ferror(file.get()) == 0) return {};
  return {kFile, "cannot read " + path + ": " + std::strerror(errno), {}};
}

// With empty containers: an empty configuration is not the same as none.
std::string PrintXml(const lyd_node* tree) {
  char* text = nullptr;
  lyd_print_mem(&text, tree, LYD_XML,
                LYD_PRINT_WITHSIBLINGS | LYD_PRINT_SHRINK | LYD_PRINT_KEEPEMPTYCONT);
  std::string result = text != nullptr ? text : "";
  free(text);
  return result;
}

// XML is sent as it is, without what a document has around its content: the XML declaration, and
// NETCONF's own <config> or <data>, which files from other tools have.
Failure FromXml(const Client& client, const std::string& path, const std::string& content,
                std::string* config) {
  std::string error;
  const host::Tree document = client.xml().Parse(content, &error);
  if (document == nullptr) return {kFile, path + " is not well-formed XML: " + error, {}};
  const lyd_node* root = document.get();
  const bool enveloped = host::XmlNamespace(root) == "urn:ietf:params:xml:ns:netconf:base:1.0" &&
                         (host::XmlName(root) == "config" || host::XmlName(root) == "data");
  if (enveloped && (!host::XmlText(root).empty() || root->next != nullptr)) {
    const std::string envelope = "<" + std::string(host::XmlName(root)) + ">";
    return {kFile,
            path + " has " + (root->next != nullptr ? "an element beside " : "text within ") +
                envelope + ", where only configuration may be",
            {}};
  }
  const lyd_node* first = enveloped ? lyd_child(root) : root;
  *config = first == nullptr ? "" : PrintXml(first);
  return {};
}

// Why `content` is no JSON, empty when it is. libyang takes some texts that end too early.
std::string WhyNotJson(const std::string& content) {
  if (nlohmann::json::accept(content)) return "";
  try {
    const nlohmann::json parsed = nlohmann::json::parse(content);
    return parsed.is_discarded() ? "it is not well-formed" : "";
  } catch (const nlohmann::json::parse_error& error) {
    return error.what();
  }
}

// Adds what to say of elements of modules without configuration. XML has no way to name these.
void FindForeignModules(const lyd_node* siblings, std::vector<std::string>* details) {
  for (const lyd_node* node = siblings; node != nullptr; node = node->next) {
    const char* module = node->schema == nullptr ? host::AsOpaque(node)->name.module_name : nullptr;
    if (module != nullptr && ly_ctx_get_module_implemented(LYD_CTX(node), module) == nullptr) {
      details->push_back(std::string(LYD_NAME(node)) + " is of the module \"" + module +
                         "\", which has no configuration (unknown-namespace)");
    } else {
      FindForeignModules(lyd_child(node), details);
    }
  }
}

// What the schema does not know is passed on, so that the daemon names it in its answer.
Failure FromJson(Client* client, const std::string& path, const std::string& content,
                 std::string* config) {
  const std::string syntax_error = WhyNotJson(content);
  if (!syntax_error.empty()) return {kFile, path + " is no JSON: " + syntax_error, {}};
  host::ContextPtr context;
  if (Failure failure = FetchSchema(client, {"ietf-netconf", "acl-app"}, &context)) return failure;
  lyd_node* raw = nullptr;
  const LY_ERR result = lyd_parse_data_mem(context.get(), content.c_str(), LYD_JSON,
                                           LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &raw);
  const host::Tree tree(raw);
  if (result != LY_SUCCESS) {
    const char* where = ly_errpath(context.get());
    return {kFile,
            path + " is no JSON configuration: " + ly_errmsg(context.get()) +
                (where != nullptr ? std::string(" (") + where + ")" : ""),
            {}};
  }
  Failure foreign{kRefused, "the daemon would refuse " + path, {}};
  FindForeignModules(raw, &foreign.details);
  if (!foreign.details.empty()) return foreign;
  *config = PrintXml(raw);
  return {};
}

}  // namespace

void AddEditFile(Syntax* syntax, EditFile* file) {
  syntax->Operand("FILE", &file->path, "a configuration (.json or .xml)", Names::kFiles);
  syntax->Flag("--replace", &file->replace, "it replaces the running one");
}

Failure OpenWithEdit(const Common& common, const EditFile& file, Client* client,
                     std::string* config) {
  const std::string& path = file.path;
  const bool json = EndsWith(path, ".json");
  if (!json && !EndsWith(path, ".xml")) {
    return {kUsage, "the name of " + path + " ends neither in .json nor in .xml", {}};
  }
  std::string content;
  if (Failure failure = ReadFile(path, &content)) return failure;
  if (Failure failure = client->Open(common.socket)) return failure;
  Failure failure =
      json ? FromJson(client, path, content, config) : FromXml(*client, path, content, config);
  if (failure || !file.replace || !config->empty()) return failure;
  return {kFile,
          path + " holds no configuration to replace the running one with",
          {"to empty the configuration on purpose, use a file with {\"acl-app:config\": {}}"}};
}

}  // namespace aclctl
