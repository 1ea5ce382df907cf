// aclctl import: access lists of other models as our configuration.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "host/runtime/log_text.h"
#include "host/standard/configuration.h"
#include "host/standard/readers.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/commands/preview.h"
#include "tools/aclctl/commit_edit.h"
#include "tools/aclctl/standards.h"

namespace aclctl {
namespace {

namespace standard = host::standard;

struct ImportWanted {
  std::string from, path, end, priority, most;
  LossOptions loss;
  bool check = false, diff = false, apply = false, replace = false;
  CommitOptions commit;
};

// The number that an option gives, between `least` and `most`.
Failure ReadNumber(const char* option, const std::string& text, long least, long most,
                   long* number) {
  if (text.empty()) return {};
  char* end = nullptr;
  *number = std::strtol(text.c_str(), &end, 10);
  if (*end == '\0' && *number >= least && *number <= most) return {};
  return {kUsage,
          std::string(option) + " takes a number from " + std::to_string(least) + " to " +
              std::to_string(most) + ", not \"" + text + "\"",
          {}};
}

// Options that only mean something together with others.
Failure CheckUses(const ImportWanted& wanted) {
  const struct {
    bool given, used;
    const char* wrong;
  } kUses[] = {
      {!wanted.commit.confirm.empty(), wanted.apply, "--confirm is for --apply"},
      {!wanted.commit.comment.empty(), wanted.apply, "-m is for --apply"},
      {wanted.commit.strict, wanted.apply || wanted.check, "--strict is for --check or --apply"},
      {wanted.replace, wanted.apply || wanted.check || wanted.diff,
       "--replace is for --check, --diff or --apply"},
  };
  for (const auto& use : kUses) {
    if (use.given && !use.used) return {kUsage, use.wrong, {}};
  }
  return {};
}

Failure ReadOptions(const ImportWanted& wanted, standard::Standard* from,
                    standard::ImportOptions* options) {
  if (Failure failure = FindStandard(wanted.from, from)) return failure;
  if (int{wanted.check} + int{wanted.diff} + int{wanted.apply} > 1) {
    return {kUsage, "--check, --diff and --apply exclude each other", {}};
  }
  long priority = 100, most = static_cast<long>(standard::kMostAlternatives);
  if (Failure failure = ReadNumber("--priority", wanted.priority, 0, 65535, &priority)) {
    return failure;
  }
  if (Failure failure = ReadNumber("--most", wanted.most, 1, 65536, &most)) return failure;
  if (!wanted.end.empty() && wanted.end != "deny" && wanted.end != "permit") {
    return {kUsage, "--end takes deny or permit, not \"" + wanted.end + "\"", {}};
  }
  options->allowance = wanted.loss.allowance;
  if (wanted.end == "permit" && wanted.from != "openconfig") {
    return {kUsage, "--end permit is for OpenConfig: by RFC 8519 the end of a list drops", {}};
  }
  options->end = wanted.end == "permit" ? standard::End::kPermit : standard::End::kDeny;
  options->first_priority = static_cast<uint32_t>(priority);
  options->most_entries = static_cast<size_t>(most);
  if (Failure failure = CheckUses(wanted)) return failure;
  return CheckCommitOptions(wanted.commit);
}

// Hands the configuration on to the command that the options name.
Failure HandOn(const Common& common, const ImportWanted& wanted, std::string text) {
  EditFile file;
  file.path = "the import of " + (wanted.path == "-" ? "standard input" : wanted.path);
  file.content = std::move(text);
  file.replace = wanted.replace;
  if (wanted.check) return Check(common, file, wanted.commit.strict);
  if (wanted.diff) return Diff(common, file);
  Client client;
  Edit edit;
  if (Failure failure = OpenWithEdit(common, file, &client, &edit)) return failure;
  return CommitEdit(common, &client, edit, wanted.commit);
}

Failure Import(const Common& common, const ImportWanted& wanted) {
  standard::Standard from = standard::Standard::kRfc8519;
  standard::ImportOptions options;
  if (Failure failure = ReadOptions(wanted, &from, &options)) return failure;
  std::string text;
  if (Failure failure = ReadFile(wanted.path, &text)) return failure;
  const std::string what = wanted.path == "-" ? "standard input" : wanted.path;
  standard::Document document;
  std::string wrong = document.Read(text);
  standard::AccessLists lists;
  if (wrong.empty()) {
    wrong = from == standard::Standard::kOpenConfig
                ? ReadOpenConfig(document, options.most_entries, &lists)
                : ReadRfc8519(document, options.most_entries, &lists);
  }
  if (!wrong.empty()) return {kFile, what + " cannot be imported: " + host::LogText(wrong), {}};
  standard::Report report;
  standard::Document ours;
  WriteConfiguration(ToProfiles(lists, options, &report), &ours);
  Failure loss = TellReport(report, wanted.loss, what);
  if (loss && loss.code != kLossy) return loss;
  const bool handed_on = wanted.check || wanted.diff || wanted.apply;
  const bool xml = common.form == Form::kXml && !handed_on;
  text = ours.Print(xml ? standard::Format::kXml : standard::Format::kJson);
  if (!handed_on) {
    std::fputs(text.c_str(), stdout);
  } else if (Failure failure = HandOn(common, wanted, std::move(text))) {
    return failure;
  }
  return loss;
}

Run SetUpImport(Syntax* syntax) {
  const auto wanted = std::make_shared<ImportWanted>();
  syntax->Option("--from", "MODEL", &wanted->from, "rfc8519, rfc9899 or openconfig");
  syntax->Operand("FILE", &wanted->path, "access lists in JSON or XML; - is standard input",
                  Names::kFiles);
  AddLossOptions(syntax, &wanted->loss);
  syntax->Option("--end", "ACTION", &wanted->end,
                 "what lists do with what no entry matches: deny (the default) or permit");
  syntax->Option("--priority", "N", &wanted->priority,
                 "priority of the first profile, the others following 10 apart (100)");
  syntax->Option("--most", "N", &wanted->most,
                 "how many entries one may become, as for a range of ports (256)");
  syntax->Flag("--check", &wanted->check, "only tell what the daemon would say to it");
  syntax->Flag("--diff", &wanted->diff, "only show what it would change");
  syntax->Flag("--apply", &wanted->apply, "commit it");
  syntax->Flag("--replace", &wanted->replace, "with these: it replaces the running configuration");
  AddCommitOptions(syntax, &wanted->commit);
  return [wanted](const Common& common) { return Import(common, *wanted); };
}

}  // namespace

const Command kImport = {"import",
                         Group::kConfigure,
                         "convert access lists of RFC 8519, RFC 9899 or OpenConfig",
                         "aclctl import --from rfc8519 lists.json >lists.acl.json\n"
                         "aclctl import --from openconfig --check lists.json",
                         SetUpImport,
                         kXml};

}  // namespace aclctl
