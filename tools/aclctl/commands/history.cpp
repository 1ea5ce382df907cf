// aclctl history, show commit and rollback.
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <memory>
#include <utility>

#include "host/xml/xml_text.h"
#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/difference_text.h"
#include "tools/aclctl/outcome.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

// Carries out an operation of acl-app-history.
Failure Call(Client* client, const std::string& name, const std::string& input, host::Tree* reply,
             std::string* text) {
  return client->Call("<" + name + " xmlns=\"urn:acl-app:history\">" + input + "</" + name + ">",
                      reply, text);
}

// Why `text` is no number from `least` to `most`, which `what` can have.
Failure CheckNumber(const std::string& text, const char* what, uint64_t least, uint64_t most) {
  uint64_t number = 0;
  const char* const end = text.data() + text.size();
  const auto [read_to, error] = std::from_chars(text.data(), end, number);
  if (error == std::errc() && read_to == end && number >= least && number <= most) return {};
  return {kUsage,
          std::string(what) + " must be a number from " + std::to_string(least) + " to " +
              std::to_string(most) + ", not \"" + text + "\"",
          {}};
}

Failure CheckCommit(const std::string& id) {
  if (!CheckNumber(id, "", 1, std::numeric_limits<uint64_t>::max())) return {};
  return {kUsage, "\"" + id + "\" is not the number of a commit", {}};
}

Failure History(const Common& common, const std::string& most) {
  if (Failure failure = CheckNumber(most, "the number of commits", 1, 10000)) return failure;
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  std::string text;
  if (Failure failure = Call(&client, "get-history", "<most>" + most + "</most>", &reply, &text)) {
    return failure;
  }
  if (common.form == Form::kJson)
    return PrintOutput(&client, "acl-app-history", "get-history", text);
  Table table({{"COMMIT", Align::kRight},
               {"TIME (UTC)"},
               {"USER"},
               {"SESSION", Align::kRight},
               {"CHANGES", Align::kRight},
               {"COMMENT", Align::kLeft, true}});
  for (const lyd_node* commit : Children(reply.get(), "commit")) {
    table.AddRow({ChildText(commit, "id"), ShortTime(ChildText(commit, "time")),
                  ChildText(commit, "user"), ChildText(commit, "session"),
                  ChildText(commit, "changes"), ChildText(commit, "comment")});
  }
  std::fputs(table.Print().c_str(), stdout);
  return {};
}

Failure ShowCommit(const Common& common, const std::string& id) {
  if (Failure failure = CheckCommit(id)) return failure;
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  std::string text;
  if (Failure failure = Call(&client, "get-commit", "<id>" + id + "</id>", &reply, &text)) {
    return failure;
  }
  if (common.form == Form::kJson)
    return PrintOutput(&client, "acl-app-history", "get-commit", text);
  const std::string comment = ChildText(reply.get(), "comment");
  std::printf("commit %s by %s (session %s), %s UTC%s%s\n", id.c_str(),
              ChildText(reply.get(), "user").c_str(), ChildText(reply.get(), "session").c_str(),
              ShortTime(ChildText(reply.get(), "time")).c_str(), comment.empty() ? "" : ": ",
              comment.c_str());
  std::fputs(PrintDifference(reply.get()).c_str(), stdout);
  return {};
}

Failure Rollback(const Common& common, const std::string& id, const std::string& comment) {
  if (Failure failure = CheckCommit(id)) return failure;
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  std::string text;
  CommitReport report;
  if (Failure failure = report.Begin(&client)) return failure;
  Failure failure =
      Call(&client, "rollback",
           "<id>" + id + "</id>" + (comment.empty() ? "" : host::XmlElement("comment", comment)),
           &reply, &text);
  if (failure.code == kRefused) {
    failure.message =
        "the daemon refused to go back to commit " + id + "; the configuration is unchanged";
  }
  if (failure) return failure;
  const std::string made = ChildText(reply.get(), "id");
  if (common.form == Form::kJson) {
    if (Failure not_printed = PrintOutput(&client, "acl-app-history", "rollback", text))
      return not_printed;
  } else if (made.empty()) {
    std::printf("the configuration is that of commit %s already\n", id.c_str());
  } else {
    std::printf("commit %s: the configuration is that of commit %s again\n", made.c_str(),
                id.c_str());
  }
  return report.Read(&client);
}

Run SetUpHistory(Syntax* syntax) {
  const auto most = std::make_shared<std::string>("20");
  syntax->Option("-n", "N", most.get(), "how many (default 20)");
  return [most](const Common& common) { return History(common, *most); };
}

Run SetUpShowCommit(Syntax* syntax) {
  const auto id = std::make_shared<std::string>();
  syntax->Operand("N", id.get(), "the commit's number", Names::kCommits);
  return [id](const Common& common) { return ShowCommit(common, *id); };
}

Run SetUpRollback(Syntax* syntax) {
  const auto words = std::make_shared<std::pair<std::string, std::string>>();
  syntax->Operand("N", &words->first, "the commit's number", Names::kCommits);
  syntax->Option("-m,--comment", "TEXT", &words->second, "why: kept in the history");
  return [words](const Common& common) { return Rollback(common, words->first, words->second); };
}

}  // namespace

const Command kHistory = {
    "history",    Group::kCommits, "the last commits: who, when, how much", "aclctl history -n 5",
    SetUpHistory, kPaged};
const Command kShowCommit = {"show commit",          Group::kCommits, "what a commit changed",
                             "aclctl show commit 3", SetUpShowCommit, kPaged};
const Command kRollback = {"rollback", Group::kCommits,
                           "make the configuration what it was after a commit", "aclctl rollback 3",
                           SetUpRollback};

}  // namespace aclctl
