// aclctl diff and check.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/commands/findings.h"
#include "tools/aclctl/commands/preview.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/difference_text.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

// What messages call the edit.
std::string WhatOf(const EditFile& file) { return file.path == "-" ? "standard input" : file.path; }

// Sends the edit in the file, given back in `*edit`, to the operation `name` of acl-app-history.
Failure Call(const Common& common, const EditFile& file, const std::string& name, Client* client,
             host::Tree* reply, std::string* text, Edit* edit) {
  if (Failure failure = OpenWithEdit(common, file, client, edit)) return failure;
  for (const std::string& note : edit->notes) std::fprintf(stderr, "note: %s\n", note.c_str());
  Failure failure = client->Call("<" + name + " xmlns=\"urn:acl-app:history\"><default-operation>" +
                                     edit->default_operation + "</default-operation><config>" +
                                     edit->config + "</config></" + name + ">",
                                 reply, text);
  if (failure.code == kRefused) {
    failure.message = failure.access_denied ? "access denied: the daemon did not look at "
                                            : "the daemon would refuse ";
    failure.message += WhatOf(file);
  }
  return failure;
}

void PrintGroups(const lyd_node* reply) {
  Table table({{"GROUP"},
               {"CAPACITY", Align::kRight},
               {"USED NOW", Align::kRight},
               {"THEN", Align::kRight},
               {"AVAILABLE", Align::kRight}});
  for (const lyd_node* group : Children(reply, "group")) {
    const std::string capacity = ChildText(group, "capacity");
    const std::string then = ChildText(group, "entries-then");
    const bool known = !capacity.empty() && !then.empty();
    const long long available = std::atoll(capacity.c_str()) - std::atoll(then.c_str());
    table.AddRow({GroupName(group), capacity, ChildText(group, "entries"),
                  then.empty() ? "?" : then, known ? std::to_string(available) : "?"});
  }
  std::fputs(table.Print().c_str(), stdout);
}

Failure RefusalIn(const lyd_node* reply, const std::string& file) {
  Failure failure{kRefused, "the daemon would refuse " + file, {}};
  for (const lyd_node* refusal : Children(reply, "refusal")) {
    const std::string path = ShortPath(ChildText(refusal, "path"));
    failure.details.push_back((path.empty() ? "" : path + ": ") + ChildText(refusal, "message") +
                              " (" + ChildText(refusal, "tag") + ")");
  }
  if (failure.details.empty()) return {};
  return failure;
}

}  // namespace

Failure Diff(const Common& common, const EditFile& file) {
  Client client;
  host::Tree reply;
  std::string text;
  Edit edit;
  if (Failure failure = Call(common, file, "compare", &client, &reply, &text, &edit)) {
    return failure;
  }
  if (common.form == Form::kJson) return PrintOutput(&client, "acl-app-history", "compare", text);
  std::fputs(PrintDifference(reply.get()).c_str(), stdout);
  return {};
}

namespace {

// What became of the configuration between two commits.
Failure DiffCommits(const Common& common, const std::string& from, const std::string& to) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  std::string text;
  Failure failure =
      client.Call("<compare-commits xmlns=\"urn:acl-app:history\"><from>" + from + "</from>" +
                      (to.empty() ? "" : "<to>" + to + "</to>") + "</compare-commits>",
                  &reply, &text);
  if (failure) return failure;
  if (common.form == Form::kJson)
    return PrintOutput(&client, "acl-app-history", "compare-commits", text);
  std::fputs(PrintDifference(reply.get()).c_str(), stdout);
  return {};
}

bool IsNumber(const std::string& text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string::npos;
}

// Prints what both replies hold as one object.
Failure PrintJson(Client* client, const std::string& check, const std::string& findings) {
  std::string text, more;
  if (Failure failure = OutputAsJson(client, "acl-app-history", "check", check, &text)) {
    return failure;
  }
  if (!findings.empty()) {
    if (Failure failure =
            OutputAsJson(client, "acl-app-findings", "get-findings", findings, &more)) {
      return failure;
    }
    nlohmann::ordered_json all = nlohmann::ordered_json::parse(text);
    all.update(nlohmann::ordered_json::parse(more));
    text = all.dump(2) + "\n";
  }
  std::fputs(text.c_str(), stdout);
  return {};
}

// What the configuration would have that running has not; where there is any, how much it has in
// all.
void PrintFindings(const Findings& found, const std::vector<std::string>& added) {
  if (!added.empty()) std::putchar('\n');
  for (const std::string& line : added) std::printf("finding: %s\n", line.c_str());
  if (!added.empty() && found.count > added.size()) {
    std::printf("%zu findings in all; aclctl show findings has those of running\n", found.count);
  }
}

}  // namespace

Failure Check(const Common& common, const EditFile& file, bool strict) {
  Client client;
  host::Tree reply;
  std::string text, findings_text;
  Edit edit;
  if (Failure failure = Call(common, file, "check", &client, &reply, &text, &edit)) {
    return failure;
  }
  Failure refusal = RefusalIn(reply.get(), WhatOf(file));
  Findings before, then;
  if (!refusal) {
    if (Failure failure = FetchFindings(&client, "", &before)) return failure;
    if (Failure failure = FetchFindings(&client, FindingsInput(edit), &then, &findings_text)) {
      return failure;
    }
  }
  const std::vector<std::string> added = then.Since(before);
  if (strict && !added.empty()) {
    refusal = {kRefused, "apply --strict would refuse " + WhatOf(file) + " for what is found in it",
               added};
  }
  if (common.form == Form::kJson) {
    if (Failure failure = PrintJson(&client, text, findings_text)) return failure;
    return refusal;
  }
  PrintGroups(reply.get());
  if (!then.cost.empty()) std::printf("%s\n", then.cost.c_str());
  if (refusal) return refusal;
  PrintFindings(then, added);
  std::printf("\n%s would be accepted, changes: %s\n", WhatOf(file).c_str(),
              ChildText(reply.get(), "changes").c_str());
  return {};
}

namespace {

Run SetUpCheck(Syntax* syntax) {
  const auto file = std::make_shared<EditFile>();
  const auto strict = std::make_shared<bool>(false);
  AddEditFile(syntax, file.get());
  syntax->Flag("--strict", strict.get(), "refuse what has findings that running does not have");
  return [file, strict](const Common& common) { return Check(common, *file, *strict); };
}

Run SetUpDiff(Syntax* syntax) {
  const auto file = std::make_shared<EditFile>();
  const auto to = std::make_shared<std::string>();
  syntax->Operand("FILE|N", &file->path, "a configuration (- is standard input), or a commit",
                  Names::kCommits);
  syntax->OptionalOperand("M", to.get(), "another commit, without which it is the last one",
                          Names::kCommits);
  syntax->Flag("--replace", &file->replace, "the file replaces the running configuration");
  return [file, to](const Common& common) -> Failure {
    if (!IsNumber(file->path)) {
      if (to->empty()) return Diff(common, *file);
      return {kUsage, "diff takes one file, or the numbers of commits", {}};
    }
    if (!to->empty() && !IsNumber(*to)) return {kUsage, "\"" + *to + "\" is no commit", {}};
    return DiffCommits(common, file->path, *to);
  };
}

}  // namespace

const Command kDiff = {"diff",
                       Group::kConfigure,
                       "what a configuration would change, or what has changed since a commit",
                       "aclctl diff examples/branch.json\naclctl diff 3 5",
                       SetUpDiff,
                       kPaged};
const Command kCheck = {
    "check", Group::kConfigure,
    "whether a configuration would be refused, and the filter entries before and after",
    "aclctl check --replace examples/branch.json", SetUpCheck};

}  // namespace aclctl
