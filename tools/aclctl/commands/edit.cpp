// aclctl edit: the configuration, or a profile of it, in the operator's editor.
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/commands/findings.h"
#include "tools/aclctl/commit_edit.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/difference_text.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/running.h"
#include "tools/aclctl/schema.h"
#include "tools/aclctl/terminal.h"

namespace aclctl {
namespace {

struct EditWanted {
  std::string profile;  // empty: all of them
  bool yes = false;
  CommitOptions options;
};

constexpr char kExplanation[] =
    "# A line is a statement; what has no line any more is deleted. Lines that begin with # are\n"
    "# left out. \"aclctl set --help\" tells more.\n";
constexpr char kMark[] = "#! ";  // begins lines that say what was wrong; they go with the next try

// The file that is edited. It stays when the command ends without having applied it.
class Draft {
 public:
  Draft() {
    const char* const directory = std::getenv("TMPDIR");
    path_ = std::string(directory != nullptr ? directory : "/tmp") + "/aclctl-edit.XXXXXX";
    const int fd = mkstemp(path_.data());
    made_ = fd >= 0;
    if (made_) close(fd);
  }
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;
  ~Draft() {
    if (made_ && !kept_) unlink(path_.c_str());
  }

  bool made() const { return made_; }
  const std::string& path() const { return path_; }
  void Keep() { kept_ = true; }

  bool Write(const std::string& text) const {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path_.c_str(), "w"),
                                                               std::fclose);
    return file != nullptr && std::fwrite(text.data(), 1, text.size(), file.get()) == text.size() &&
           std::fflush(file.get()) == 0;
  }

 private:
  std::string path_;
  bool made_ = false;
  bool kept_ = false;
};

// The operator's editor; null where it is not known and there is no terminal for another.
const char* Editor() {
  for (const char* name : {"VISUAL", "EDITOR"}) {
    const char* const editor = std::getenv(name);
    if (editor != nullptr && *editor != 0) return editor;
  }
  return isatty(STDIN_FILENO) != 0 ? "vi" : nullptr;
}

// Opens the editor and waits for its end. Whether it ended well.
bool RunEditor(const char* editor, const std::string& path) {
  const KeysForOther keys;
  const pid_t process = fork();
  if (process == 0) {
    keys.GiveTo();
    // The editor may be given with options, so it is for the shell to take it apart.
    const std::string command = std::string(editor) + " \"$1\"";
    execl("/bin/sh", "sh", "-c", command.c_str(), "sh", path.c_str(), nullptr);
    _exit(127);
  }
  int status = -1;
  while (process > 0 && waitpid(process, &status, 0) < 0 && errno == EINTR) {
  }
  return process > 0 && WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

// The answer to a question: the first letter, 0 at the end of the input.
char Ask(const char* question) {
  std::fprintf(stderr, "%s ", question);
  std::fflush(stderr);
  char line[64];
  return std::fgets(line, sizeof(line), stdin) != nullptr ? line[0] : 0;
}

std::string WithoutMarks(const std::string& text) {
  std::string kept;
  for (size_t begin = 0; begin < text.size();) {
    const size_t end = std::min(text.find('\n', begin), text.size() - 1) + 1;
    if (text.compare(begin, std::strlen(kMark), kMark) != 0)
      kept += text.substr(begin, end - begin);
    begin = end;
  }
  return kept;
}

std::string WithReason(const Failure& failure, const std::string& text) {
  std::string marked = kMark + failure.message + "\n";
  for (const std::string& detail : failure.details) marked += kMark + detail + "\n";
  return marked + text;
}

class Editing {
 public:
  Editing(Client* client, const ly_ctx* context, const EditWanted& wanted)
      : client_(client), context_(context), wanted_(wanted) {}

  Failure Fetch() {
    Scope scope;
    scope.everything = wanted_.profile.empty();
    if (!scope.everything) {
      scope.profiles[wanted_.profile].all = true;
      scope.all_interfaces = true;
    }
    host::Tree tree;
    if (Failure failure = FetchRunning(client_, context_, scope, &tree)) return failure;
    running_.emplace(context_, std::move(tree));
    return {};
  }

  std::string Text() const {
    if (wanted_.profile.empty()) return InLines(*running_);
    const lyd_node* profile = running_->FindProfile(wanted_.profile);
    if (profile == nullptr) return "set acl " + wanted_.profile + " type l3 priority 100\n";
    return ProfileInLines(profile) + BindingsInLines(*running_, wanted_.profile);
  }

  // Makes the edit that the text asks for. Bindings of other profiles stay.
  Failure Read(const std::string& text, Edit* edit) const {
    std::vector<PlacedStatement> statements;
    if (Failure failure = ReadStatements("text", text, &statements)) return failure;
    ConfigTree wanted = Rest();
    if (Failure failure = ApplyAll(statements, &wanted)) return failure;
    edit->config = EditBetween(*running_, wanted);
    edit->default_operation = "none";
    return {};
  }

 private:
  // What is running without what the text is about.
  ConfigTree Rest() const {
    ConfigTree rest = running_->Copy();
    if (wanted_.profile.empty()) {
      for (lyd_node* profile : rest.Profiles()) lyd_free_tree(profile);
      // No line tells of an interface without bindings, so that none can take it away.
      for (lyd_node* interface : rest.Interfaces()) {
        if (ChildNamed(interface, "ingress") != nullptr) lyd_free_tree(interface);
      }
      return rest;
    }
    lyd_node* profile = rest.FindProfile(wanted_.profile);
    if (profile == nullptr) return rest;
    ApplyStatement({"unbind", wanted_.profile}, &rest);
    ApplyStatement({"delete", "acl", wanted_.profile}, &rest);
    return rest;
  }

  Client* const client_;
  const ly_ctx* const context_;
  const EditWanted& wanted_;
  std::optional<ConfigTree> running_;
};

// Shows what the edit would change, and what would be found in it; fails where it would be refused.
Failure Preview(const Common& common, Client* client, const Edit& edit) {
  host::Tree reply;
  Failure failure = client->Call("<compare xmlns=\"urn:acl-app:history\"><default-operation>" +
                                     edit.default_operation + "</default-operation><config>" +
                                     edit.config + "</config></compare>",
                                 &reply);
  if (failure.code == kRefused) failure.message = "the daemon would refuse this";
  Findings before, then;
  if (!failure) failure = FetchFindings(client, "", &before);
  if (!failure) failure = FetchFindings(client, FindingsInput(edit), &then);
  if (failure) return failure;
  // Standard output is for JSON where that is asked for.
  std::FILE* const to = common.form == Form::kJson ? stderr : stdout;
  std::fputs(PrintDifference(reply.get()).c_str(), to);
  for (const std::string& line : then.Since(before)) {
    std::fprintf(to, "finding: %s\n", line.c_str());
  }
  std::fflush(to);
  return {};
}

// One round in the editor. `*done` when there is nothing more to do.
Failure EditOnce(const Common& common, Client* client, const Editing& editing,
                 const EditWanted& wanted, Draft* draft, bool* done) {
  std::string text;
  if (!RunEditor(Editor(), draft->path())) return {kFile, "the editor failed", {}};
  if (Failure failure = ReadFile(draft->path(), &text)) return failure;
  text = WithoutMarks(text);
  Edit edit;
  edit.what = "this edit";
  Failure failure = editing.Read(text, &edit);
  if (!failure && edit.config.empty()) {
    *done = true;
    std::puts(common.form == Form::kJson ? "{\"result\": \"unchanged\"}" : "nothing to change");
    return {};
  }
  if (!failure) failure = Preview(common, client, edit);
  if (!failure) {
    const char answer = wanted.yes ? 'y' : Ask("Apply this? [y]es, [e]dit again, [n]o:");
    *done = answer != 'e';
    if (answer == 'e') return {};
    if (answer != 'y') {
      draft->Keep();
      std::fprintf(common.form == Form::kJson ? stderr : stdout,
                   "nothing is changed; the text is in %s\n", draft->path().c_str());
      return {};
    }
    failure = CommitEdit(common, client, edit, wanted.options);
    // A commit that stands although its filters are not in force is no reason to edit again.
    if (!failure || failure.code == kNotApplied) return failure;
    *done = false;
  }
  draft->Write(WithReason(failure, text));
  return failure;
}

Failure EditConfig(const Common& common, const EditWanted& wanted) {
  if (Failure failure = CheckCommitOptions(wanted.options)) return failure;
  if (Editor() == nullptr) {
    return {kUsage, "there is no terminal to edit at; EDITOR can name a program that does it", {}};
  }
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::ContextPtr context;
  if (Failure failure = FetchSchema(&client, {"ietf-netconf", "acl-app"}, &context)) return failure;
  Editing editing(&client, context.get(), wanted);
  if (Failure failure = editing.Fetch()) return failure;
  Draft draft;
  if (!draft.made() || !draft.Write(kExplanation + editing.Text())) {
    return {kFile, "cannot write " + draft.path() + ": " + std::strerror(errno), {}};
  }
  while (true) {
    bool done = false;
    Failure failure = EditOnce(common, &client, editing, wanted, &draft, &done);
    if (done) return failure;
    if (!failure) continue;
    const bool again = failure.code == kRefused || failure.code == kFile || failure.code == kUsage;
    std::fprintf(stderr, "aclctl: %s\n", failure.message.c_str());
    for (const std::string& detail : failure.details)
      std::fprintf(stderr, "  %s\n", detail.c_str());
    if (again && Ask("Edit again? [y]es, [n]o:") == 'y') continue;
    draft.Keep();
    return {failure.code, "nothing is changed; the text is in " + draft.path(), {}};
  }
}

Run SetUpEdit(Syntax* syntax) {
  const auto wanted = std::make_shared<EditWanted>();
  syntax->OptionalOperand("PROFILE", &wanted->profile, "this profile and where it is bound alone",
                          Names::kProfiles);
  syntax->Flag("-y,--yes", &wanted->yes, "apply without asking");
  AddCommitOptions(syntax, &wanted->options);
  return [wanted](const Common& common) { return EditConfig(common, *wanted); };
}

}  // namespace

const Command kEdit = {"edit", Group::kConfigure,
                       "edit the configuration in lines, with $VISUAL or $EDITOR",
                       "aclctl edit guests", SetUpEdit};

}  // namespace aclctl
