// aclctl apply, and the commands of one line: set, delete, bind, unbind, rename, move, renumber.
#include <memory>
#include <utility>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/commit_edit.h"
#include "tools/aclctl/edit_file.h"

namespace aclctl {
namespace {

struct ApplyWanted {
  EditFile file;
  CommitOptions options;
  Statement words;
};

Run SetUpApply(Syntax* syntax) {
  const auto wanted = std::make_shared<ApplyWanted>();
  AddEditFile(syntax, &wanted->file);
  AddCommitOptions(syntax, &wanted->options);
  return [wanted](const Common& common) -> Failure {
    if (Failure failure = CheckCommitOptions(wanted->options)) return failure;
    Client client;
    Edit edit;
    if (Failure failure = OpenWithEdit(common, wanted->file, &client, &edit)) return failure;
    return CommitEdit(common, &client, edit, wanted->options);
  };
}

Failure RunStatement(const Common& common, const ApplyWanted& wanted, const char* verb) {
  if (Failure failure = CheckCommitOptions(wanted.options)) return failure;
  Statement statement = {verb};
  Edit edit;
  for (const std::string& word : wanted.words) statement.push_back(word);
  for (const std::string& word : statement) edit.what += (edit.what.empty() ? "" : " ") + word;
  edit.what = "\"" + edit.what + "\"";
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  if (Failure failure = EditFromStatements(&client, {{"", std::move(statement)}}, &edit)) {
    return failure;
  }
  return CommitEdit(common, &client, edit, wanted.options);
}

// The command of the verb number `index` of Verbs().
template <size_t index>
Run SetUpVerb(Syntax* syntax) {
  const Verb& verb = Verbs()[index];
  const auto wanted = std::make_shared<ApplyWanted>();
  syntax->Operands("WORDS", &wanted->words, 1, verb.form, Names::kEditWords);
  AddCommitOptions(syntax, &wanted->options);
  return [wanted, &verb](const Common& common) { return RunStatement(common, *wanted, verb.verb); };
}

}  // namespace

const Command kApply = {
    "apply", Group::kConfigure, "merge a configuration, or carry out lines, in one commit",
    "aclctl apply --confirm 120 -m 'new branch' examples/branch.json", SetUpApply};
const Command kSet = {
    "set", Group::kConfigure, "make or change a profile or an entry",
    "aclctl set acl guests type l3 priority 20\n"
    "aclctl set acl guests 15 match src 10.0.0.0/8 proto tcp dport 443 action deny",
    SetUpVerb<0>};
const Command kDelete = {"delete", Group::kConfigure, "delete a profile, an entry or part of one",
                         "aclctl delete acl guests 15", SetUpVerb<1>};
const Command kBind = {"bind", Group::kConfigure, "apply a profile to interfaces",
                       "aclctl bind guests access-1 access-2", SetUpVerb<2>};
const Command kUnbind = {"unbind", Group::kConfigure,
                         "take a profile off interfaces, or off all of them",
                         "aclctl unbind guests access-2", SetUpVerb<3>};
const Command kRename = {"rename", Group::kConfigure, "give a profile another name",
                         "aclctl rename acl guests visitors", SetUpVerb<4>};
const Command kMove = {"move", Group::kConfigure, "give an entry another place",
                       "aclctl move acl guests 15 5", SetUpVerb<5>};
const Command kRenumber = {"renumber", Group::kConfigure, "number a profile's entries anew",
                           "aclctl renumber acl guests 10 10", SetUpVerb<6>};

}  // namespace aclctl
