// aclctl export: our configuration as access lists of other models.
#include <cstdio>
#include <memory>

#include "host/cdb/schema/schema.h"
#include "host/cdb/schema/yang_texts.h"
#include "host/standard/configuration.h"
#include "host/standard/statistics.h"
#include "host/standard/writers.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/hits.h"
#include "tools/aclctl/running.h"
#include "tools/aclctl/standards.h"

namespace aclctl {
namespace {

namespace standard = host::standard;

struct ExportWanted {
  std::string to, path;
  bool standard_only = false;
  bool statistics = false;
  LossOptions loss;
};

// libyang's ly_module_imp_clb, for the modules that this program was built with.
LY_ERR FindBuiltIn(const char* name, const char* /*revision*/, const char* /*submodule*/,
                   const char* /*submodule_revision*/, void* /*user_data*/, LYS_INFORMAT* format,
                   const char** text, ly_module_imp_data_free_clb* free_text) {
  for (size_t i = 0; i < host::kYangTextCount; ++i) {
    if (std::string(host::kYangTexts[i].module) != name) continue;
    *format = LYS_IN_YANG;
    *text = host::kYangTexts[i].text;
    *free_text = nullptr;
    return LY_SUCCESS;
  }
  return LY_ENOTFOUND;
}

// The schema of the configuration that this program was built with.
Failure BuiltInSchema(host::ContextPtr* context) {
  ly_ctx* raw = nullptr;
  // What values mean is told by the names of their types, which a compiled schema does not keep.
  constexpr uint16_t kOptions =
      LY_CTX_NO_YANGLIBRARY | LY_CTX_DISABLE_SEARCHDIRS | LY_CTX_SET_PRIV_PARSED;
  if (ly_ctx_new(nullptr, kOptions, &raw) == LY_SUCCESS) {
    context->reset(raw);
    ly_ctx_set_module_imp_clb(raw, FindBuiltIn, nullptr);
    if (ly_ctx_load_module(raw, host::kAclModule, nullptr, nullptr) != nullptr) return {};
  }
  return {kProtocol, "cannot make a schema", {}};
}

// The configuration in a text: JSON, XML, or lines.
Failure ReadText(const std::string& what, const std::string& text, const ly_ctx* context,
                 host::Tree* tree) {
  const size_t first = text.find_first_not_of(" \t\r\n");
  const char c = first == std::string::npos ? 0 : text[first];
  if (c != '{' && c != '<') {
    std::vector<PlacedStatement> statements;
    if (Failure failure = ReadStatements(what, text, &statements)) return failure;
    ConfigTree config(context, nullptr);
    if (Failure failure = ApplyAll(statements, &config)) return failure;
    *tree = host::CopyTree(config.root());
    return {};
  }
  ly_log_options(LY_LOSTORE);
  lyd_node* raw = nullptr;
  const LY_ERR result = lyd_parse_data_mem(context, text.c_str(), c == '{' ? LYD_JSON : LYD_XML,
                                           LYD_PARSE_STRICT | LYD_PARSE_ONLY, 0, &raw);
  tree->reset(raw);
  if (result == LY_SUCCESS) return {};
  host::DatastoreErrors errors;
  host::TakeErrors(context, nullptr, &errors);
  Failure failure{kFile, what + " is no configuration", {}};
  for (const host::DatastoreError& error : errors) {
    failure.details.push_back(ShortPath(error.path) + ": " + error.message);
  }
  return failure;
}

// Running, as the daemon's reply; with what it has hit, where that is wanted and known.
Failure FetchReply(const Common& common, bool statistics, std::string* reply,
                   host::HitsByOrigin* hits) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  Scope scope;
  scope.everything = true;
  const auto fetch = [&] { return FetchRunningText(&client, scope, reply); };
  if (!statistics) return fetch();
  std::string why;
  Failure failure = FetchWithHits(&client, fetch, hits, &why);
  if (!failure && !why.empty()) std::fprintf(stderr, "aclctl: no statistics: %s\n", why.c_str());
  return failure;
}

// Whether the text is a configuration as most are, and was read.
bool ReadPlain(const std::string& text, const ly_ctx* context, standard::Profiles* profiles) {
  standard::Document document;
  if (!document.Read(text).empty()) return false;
  const bool json = text[text.find_first_not_of(" \t\r\n")] == '{';
  auto plain =
      ReadPlainConfiguration(document, json ? standard::Format::kJson : standard::Format::kXml,
                             standard::MatchNames(context));
  if (plain) *profiles = std::move(*plain);
  return plain.has_value();
}

Failure ReadProfiles(const Common& common, const ExportWanted& wanted, const std::string& what,
                     standard::Profiles* profiles, host::HitsByOrigin* hits) {
  const bool running = wanted.path.empty();
  if (!running && wanted.statistics) {
    return {kUsage, "--statistics are of the running configuration, not of a file", {}};
  }
  std::string text;
  if (Failure failure = running ? FetchReply(common, wanted.statistics, &text, hits)
                                : ReadFile(wanted.path, &text)) {
    return failure;
  }
  host::ContextPtr context;
  if (Failure failure = BuiltInSchema(&context)) return failure;
  if (ReadPlain(text, context.get(), profiles)) return {};
  host::Tree tree;
  if (Failure failure = running ? ReadRunningText(text, context.get(), &tree)
                                : ReadText(what, text, context.get(), &tree)) {
    return failure;
  }
  *profiles = standard::ReadConfiguration(context.get(), tree.get());
  return {};
}

Failure Export(const Common& common, const ExportWanted& wanted) {
  standard::Standard to = standard::Standard::kRfc8519;
  if (Failure failure = FindStandard(wanted.to, &to)) return failure;
  const std::string what = wanted.path.empty()  ? "the running configuration"
                           : wanted.path == "-" ? "standard input"
                                                : wanted.path;
  standard::Profiles profiles;
  host::HitsByOrigin hits;
  if (Failure failure = ReadProfiles(common, wanted, what, &profiles, &hits)) return failure;
  standard::ExportOptions options;
  options.allowance = wanted.loss.allowance;
  options.standard_only = wanted.standard_only;
  options.to = to;
  standard::Report report;
  const standard::AccessLists lists = ToAccessLists(profiles, options, &report);
  standard::Document document;
  if (to == standard::Standard::kOpenConfig) {
    WriteOpenConfig(lists, &document);
  } else {
    WriteRfc8519(lists, to == standard::Standard::kRfc9899, &document);
  }
  if (!hits.empty()) AddStatistics(lists, hits, to, &document, &report);
  Failure loss = TellReport(report, wanted.loss, what);
  if (loss && loss.code != kLossy) return loss;
  const bool xml = common.form == Form::kXml;
  std::fputs(document.Print(xml ? standard::Format::kXml : standard::Format::kJson).c_str(),
             stdout);
  return loss;
}

Run SetUpExport(Syntax* syntax) {
  const auto wanted = std::make_shared<ExportWanted>();
  syntax->Option("--to", "MODEL", &wanted->to, "rfc8519, rfc9899 or openconfig");
  syntax->OptionalOperand("FILE", &wanted->path,
                          "a configuration: JSON, XML or lines; - is standard input; without one "
                          "it is the running configuration",
                          Names::kFiles);
  syntax->Flag("--standard-only", &wanted->standard_only,
               "nothing but the standard's own: refuse what only acl-app-standard has");
  syntax->Flag("--statistics", &wanted->statistics,
               "with what each entry of the running configuration has hit on each interface");
  AddLossOptions(syntax, &wanted->loss);
  return [wanted](const Common& common) { return Export(common, *wanted); };
}

}  // namespace

const Command kExport = {"export",
                         Group::kLook,
                         "the configuration as access lists of RFC 8519, RFC 9899 or OpenConfig",
                         "aclctl export --to rfc8519 --statistics >lists.json\n"
                         "aclctl export --to rfc9899 --xml examples/branch.json",
                         SetUpExport,
                         kXml};

}  // namespace aclctl
