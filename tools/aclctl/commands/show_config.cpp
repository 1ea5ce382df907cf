// aclctl show config.
#include "tools/aclctl/commands.h"
#include "tools/aclctl/daemon_data.h"

namespace aclctl {
namespace {

Failure ShowConfig(const Common& common) {
  Client client;
  if (Failure failure = client.Open(common.socket)) return failure;
  host::Tree reply;
  std::string text;
  if (Failure failure =
          client.Call("<get-config><source><running/></source></get-config>", &reply, &text)) {
    return failure;
  }
  // An empty configuration is shown so that `apply --replace` takes it.
  const std::string config = InnerXml(text, "data");
  return PrintData(common.form, &client, "acl-app",
                   config.empty() ? "<config xmlns=\"urn:acl-app:acl\"/>" : config);
}

}  // namespace

const Command kShowConfig = {"show config",
                             Group::kLook,
                             "the running configuration (JSON unless --xml)",
                             "aclctl show config >saved.json\naclctl apply --replace saved.json",
                             [](Syntax* /*syntax*/) -> Run { return ShowConfig; },
                             kXml | kPaged};

}  // namespace aclctl
