// The process's one configuration handler: takes the configuration in, has it submitted, publishes
// what it uses.
//
// At the start the framework calls LoadInitialConfig(), which reads the whole configuration through
// a session and submits it. On every later commit it calls StartCommit(), then one of the two
// diff-iteration callbacks per changed node, then ApplyCommitConfig(). A callback changes the model
// at once; the changed model is submitted as a whole when the commit is applied.
//
// No failure reaches the framework: commits cannot be refused here. Everything is logged.
//
// The class is spread over several files, one per concern:
//   confd_manager.cpp          construction, subscriptions, initial load and commit cycle
//   keypath.cpp                what a keypath names
//   load_profiles.cpp          initial load of profiles and entries
//   load_matches_actions.cpp   initial load of an entry's matches and actions
//   load_interfaces.cpp        initial load of interfaces and bindings
//   profile_changes.cpp        changes of profiles, priorities, entries and actions
//   match_changes.cpp          changes of matches
//   interface_changes.cpp      changes of interfaces and bindings
//   resource_status.cpp        publishing the use of filter entries
#ifndef CONFD_CONFD_MANAGER_H_
#define CONFD_CONFD_MANAGER_H_

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "filter/acl_filter.h"
#include "platform/confd/confd_cdb.h"
#include "platform/confd/confd_lib.h"
#include "platform/filter_mgr/filter_mgr_client.h"
#include "platform/qzconfd/qzconfd.h"

struct zlog_category_s;

namespace acl_app {

class ConfDManager : public qzconfd::ConfigHandler {
 public:
  // `log` is the trace category. The client is not owned and must outlive every submission.
  ConfDManager(zlog_category_s* log, FilterMgrClientApi::FilterMgrClient* fmc);
  // Without a filter the process ends.
  ConfDManager(zlog_category_s* log, std::shared_ptr<AclFilter> filter);
  // The subscriptions' callbacks are bound to the object.
  ConfDManager(const ConfDManager&) = delete;
  ConfDManager& operator=(const ConfDManager&) = delete;

  // Framework callbacks. `cdbSocket` is a session with the running datastore.
  void LoadInitialConfig(int cdbSocket) override;
  void ApplyInitialConfig() override;
  void StartCommit() override;
  void ApplyCommitConfig() override;
  const std::vector<qzconfd::SubscriptionPoint>& GetSubscriptionPoints() const override;

  // Diff-iteration callbacks, once per changed node of their subtree.
  confd_iter_ret AclProfilesDiffIt(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* oldv,
                                   confd_value_t* newv);
  confd_iter_ret AclInterfacesDiffIt(confd_hkeypath_t* kp, confd_iter_op op, confd_value_t* oldv,
                                     confd_value_t* newv);

  // 1 when the database's transaction id is not the one last loaded, which it then becomes; else 0.
  int IsThereNewCdbConfig(int cdbSocket);
  // Loads everything and submits it. 0, or the code of the first step that failed.
  int LoadConfdAcl(int cdbSocket);

  // Initial load. 0, or a code as each definition says; every failure is logged.
  int LoadAclProfiles(int sock);
  int LoadConfdAce(int sock, const char* aclName, std::string entriesPath);
  int LoadConfdMatches(int sock, const char* aclName, int entryPrio, const std::string& entryPath);
  int LoadConfdActions(int sock, const char* aclName, int entryPrio, const std::string& entryPath);
  int LoadAclInterfaces(int sock);

  // One change each, applied to the model at once.
  confd_iter_ret HandleAcl(const confd_hkeypath_t* kp, confd_iter_op op);
  confd_iter_ret HandleAclPrio(const confd_hkeypath_t* kp, confd_iter_op op,
                               const confd_value_t* newv);
  confd_iter_ret HandleEntry(const confd_hkeypath_t* kp, confd_iter_op op);
  confd_iter_ret HandleMatch(int sock, const confd_hkeypath_t* kp, confd_iter_op op,
                             const confd_value_t* newv);
  confd_iter_ret HandleAction(const confd_hkeypath_t* kp, confd_iter_op op,
                              const confd_value_t* newv);
  confd_iter_ret HandleInterface(const confd_hkeypath_t* kp, confd_iter_op op);
  confd_iter_ret HandleInterfaceAcl(const confd_hkeypath_t* kp, confd_iter_op op,
                                    const confd_value_t* newv);

  // What a keypath names. 0, or -1 when it is too short or has no tag where one must be. A key of
  // another type than the schema gives ends the process.
  int GetAclNameFromKeypath(const confd_hkeypath_t* kp, std::string& name) const;
  int GetAclTypeFromKeypath(const confd_hkeypath_t* kp, int& type) const;
  int GetEntryPrioFromKeypath(const confd_hkeypath_t* kp, int& prio) const;
  int GetActionTypeFromKeypath(const confd_hkeypath_t* kp,
                               FiltersCommon::filtersAction_t& kind) const;
  int GetMatchXmltagFromKeypath(const confd_hkeypath_t* kp, int& xmltag) const;
  // Leaves `kind` alone, and succeeds, for a tag that is no match.
  int GetMatchTypeFromKeypath(const confd_hkeypath_t* kp, aclFiltersMatch_t& kind) const;
  int GetModifiedNodeFromKeypath(const confd_hkeypath_t* kp, confd_value_t* node) const;
  int GetInterfaceNameFromKeypath(const confd_hkeypath_t* kp, std::string& name) const;

  // Resets the published status to the capacity and nothing used. 0, or -1 when the feature model
  // or the removal of a list failed.
  int ClearAclResources();
  // Publishes what the last merge used.
  void UpdateAclResources();
  void UpdateGlobalResourcesData(int sock, unsigned int l2Capacity, unsigned int l2Used,
                                 unsigned int l3Capacity, unsigned int l3Used);
  // `base` is the path of one layer of an interface, with a "%s" for its name. `total` becomes the
  // sum over all interfaces.
  void UpdateInterfaceResourcesData(int sock, const ResourceMap& usage, const char* base,
                                    unsigned int& total);
  // `base` is the path of one layer.
  void UpdateProfileResourcesData(int sock, const ResourceMap& usage, const char* base);

 private:
  friend class ConfDManagerTestPeer;  // the tests' way to the members

  // The start of both diff-iteration callbacks: limits the sessions' waiting time, marks the commit
  // as one that changes something, logs the path, finds the changed node's tag. False when the
  // keypath has none.
  bool BeginChange(const char* function, int sock, const confd_hkeypath_t* kp, uint32_t* tag);

  cdb_txid last_txid_;  // of the configuration last loaded
  std::shared_ptr<AclFilter> filter_;
  bool changed_ = false;  // a change came since the last StartCommit()
  std::vector<qzconfd::SubscriptionPoint> subscription_points_;
  zlog_category_s* log_;
};

}  // namespace acl_app

#endif  // CONFD_CONFD_MANAGER_H_
