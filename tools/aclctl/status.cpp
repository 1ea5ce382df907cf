// aclctl show status, and aclctl recover.
#include <cstdio>

#include "tools/aclctl/commands.h"
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

Failure Recover(Client* client, const std::string& input) {
  host::Tree reply;
  Failure failure = client->Call("<recover xmlns=\"urn:acl-app:status\">" + input + "</recover>",
                                 &reply, nullptr);
  if (failure.code == kRefused) failure.message = "the daemon refused; nothing was changed";
  if (failure) return failure;
  std::printf("commit %s ends the doubt\n", ChildText(reply.get(), "id").c_str());
  CommitReport report;
  return report.Read(client);
}

}  // namespace

Failure ShowStatus(const Arguments& arguments) {
  Client client;
  if (Failure failure = client.Open(arguments.socket)) return failure;
  std::string data;
  host::Tree reply;
  const lyd_node* daemon = nullptr;
  if (Failure failure =
          FetchState(&client, "<daemon xmlns=\"urn:acl-app:status\"/>", &data, &reply, &daemon)) {
    return failure;
  }
  if (arguments.json || arguments.xml) return PrintData(arguments, &client, "acl-app-status", data);
  Table table({{"PART"}, {"STATE"}, {"DETAIL"}});
  for (const lyd_node* part : Children(daemon, "part"))
    table.AddRow({ChildText(part, "name"), ChildText(part, "state"), ChildText(part, "text")});
  std::fputs(table.Print().c_str(), stdout);
  const lyd_node* storage = FindChild(daemon, "storage");
  if (ChildText(storage, "state") == "in-doubt") PrintDoubt(storage);
  return {};
}

Failure RecoverAccept(const Arguments& arguments) {
  const std::string& id = arguments.operands[0];
  if (id.empty() || id.size() > 19 || id.find_first_not_of("0123456789") != std::string::npos)
    return {kUsage, "a commit must be a number, not \"" + id + "\"", {}};
  Client client;
  if (Failure failure = client.Open(arguments.socket)) return failure;
  return Recover(&client, "<accept>" + id + "</accept>");
}

Failure RecoverEmpty(const Arguments& arguments) {
  Client client;
  if (Failure failure = client.Open(arguments.socket)) return failure;
  return Recover(&client, "<empty/>");
}

Failure RecoverWith(const Arguments& arguments) {
  Client client;
  std::string config;
  if (Failure failure = OpenWithEdit(arguments, &client, &config)) return failure;
  return Recover(&client, "<config>" + config + "</config>");
}

}  // namespace aclctl
