// Committing an edit: see commit_edit.h.
#include "tools/aclctl/commit_edit.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "host/xml/xml_text.h"
#include "tools/aclctl/commands/findings.h"
#include "tools/aclctl/outcome.h"

namespace aclctl {
namespace {

constexpr unsigned kLongestConfirm = 86400;  // a day, in seconds

// Tells who waits at a terminal for a large edit how far it is. Nothing elsewhere, nor for what is
// done before one has read it.
class Progress {
 public:
  explicit Progress(size_t octets) : shown_(octets >= kLarge && isatty(STDERR_FILENO) == 1) {
    if (!shown_) return;
    std::fprintf(stderr, "read: %.1f MB; the daemon checks and commits it\n",
                 static_cast<double>(octets) / (1 << 20));
  }
  // `step` is done.
  void Done(const char* step) const {
    if (!shown_) return;
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start_;
    std::fprintf(stderr, "%s after %.1f s\n", step, took.count());
  }

 private:
  static constexpr size_t kLarge = size_t{256} * 1024;

  const bool shown_;
  const std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

std::string EditConfig(const char* target, const Edit& edit, const std::string& comment) {
  return "<edit-config><target><" + std::string(target) + "/></target><default-operation>" +
         edit.default_operation +
         "</default-operation><error-option>rollback-on-error</error-option><config>" +
         edit.config + "</config>" + comment + "</edit-config>";
}

// By way of the candidate, which is locked meanwhile: a lock is refused where somebody has edited
// the candidate, and takes back what was not committed when the session ends.
Failure CommitToBeConfirmed(Client* client, const Edit& edit, const CommitOptions& options) {
  const std::string commit = "<commit><confirmed/><confirm-timeout>" + options.confirm +
                             "</confirm-timeout><persist>" + kPersistId + "</persist>" +
                             CommentElement(options.comment) + "</commit>";
  host::Tree reply;
  for (const std::string& operation :
       {std::string("<lock><target><candidate/></target></lock>"),
        EditConfig("candidate", edit, ""), commit,
        std::string("<unlock><target><candidate/></target></unlock>")}) {
    if (Failure failure = client->Call(operation, &reply)) return failure;
  }
  return {};
}

// Refuses an edit that would bring findings.
Failure RefuseFindings(Client* client, const Edit& edit, const Findings& before) {
  Findings then;
  if (Failure failure = FetchFindings(client, FindingsInput(edit), &then)) return failure;
  const std::vector<std::string> added = then.Since(before);
  if (added.empty()) return {};
  return {kRefused, edit.what + " is not applied, for what is found in it", added};
}

// Tells the findings that the commit has brought, as warnings. The commit stands without them.
void WarnOfFindings(Client* client, const Findings& before) {
  constexpr size_t kMost = 10;
  Findings after;
  if (FetchFindings(client, "", &after)) return;
  const std::vector<std::string> added = after.Since(before);
  for (size_t i = 0; i < std::min(added.size(), kMost); ++i) {
    std::fprintf(stderr, "aclctl: finding: %s\n", added[i].c_str());
  }
  if (added.size() > kMost) {
    std::fprintf(stderr, "aclctl: and %zu more findings: aclctl show findings\n",
                 added.size() - kMost);
  }
}

// Sends the edit, by the way that the options ask for. An empty one replaces everything, and is
// otherwise nothing.
Failure Send(Client* client, const Edit& edit, const CommitOptions& options) {
  if (edit.config.empty() && edit.default_operation != "replace") return {};
  host::Tree reply;
  Failure failure =
      options.confirm.empty()
          ? client->Call(EditConfig("running", edit, CommentElement(options.comment)), &reply)
          : CommitToBeConfirmed(client, edit, options);
  if (failure.code == kRefused) {
    failure.message = "the daemon refused " + edit.what + "; the configuration is unchanged";
  }
  return failure;
}

}  // namespace

void AddCommitOptions(Syntax* syntax, CommitOptions* options) {
  syntax->Option("-m,--comment", "TEXT", &options->comment, "why: kept in the history");
  syntax->Option("--confirm", "SECONDS", &options->confirm,
                 "take it back after that time, unless \"aclctl confirm\" comes first");
  syntax->Flag("--strict", &options->strict, "do not apply what has findings that running has not");
}

Failure CheckCommitOptions(const CommitOptions& options) {
  if (options.confirm.empty()) return {};
  unsigned seconds = 0;
  const char* const end = options.confirm.data() + options.confirm.size();
  const auto [read_to, error] = std::from_chars(options.confirm.data(), end, seconds);
  if (error == std::errc() && read_to == end && seconds > 0 && seconds <= kLongestConfirm)
    return {};
  return {kUsage,
          "--confirm takes a number of seconds from 1 to " + std::to_string(kLongestConfirm) +
              ", not \"" + options.confirm + "\"",
          {}};
}

std::string CommentElement(const std::string& comment) {
  return comment.empty()
             ? ""
             : "<comment xmlns=\"urn:acl-app:netconf\">" + host::XmlEscape(comment) + "</comment>";
}

Failure CommitEdit(const Common& common, Client* client, const Edit& edit,
                   const CommitOptions& options) {
  for (const std::string& note : edit.notes) std::fprintf(stderr, "note: %s\n", note.c_str());
  const Progress progress(edit.config.size());
  Findings before;
  Failure failure = FetchFindings(client, "", &before);
  if (!failure && options.strict) failure = RefuseFindings(client, edit, before);
  if (failure) return failure;
  CommitReport report;
  failure = report.Begin(client);
  if (!failure) failure = Send(client, edit, options);
  if (failure) return failure;
  progress.Done("checked and committed");
  failure = report.Read(client);
  if (common.form == Form::kJson) report.PrintJson();
  if (failure) return failure;
  progress.Done("applied");
  if (common.form == Form::kJson) return {};
  if (report.id().empty()) {
    std::puts("nothing to change");
  } else {
    std::printf("commit %s applied: %s\n", report.id().c_str(), report.in_force().c_str());
    if (!options.confirm.empty()) {
      std::printf("taken back in %s s, unless: aclctl confirm\n", options.confirm.c_str());
    }
    std::fflush(stdout);  // the commit comes first also where both go to one file
    WarnOfFindings(client, before);
  }
  return {};
}

}  // namespace aclctl
