// aclctl show status, and aclctl recover.
#include <cstdio>
#include <memory>
#include <optional>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/outcome.h"
#include "tools/aclctl/schema.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

// What an operator has to know of a state in doubt, and can do about it.
void PrintDoubt(const lyd_node* storage) {
  std::puts("\nThe stored configuration is in doubt, and nothing can be changed:");
  for (const lyd_node* reason : Children(storage, "reason"))
    std::printf("  %s\n", std::string(host::XmlText(reason)).c_str());
  const std::string found = ChildText(storage, "found");
  if (FindChild(storage, "filters-held") != nullptr)
    std::puts("The filters that were in force at the start stay as they are.");
  std::puts("Stop the daemon, put the right files back and start it again; or go on with");
  if (!found.empty()) {
    std::printf("  aclctl recover accept %-4s what was found%s (aclctl show config)\n",
                found.c_str(),
                FindChild(storage, "damaged") != nullptr ? ", although it is damaged" : "");
  }
  std::puts("  aclctl recover with FILE   the configuration in a file");
  std::puts("  aclctl recover empty       no configuration, and no filters");
}

Failure Recover(const Common& common, Client* client, const std::string& input) {
  host::Tree reply;
  Failure failure = client->Call("<recover xmlns=\"urn:acl-app:status\">" + input + "</recover>",
                                 &reply, nullptr);
  if (failure.code == kRefused) failure.message = "the daemon refused; nothing was changed";
  if (failure) return failure;
  CommitReport report;
  if (common.form == Form::kText)
    std::printf("commit %s ends the doubt\n", ChildText(reply.get(), "id").c_str());
  failure = report.Read(client);
  if (common.form == Form::kJson) report.PrintJson();
  return failure;
}

std::optional<Colour> StateColour(const std::string& state) {
  if (state == "ok") return std::nullopt;
  return state == "warning" ? Colour::kYellow : Colour::kRed;
}

Failure ShowStatus(const Common& common) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  std::string data;
  host::Tree reply;
  const lyd_node* daemon = nullptr;
  if (Failure failure =
          FetchState(&client, "<daemon xmlns=\"urn:acl-app:status\"/>", &data, &reply, &daemon)) {
    return failure;
  }
  if (common.form != Form::kText) return PrintData(common.form, &client, "acl-app-status", data);
  Table table({{"PART"}, {"STATE"}, {"DETAIL", Table::Align::kLeft, true}});
  for (const lyd_node* part : Children(daemon, "part"))
    table.AddRow({ChildText(part, "name"), ChildText(part, "state"), ChildText(part, "text")},
                 StateColour(ChildText(part, "state")));
  std::fputs(table.Print().c_str(), stdout);
  const lyd_node* storage = FindChild(daemon, "storage");
  if (ChildText(storage, "state") == "in-doubt") PrintDoubt(storage);
  return {};
}

Failure RecoverAccept(const Common& common, const std::string& id) {
  if (id.empty() || id.size() > 19 || id.find_first_not_of("0123456789") != std::string::npos)
    return {kUsage, "a commit must be a number, not \"" + id + "\"", {}};
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  return Recover(common, &client, "<accept>" + id + "</accept>");
}

Failure RecoverEmpty(const Common& common) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  return Recover(common, &client, "<empty/>");
}

Failure RecoverWith(const Common& common, const EditFile& file) {
  Client client;
  Edit edit;
  if (Failure failure = OpenWithEdit(common, file, &client, &edit)) return failure;
  return Recover(common, &client, "<config>" + edit.config + "</config>");
}

Run SetUpAccept(Syntax* syntax) {
  const auto id = std::make_shared<std::string>();
  syntax->Operand("N", id.get(), "the commit, as show status tells it");
  return [id](const Common& common) { return RecoverAccept(common, *id); };
}

Run SetUpWith(Syntax* syntax) {
  const auto file = std::make_shared<EditFile>();
  file->replace = true;
  syntax->Operand("FILE", &file->path, "a configuration: JSON, XML or lines; - is standard input",
                  Names::kFiles);
  return [file](const Common& common) { return RecoverWith(common, *file); };
}

}  // namespace

const Command kShowStatus = {"show status",
                             Group::kLook,
                             "how the daemon is: what to look at first",
                             "aclctl show status",
                             [](Syntax* /*syntax*/) -> Run { return ShowStatus; },
                             kXml | kPaged};
const Command kRecoverAccept = {"recover accept", Group::kRecover,
                                "go on with the stored configuration that was found",
                                "aclctl recover accept 12", SetUpAccept};
const Command kRecoverWith = {"recover with", Group::kRecover,
                              "go on with the configuration in a file",
                              "aclctl recover with backup.json", SetUpWith};
const Command kRecoverEmpty = {
    "recover empty", Group::kRecover, "go on with no configuration, and no filters",
    "aclctl recover empty", [](Syntax* /*syntax*/) -> Run { return RecoverEmpty; }};

}  // namespace aclctl
