// The daemon's entry point. It takes no options: everything comes from the configuration database.
#include <string>

#include "app/application.h"
#include "app/fault.h"
#include "app/log.h"

int main() {
  auto* application = new acl_app::Application(std::string("acl-app"));
  acl_app::AclLog::SendDebug("ACL process is running...");
  if (application->Listen() != 0) {
    acl_app::RaiseFault("main", "main", __LINE__, "%s", "");
  }
  acl_app::AclLog::SendDebug("Leaving ACL process...");
  delete application;
  return 0;
}
