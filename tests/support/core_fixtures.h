// Fixtures of the core's tests, and the peers through which they reach private members.
#ifndef TESTS_SUPPORT_CORE_FIXTURES_H_
#define TESTS_SUPPORT_CORE_FIXTURES_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "app/log.h"
#include "confd/confd_manager.h"
#include "model/acl_cache.h"
#include "tests/support/recording_filter.h"
#include "tests/support/scripted_platform.h"

namespace acl_app {

class AclCacheTestPeer {
 public:
  static auto& PreCreated(AclCache& model) { return model.pre_created_profiles_; }
  static auto& Profiles(AclCache& model) { return model.acl_profiles_; }
  static auto& Interfaces(AclCache& model) { return model.interfaces_; }
  static auto& UsedL2(AclCache& model) { return model.used_l2_resources_; }
  static auto& UsedL3(AclCache& model) { return model.used_l3_resources_; }
};

class ConfDManagerTestPeer {
 public:
  static bool& Changed(ConfDManager& manager) { return manager.changed_; }
};

}  // namespace acl_app

namespace acl_test {

using Lines = std::vector<std::string>;

// The model alone, filled by hand.
class ModelTest : public testing::Test {
 protected:
  using Model = acl_app::AclCacheTestPeer;

  // A profile with these entries, with a priority unless that is negative.
  void AddProfile(const std::string& name, int type, int priority,
                  const std::vector<int>& entries = {});
  void Bind(const std::string& interface, const std::vector<std::string>& profiles);
  // The text of one entry of a profile, without its id and priority; "none" when it is not there.
  std::string EntryText(const std::string& profile, int entry_priority);
  // The whole model, for comparisons before and after.
  Lines Dump();

  ScriptedPlatform platform_;
  acl_app::AclCache model_;
};

// The configuration manager on the recording model, ready for callbacks.
class ManagerTest : public testing::Test {
 protected:
  using Model = acl_app::AclCacheTestPeer;

  ManagerTest();
  // The record of what was logged and asked of the model.
  Lines TakeEffects() { return platform_.Take({"log ", "model ", "fault "}); }

  ScriptedPlatform platform_;
  acl_app::AclLog log_{platform_.middleware()};
  QzConfdInterface connection_{kSubscriptionSocket};
  FilterMgrClientApi::FilterMgrClient client_{platform_.middleware(), "acl"};
  std::shared_ptr<RecordingFilter> filter_ = std::make_shared<RecordingFilter>(&client_);
  acl_app::ConfDManager manager_{platform_.trace_category(), filter_};
};

// The lines of a model: its profiles with their entries, and its bindings.
Lines DumpModel(acl_app::AclCache& model);

}  // namespace acl_test

#endif  // TESTS_SUPPORT_CORE_FIXTURES_H_
