// aclctl diff and check.
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"
#include "tools/aclctl/difference_text.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/table.h"

namespace aclctl {
namespace {

using Align = Table::Align;

// Sends the edit in the file to the operation `name` of acl-app-history.
Failure Call(const Common& common, const EditFile& file, const std::string& name, Client* client,
             host::Tree* reply, std::string* text) {
  std::string config;
  if (Failure failure = OpenWithEdit(common, file, client, &config)) return failure;
  Failure failure =
      client->Call("<" + name + " xmlns=\"urn:acl-app:history\"><default-operation>" +
                       (file.replace ? "replace" : "merge") + "</default-operation><config>" +
                       config + "</config></" + name + ">",
                   reply, text);
  if (failure.code == kRefused) {
    failure.message = failure.access_denied ? "access denied: the daemon did not look at "
                                            : "the daemon would refuse ";
    failure.message += file.path;
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

Failure Diff(const Common& common, const EditFile& file) {
  Client client;
  host::Tree reply;
  std::string text;
  if (Failure failure = Call(common, file, "compare", &client, &reply, &text)) return failure;
  if (common.form == Form::kJson) return PrintOutput(&client, "compare", text);
  std::fputs(PrintDifference(reply.get()).c_str(), stdout);
  return {};
}

Failure Check(const Common& common, const EditFile& file) {
  Client client;
  host::Tree reply;
  std::string text;
  if (Failure failure = Call(common, file, "check", &client, &reply, &text)) return failure;
  Failure refusal = RefusalIn(reply.get(), file.path);
  if (common.form == Form::kJson) {
    if (Failure failure = PrintOutput(&client, "check", text)) return failure;
    return refusal;
  }
  PrintGroups(reply.get());
  if (refusal) return refusal;
  std::printf("\n%s would be accepted, changes: %s\n", file.path.c_str(),
              ChildText(reply.get(), "changes").c_str());
  return {};
}

template <Failure (*run)(const Common& common, const EditFile& file)>
Run SetUp(Syntax* syntax) {
  const auto file = std::make_shared<EditFile>();
  AddEditFile(syntax, file.get());
  return [file](const Common& common) { return run(common, *file); };
}

}  // namespace

const Command kDiff = {"diff",
                       Group::kConfigure,
                       "what applying a configuration would change",
                       "aclctl diff examples/branch.json",
                       SetUp<Diff>,
                       kPaged};
const Command kCheck = {
    "check", Group::kConfigure,
    "whether a configuration would be refused, and the filter entries before and after",
    "aclctl check --replace examples/branch.json", SetUp<Check>};

}  // namespace aclctl
