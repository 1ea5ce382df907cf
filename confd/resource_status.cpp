// Publishing the use of filter entries in the operational datastore, below /status/acl-resources.
//
// Status is a service to operators: a failure to write it is a fault, and the next write is still
// made.
#include <cstdio>

#include "app/fault.h"
#include "confd/confd_manager.h"
#include "platform/feature_model/feature_model.h"

namespace acl_app {
namespace {

const char kFile[] = "confd_manager";  // under which faults are reported
const char kInterfaceEntry[] = "/status/acl-resources/interface{%s}";
const char kProfileEntry[] = "/profile{%s}";
const char kProfileUsed[] = "/profile{%s}/used-entries";
const char kTotal[] = "/total";

// A path format made of a base and what follows it.
class PathFormat {
 public:
  PathFormat(const char* base, const char* suffix) {
    std::snprintf(text_, sizeof(text_), "%s%s", base, suffix);
  }
  const char* get() const { return text_; }

 private:
  char text_[192];
};

// Sets a counter; the path is a format with its keys. Returns the result of cdb_set_elem().
template <class... Keys>
int SetCounter(int sock, unsigned int number, const char* path, Keys... keys) {
  confd_value_t value = {};
  value.type = C_UINT32;
  value.val.u32 = number;
  // NOLINTNEXTLINE(clang-diagnostic-format-security): without keys the path is one of the above
  return cdb_set_elem(sock, &value, path, keys...);
}

// Makes sure that a list entry is there. False when it cannot be created.
template <class... Keys>
bool EnsureEntry(int sock, const char* path, Keys... keys) {
  return cdb_exists(sock, path, keys...) != 0 || cdb_create(sock, path, keys...) == CONFD_OK;
}

// Publishes what one profile uses, in the list of profiles below `base`; `keys` are those of `base`
// and the profile's name.
template <class... Keys>
void PublishProfile(const char* function, int sock, const char* base, unsigned int used,
                    Keys... keys) {
  if (!EnsureEntry(sock, PathFormat(base, kProfileEntry).get(), keys...)) {
    RaiseFault(function, kFile, __LINE__, "Failed (%s)", confd_lasterr());
    return;
  }
  if (SetCounter(sock, used, PathFormat(base, kProfileUsed).get(), keys...) != CONFD_OK) {
    RaiseFault(function, kFile, __LINE__, "Failed setting used entries on path (%s)",
               confd_lasterr());
  }
}

// The number of entries that a group of the card holds. False, and a fault, when the feature model
// cannot tell.
bool ReadCapacity(const char* function, unsigned int* capacity) {
  if (fm_init() != 0) {
    RaiseFault(function, kFile, __LINE__, "Failed initializing Feature Model on ConfDManager::%s()",
               function);
    return false;
  }
  fm_slot_t slot = {};
  if (fm_local_slot(&slot) != 0) {
    RaiseFault(function, kFile, __LINE__,
               "Failed getting local slot from Feature Model on ConfDManager::%s()", function);
    return false;
  }
  *capacity = 0;
  fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(&slot, capacity);
  return true;
}

}  // namespace

int ConfDManager::ClearAclResources() {
  unsigned int capacity = 0;
  if (!ReadCapacity(__func__, &capacity)) return -1;
  const QzConfdStatusSession session(Interface());
  const int sock = session.Socket();

  static const struct {
    const char* list;
    const char* fault;
  } kLists[] = {
      {"/status/acl-resources/l2/profile", "Failed removing ACL L2 profile resources data (%s)"},
      {"/status/acl-resources/l3/profile", "Failed removing ACL L3 profile resources data (%s)"},
      {"/status/acl-resources/interface", "Failed removing ACL interfaces resources data (%s)"},
  };
  for (const auto& [list, fault] : kLists) {
    if (cdb_num_instances(sock, "%s", list) != 0 && cdb_delete(sock, "%s", list) != CONFD_OK) {
      RaiseFault(__func__, kFile, __LINE__, fault, confd_lasterr());
      return -1;
    }
  }
  if (SetCounter(sock, capacity, "/status/acl-resources/l2/entries-capacity") != CONFD_OK) {
    RaiseFault(__func__, kFile, __LINE__, "Failed setting initial L2 entries capacity");
  }
  if (SetCounter(sock, capacity, "/status/acl-resources/l3/entries-capacity") != CONFD_OK) {
    RaiseFault(__func__, kFile, __LINE__, "Failed setting initial L3 entries capacity");
  }
  UpdateGlobalResourcesData(sock, capacity, 0, capacity, 0);
  return 0;
}

void ConfDManager::UpdateAclResources() {
  const ResourceMap& l2 = filter_->getUsedL2Resources();
  const ResourceMap& l3 = filter_->getUsedL3Resources();
  const QzConfdStatusSession session(Interface());
  const int sock = session.Socket();
  unsigned int l2Used = 0;
  unsigned int l3Used = 0;
  UpdateInterfaceResourcesData(sock, l2, "/status/acl-resources/interface{%s}/l2", l2Used);
  UpdateInterfaceResourcesData(sock, l3, "/status/acl-resources/interface{%s}/l3", l3Used);
  UpdateProfileResourcesData(sock, l2, "/status/acl-resources/l2");
  UpdateProfileResourcesData(sock, l3, "/status/acl-resources/l3");

  unsigned int capacity = 0;
  if (!ReadCapacity(__func__, &capacity)) return;
  UpdateGlobalResourcesData(sock, capacity, l2Used, capacity, l3Used);
}

void ConfDManager::UpdateGlobalResourcesData(int sock, unsigned int l2Capacity, unsigned int l2Used,
                                             unsigned int l3Capacity, unsigned int l3Used) {
  // What is available may wrap: use above the capacity is shown, not hidden.
  const struct {
    const char* path;
    unsigned int value;
    const char* fault;
  } counters[] = {
      {"/status/acl-resources/l2/used-entries", l2Used, "Failed setting used L2 entries"},
      {"/status/acl-resources/l3/used-entries", l3Used, "Failed setting used L3 entries"},
      {"/status/acl-resources/l2/available-entries", l2Capacity - l2Used,
       "Failed setting available L2 entries"},
      {"/status/acl-resources/l3/available-entries", l3Capacity - l3Used,
       "Failed setting available L3 entries"},
  };
  for (const auto& [path, value, fault] : counters) {
    if (SetCounter(sock, value, path) != CONFD_OK) {
      RaiseFault(__func__, kFile, __LINE__, "%s", fault);
    }
  }
}

void ConfDManager::UpdateInterfaceResourcesData(int sock, const ResourceMap& usage,
                                                const char* base, unsigned int& total) {
  total = 0;
  for (const auto& [interface, profiles] : usage) {
    const char* interface_key = interface.c_str();
    if (!EnsureEntry(sock, kInterfaceEntry, interface_key)) {
      RaiseFault(__func__, kFile, __LINE__, "Failed creating ACL interface %s resources data",
                 interface_key);
      continue;
    }
    // Summed before anything is written, so that the counts hold even when writes fail.
    unsigned int interface_total = 0;
    for (const auto& [profile, used] : profiles) {
      total += used;
      interface_total += used;
      PublishProfile(__func__, sock, base, used, interface_key, profile.c_str());
    }
    if (SetCounter(sock, interface_total, PathFormat(base, kTotal).get(), interface_key) !=
        CONFD_OK) {
      // One text for both layers.
      RaiseFault(__func__, kFile, __LINE__, "Failed setting used L3 entries (%s)", confd_lasterr());
    }
  }
}

void ConfDManager::UpdateProfileResourcesData(int sock, const ResourceMap& usage,
                                              const char* base) {
  std::map<std::string, unsigned int> sums;
  for (const auto& [interface, profiles] : usage) {
    for (const auto& [profile, used] : profiles) sums[profile] += used;
  }
  for (const auto& [profile, used] : sums) {
    PublishProfile(__func__, sock, base, used, profile.c_str());
  }
}

}  // namespace acl_app
