// aclctl apply.
#include <cstdio>

#include "tools/aclctl/commands.h"
#include "tools/aclctl/edit_file.h"
#include "tools/aclctl/outcome.h"

namespace aclctl {

Failure Apply(const Arguments& arguments) {
  Client client;
  std::string config;
  if (Failure failure = OpenWithEdit(arguments, &client, &config)) return failure;
  CommitReport report;
  if (Failure failure = report.Begin(&client)) return failure;
  host::Tree reply;
  Failure failure =
      client.Call(std::string("<edit-config><target><running/></target><default-operation>") +
                      (arguments.replace ? "replace" : "merge") +
                      "</default-operation><error-option>rollback-on-error</error-option><config>" +
                      config + "</config></edit-config>",
                  &reply);
  if (failure.code == kRefused) {
    failure.message =
        "the daemon refused " + arguments.operands[0] + "; the configuration is unchanged";
  }
  if (!failure) failure = report.Read(&client);
  if (failure) return failure;
  if (report.id().empty()) {
    std::puts("nothing to change");
  } else {
    std::printf("commit %s applied: %s\n", report.id().c_str(), report.in_force().c_str());
  }
  return {};
}

}  // namespace aclctl
