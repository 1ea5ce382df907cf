// Initial load of interfaces and what is bound to them.
#include <cstdlib>
#include <sstream>
#include <stdexcept>

#include "app/log.h"
#include "confd/confd_manager.h"
#include "confd/scoped_values.h"
#include "model/value_check.h"

namespace acl_app {
namespace {

const char kSource[] = "confd_manager";  // under which wrong values are reported

struct FreeBuffer {
  void operator()(unsigned char* buffer) const { std::free(buffer); }
};

// Binds every profile of an "ingress" leaf-list. A refused binding is logged and does not stop the
// others; the result is that of the last one, 0 for an empty list.
int BindProfiles(AclFilter* filter, const std::string& interface, const confd_value_t& value) {
  ACL_ASSERT_VALUE_TYPE(&value, C_LIST, kSource);
  const confd_value_t* vp = value.val.list.ptr;
  int rc = 0;
  for (unsigned int i = 0; i < value.val.list.size; ++i) {
    ACL_ASSERT_VALUE_TYPE(&vp[i], C_BUF, kSource);
    const char* profile = reinterpret_cast<const char*>(vp[i].val.buf.ptr);
    rc = filter->AddAclIntoInterface(interface, profile);
    if (rc != ACL_OK) {
      AclLog::SendDebug("Error setting ACL %s into interface %s", profile, interface.c_str());
    }
  }
  return rc;
}

}  // namespace

// The result of the call that decided the last interface's outcome; failures of earlier interfaces
// are only logged. A failed count of the interfaces loads as none.
int ConfDManager::LoadAclInterfaces(int sock) {
  constexpr int kTimeoutSeconds = 10;
  const int count = cdb_num_instances(sock, "/config/access-list/interface/");
  int rc = 0;
  for (int i = 0; i < count; ++i) {
    std::ostringstream instance;
    instance << "/config/access-list/interface/"
             << "[" << i << "]/";
    cdb_set_timeout(sock, kTimeoutSeconds);
    unsigned char* buffer = nullptr;
    int length = 0;
    cdb_get_buf(sock, &buffer, &length, "%s", (instance.str() + "interface-name").c_str());
    const std::unique_ptr<unsigned char, FreeBuffer> owner(buffer);
    // Without a name there is nothing to load the interface as: the schema and the database
    // disagree.
    if (buffer == nullptr) throw std::logic_error("basic_string::_M_construct null not valid");
    const std::string name(reinterpret_cast<const char*>(buffer));

    rc = filter_->CreateInterface(name);
    if (rc != ACL_OK) {
      AclLog::SendDebug("Error creating interface %s", name.c_str());
      continue;
    }
    ScopedValue bindings;
    rc = bindings.Read(sock, instance.str() + "ingress");
    if (rc != CONFD_OK) {
      AclLog::SendDebug("Error getting ACLs related to interface %s", name.c_str());
      continue;
    }
    rc = filter_->ClearAclsFromInterface(name);
    if (rc != ACL_OK) {
      AclLog::SendDebug("Error clearing ACLs of interface %s", name.c_str());
      continue;
    }
    rc = BindProfiles(filter_.get(), name, *bindings.get());
  }
  return rc;
}

}  // namespace acl_app
