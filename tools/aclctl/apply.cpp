// aclctl apply.
#include "tools/aclctl/commands.h"
#include "tools/aclctl/edit_file.h"

namespace aclctl {

Failure Apply(const Arguments& arguments) {
  Client client;
  std::string config;
  if (Failure failure = OpenWithEdit(arguments, &client, &config)) return failure;
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
  return failure;
}

}  // namespace aclctl
