// Fixtures of the core's tests, and the peers through which they reach private members.
#ifndef TESTS_SUPPORT_CORE_FIXTURES_H_
#define TESTS_SUPPORT_CORE_FIXTURES_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
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

using Model = acl_app::AclCacheTestPeer;
using Names = std::map<std::string, std::string>;

// The lines of a block of text, without empty lines and indentation; a " ; " also ends a line. Each
// of `names` (such as "$leaf") stands for its text.
Lines Text(std::string block, const Names& names = {});
// The rows of a table: lines of cells that " | " separates.
std::vector<Lines> Rows(const std::string& block, const Names& names = {});

// The lines of a model: "P pending type 6", "P type 6 priority 10 id 10 stage 1", below each
// profile its entries ("P 5/0 vlan 7 -> deny"), then the interfaces ("eth0 binds P Q").
Lines Dump(acl_app::AclCache& model);

// The model alone, driven by lines of text.
class ModelTest : public testing::Test {
 protected:
  // Runs one operation by its name and arguments ("CreateMatch P 5 2 u16 100"; a value left out is
  // null, '' is an empty name) and gives its result. "Model" gives the lines of the model.
  std::string Do(const std::string& operation);
  // Runs a table of operations, each with the expected result.
  void Run(const std::string& table, const Names& names = {});

  ScriptedPlatform platform_;
  acl_app::AclCache model_;
};

// The configuration manager on the recording model, ready for callbacks.
struct ManagerSetup {
  ManagerSetup();
  // The record of what was logged and asked of the model.
  Lines TakeEffects() { return platform_.Take({"log ", "model ", "fault "}); }
  // One changed node: "<operation> <path>[ = <new value>]", where the operation is created,
  // deleted, modified, set, or a number. The root of the path selects the subscription point.
  confd_iter_ret Change(const std::string& change);

  ScriptedPlatform platform_;
  acl_app::AclLog log_{platform_.middleware()};
  QzConfdInterface connection_{kSubscriptionSocket};
  FilterMgrClientApi::FilterMgrClient client_{platform_.middleware(), "acl"};
  std::shared_ptr<RecordingFilter> filter_ = std::make_shared<RecordingFilter>(&client_);
  acl_app::ConfDManager manager_{platform_.trace_category(), filter_};
};

class ManagerTest : public testing::Test, protected ManagerSetup {
 protected:
  // Runs a block of changes (as for Change(), below `root`), each followed by the "log" and "model"
  // lines that it makes. Expects these and ITER_RECURSE; then, for each thing asked of the model,
  // that its refusal ends the change with ITER_CONTINUE, after the line that follows as "refused".
  void RunChanges(const std::string& root, const std::string& block, const Names& names = {});
  // The effects of the last change without the line of its path, which is checked here.
  Lines TakeChange();

 private:
  struct ChangeRow {
    std::string change;
    Lines effects;
    std::map<size_t, std::string> refused;  // logged on refusal, by the index of the model's line
  };
  void RunRow(const ChangeRow& row);
};

}  // namespace acl_test

#endif  // TESTS_SUPPORT_CORE_FIXTURES_H_
