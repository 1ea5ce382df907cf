// aclctl diff and check.
#include <cstdio>
#include <cstdlib>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/difference_text.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

// Sends the edit in the file to the operation `name` of acl-app-history.
Failure Call(const Arguments& arguments, const std::string& name, Client* client, host::Tree* reply,
             std::string* text) {
  std::string config;
  if (Failure failure = OpenWithEdit(arguments, client, &config)) return failure;
  Failure failure =
      client->Call("<" + name + " xmlns=\"urn:acl-app:history\"><default-operation>" +
                       (arguments.replace ? "replace" : "merge") + "</default-operation><config>" +
                       config + "</config></" + name + ">",
                   reply, text);
  if (failure.code == kRefused) {
    failure.message = failure.access_denied ? "access denied: the daemon did not look at "
                                            : "the daemon would refuse ";
    failure.message += arguments.operands[0];
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
    table.AddRow({ChildText(group, "type") == "l2" ? "L2" : "L3", capacity,
                  ChildText(group, "entries"), then.empty() ? "?" : then,
                  known ? std::to_string(available) : "?"});
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

Failure Diff(const Arguments& arguments) {
  Client client;
  host::Tree reply;
  std::string text;
  if (Failure failure = Call(arguments, "compare", &client, &reply, &text)) return failure;
  if (arguments.json) return PrintOutput(&client, "compare", text);
  std::fputs(PrintDifference(reply.get()).c_str(), stdout);
  return {};
}

Failure Check(const Arguments& arguments) {
  Client client;
  host::Tree reply;
  std::string text;
  if (Failure failure = Call(arguments, "check", &client, &reply, &text)) return failure;
  Failure refusal = RefusalIn(reply.get(), arguments.operands[0]);
  if (arguments.json) {
    if (Failure failure = PrintOutput(&client, "check", text)) return failure;
    return refusal;
  }
  PrintGroups(reply.get());
  if (refusal) return refusal;
  std::printf("\n%s would be accepted, changes: %s\n", arguments.operands[0].c_str(),
              ChildText(reply.get(), "changes").c_str());
  return {};
}

}  // namespace aclctl
