// Edits in files: see edit_file.h.
#include "tools/aclctl/edit_file.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "tools/aclctl/running.h"
#include "tools/aclctl/schema.h"
#include "tools/aclctl/words.h"

namespace aclctl {
namespace {

bool EndsWith(const std::string& text, const std::string& end) {
  return text.size() >= end.size() && text.compare(text.size() - end.size(), end.size(), end) == 0;
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
    const std::string text = error.what();  // begins with the library's own name of it
    const size_t end = text.find("] ");
    return end == std::string::npos ? text : text.substr(end + 2);
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

// The entries that a configuration has, with their profiles' names.
Scope EntriesIn(const ConfigTree& config) {
  Scope scope;
  for (const lyd_node* profile : config.Profiles()) {
    Scope::Entries& entries = scope.profiles[host::ChildText(profile, "acl-name")];
    for (const lyd_node* entry : ChildrenNamed(profile, "access-list-entry")) {
      entries.priorities.insert(host::ChildText(entry, "ace-priority"));
    }
  }
  return scope;
}

// The first match that `running` has and `match`, which is to be merged with it, has not. An
// address in another form takes the place of the old one.
const char* FindLeftBehind(const lyd_node* running, const lyd_node* match) {
  const lyd_node* node;
  LY_LIST_FOR(lyd_child(running), node) {
    const std::string name = LYD_NAME(node);
    const bool alternative = (name == "tos" && ChildNamed(match, "dscp") != nullptr) ||
                             (name == "dscp" && ChildNamed(match, "tos") != nullptr);
    if (ChildNamed(match, LYD_NAME(node)) == nullptr && !alternative) return LYD_NAME(node);
  }
  return nullptr;
}

// Marks the matches of entries that would keep some of running's if they were merged.
Failure ReplaceMatches(Client* client, ConfigTree* config, std::vector<std::string>* notes) {
  const Scope scope = EntriesIn(*config);
  if (scope.profiles.empty()) return {};
  host::Tree tree;
  if (Failure failure = FetchRunning(client, config->context(), scope, &tree)) return failure;
  const ConfigTree running(config->context(), std::move(tree));
  for (const lyd_node* profile : config->Profiles()) {
    const std::string name = host::ChildText(profile, "acl-name");
    const lyd_node* old = running.FindProfile(name);
    if (old == nullptr || TypeOf(old) != TypeOf(profile)) continue;
    for (const lyd_node* entry : ChildrenNamed(profile, "access-list-entry")) {
      const std::string priority = host::ChildText(entry, "ace-priority");
      const lyd_node* old_entry = FindEntry(old, priority);
      lyd_node* match = ChildNamed(entry, "match");
      if (old_entry == nullptr || match == nullptr || match->meta != nullptr) continue;
      const lyd_node* old_match = ChildNamed(old_entry, "match");
      const char* left = old_match == nullptr ? nullptr : FindLeftBehind(old_match, match);
      if (left == nullptr) continue;
      lyd_new_meta(config->context(), match, nullptr, "ietf-netconf:operation", "replace", 0,
                   nullptr);
      notes->push_back("entry " + priority + " of " + name + " is replaced: it matched " +
                       ConfiguredMatch(old_match) + " before, and the file says nothing of " +
                       left);
    }
  }
  return {};
}

// The tree that the file holds, as far as it is the configuration's: what the schema does not know
// is passed on, so that the daemon names it in its answer.
Failure FromJson(Client* client, const std::string& content, bool replace, Edit* edit) {
  const std::string syntax_error = WhyNotJson(content);
  if (!syntax_error.empty()) return {kFile, edit->what + " is no JSON: " + syntax_error, {}};
  host::ContextPtr context;
  if (Failure failure = FetchSchema(client, {"ietf-netconf", "acl-app"}, &context)) return failure;
  lyd_node* raw = nullptr;
  const LY_ERR result = lyd_parse_data_mem(context.get(), content.c_str(), LYD_JSON,
                                           LYD_PARSE_ONLY | LYD_PARSE_OPAQ, 0, &raw);
  host::Tree tree(raw);
  if (result != LY_SUCCESS) {
    const char* where = ly_errpath(context.get());
    return {kFile,
            edit->what + " is no JSON configuration: " + ly_errmsg(context.get()) +
                (where != nullptr ? std::string(" (") + where + ")" : ""),
            {}};
  }
  Failure foreign{kRefused, "the daemon would refuse " + edit->what, {}};
  FindForeignModules(raw, &foreign.details);
  if (!foreign.details.empty()) return foreign;
  // Only what the schema knows as a whole can be compared; the daemon refuses the rest.
  if (!replace && raw != nullptr && raw->next == nullptr && raw->schema != nullptr &&
      std::strcmp(LYD_NAME(raw), "config") == 0) {
    ConfigTree config(context.get(), std::move(tree));
    if (Failure failure = ReplaceMatches(client, &config, &edit->notes)) return failure;
    edit->config = PrintXml(config.root());
    return {};
  }
  edit->config = PrintXml(raw);
  return {};
}

// Lines that replace the configuration are all of it; others change what is running.
Failure FromLines(Client* client, const std::string& content, bool replace, Edit* edit) {
  std::vector<PlacedStatement> statements;
  if (Failure failure = ReadStatements(edit->what, content, &statements)) return failure;
  if (!replace) return EditFromStatements(client, statements, edit);
  if (statements.empty()) return {};
  host::ContextPtr context;
  if (Failure failure = FetchSchema(client, {"acl-app"}, &context)) return failure;
  ConfigTree config(context.get(), nullptr);
  if (Failure failure = ApplyAll(statements, &config)) return failure;
  edit->config = PrintXml(config.root());
  return {};
}

enum class Kind { kJson, kXml, kLines };

Kind KindOf(const std::string& path, const std::string& content) {
  if (EndsWith(path, ".json")) return Kind::kJson;
  if (EndsWith(path, ".xml")) return Kind::kXml;
  const size_t first = content.find_first_not_of(" \t\r\n");
  const char c = first == std::string::npos ? 0 : content[first];
  return c == '{' ? Kind::kJson : c == '<' ? Kind::kXml : Kind::kLines;
}

}  // namespace

void AddEditFile(Syntax* syntax, EditFile* file) {
  syntax->Operand("FILE", &file->path, "a configuration: JSON, XML or lines; - is standard input",
                  Names::kFiles);
  syntax->Flag("--replace", &file->replace, "it replaces the running one");
}

Failure ReadFile(const std::string& path, std::string* content) {
  const auto close = [](std::FILE* file) { return file == stdin ? 0 : std::fclose(file); };
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(
      path == "-" ? stdin : std::fopen(path.c_str(), "rb"), close);
  char buffer[65536];
  size_t size = 0;
  while (file != nullptr && (size = std::fread(buffer, 1, sizeof(buffer), file.get())) > 0) {
    content->append(buffer, size);
  }
  if (file != nullptr && std::ferror(file.get()) == 0) return {};
  return {kFile, "cannot read " + path + ": " + std::strerror(errno), {}};
}

Failure ReadStatements(const std::string& name, const std::string& text,
                       std::vector<PlacedStatement>* statements) {
  size_t number = 0;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size());
    PlacedStatement statement{name + ":" + std::to_string(++number) + ": ", {}};
    const std::string wrong =
        SplitLine(std::string_view(text).substr(begin, end - begin), &statement.words);
    if (!wrong.empty()) return {kFile, statement.place + wrong, {}};
    if (!statement.words.empty()) statements->push_back(std::move(statement));
    begin = end + 1;
  }
  return {};
}

Failure ApplyAll(const std::vector<PlacedStatement>& statements, ConfigTree* config) {
  for (const PlacedStatement& statement : statements) {
    const std::string wrong = ApplyStatement(statement.words, config);
    if (!wrong.empty())
      return {statement.place.empty() ? kUsage : kFile, statement.place + wrong, {}};
  }
  return {};
}

Failure EditFromStatements(Client* client, const std::vector<PlacedStatement>& statements,
                           Edit* edit) {
  Scope scope;
  for (const PlacedStatement& statement : statements) AddScope(statement.words, &scope);
  host::ContextPtr context;
  if (Failure failure = FetchSchema(client, {"ietf-netconf", "acl-app"}, &context)) return failure;
  host::Tree tree;
  if (Failure failure = FetchRunning(client, context.get(), scope, &tree)) return failure;
  const ConfigTree running(context.get(), std::move(tree));
  ConfigTree wanted = running.Copy();
  if (Failure failure = ApplyAll(statements, &wanted)) return failure;
  edit->config = EditBetween(running, wanted);
  edit->default_operation = "none";
  return {};
}

Failure OpenWithEdit(const Common& common, const EditFile& file, Client* client, Edit* edit) {
  std::string content = file.content;
  if (content.empty()) {
    if (Failure failure = ReadFile(file.path, &content)) return failure;
  }
  if (Failure failure = client->Open(common.socket)) return failure;
  edit->what = file.path == "-" ? "standard input" : file.path;
  edit->default_operation = file.replace ? "replace" : "merge";
  Failure failure;
  switch (KindOf(file.content.empty() ? file.path : "", content)) {
    case Kind::kJson:
      failure = FromJson(client, content, file.replace, edit);
      break;
    case Kind::kXml:
      failure = FromXml(*client, edit->what, content, &edit->config);
      break;
    case Kind::kLines:
      failure = FromLines(client, content, file.replace, edit);
      break;
  }
  if (failure || !file.replace || !edit->config.empty()) return failure;
  return {kFile,
          edit->what + " holds no configuration to replace the running one with",
          {"to empty the configuration on purpose, use a file with {\"acl-app:config\": {}}"}};
}

}  // namespace aclctl
