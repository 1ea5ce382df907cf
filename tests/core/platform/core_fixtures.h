// Fixtures of the core's tests, and the peers through which they reach private members.
#ifndef TESTS_CORE_PLATFORM_CORE_FIXTURES_H_
#define TESTS_CORE_PLATFORM_CORE_FIXTURES_H_

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "app/log.h"
#include "confd/confd_manager.h"
#include "filter/acl_filter.h"
#include "model/acl_cache.h"
#include "tests/core/platform/scripted_platform.h"

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
// of `names` (such as "$leaf") stands for its text, in which there may be further names.
Lines Text(std::string block, const Names& names = {});
// The rows of a table: lines of cells that " | " separates.
std::vector<Lines> Rows(const std::string& block, const Names& names = {});

// The lines of a model: "P pending type 6", "P type 6 priority 10 id 10 stage 1", below each
// profile its entries ("P 5/0 vlan 7 -> deny"), then the interfaces ("eth0 binds P Q").
Lines Dump(acl_app::AclCache& model);

// The model alone.
class ModelTest : public testing::Test {
 protected:
  // CreateMatch() with values by their texts, of which the second may be empty.
  acl_app::aclErr_t CreateMatch(const std::string& profile, int prio, unsigned int kind,
                                const std::string& value1, const std::string& value2 = {});

  ScriptedPlatform platform_;
  acl_app::AclCache model_;
};

// The model as the configuration manager sees it: the real one, behind a record of every change
// that is asked of it ("model CreateEntry P 5", in the platform's record). A script rule for such a
// line gives the result instead, and the model is then not asked.
class RecordingFilter : public acl_app::AclFilter {
 public:
  using AclFilter::AclFilter;

// Overrides an operation: its name, its parameters, and these as arguments.
#define RECORDED(operation, parameters, ...)                                                \
  acl_app::aclErr_t operation parameters override {                                         \
    return Ask([&] { return AclFilter::operation(__VA_ARGS__); }, #operation, __VA_ARGS__); \
  }
  using Name = const std::string&;
  using Kind = acl_app::aclFiltersMatch_t;
  using ActionKind = FiltersCommon::filtersAction_t;
  using ValuePtr = const confd_value_t*;

  RECORDED(CreateAclProfile, (int type, Name name), type, name)
  RECORDED(RemoveAclProfile, (Name name), name)
  RECORDED(SetAclPrio, (Name name, int prio), name, prio)
  RECORDED(CreateEntry, (Name name, int prio), name, prio)
  RECORDED(RemoveEntry, (Name name, int prio), name, prio)
  RECORDED(CreateMatch, (Name name, int prio, Kind kind, ValuePtr value1, ValuePtr value2), name,
           prio, kind, value1, value2)
  RECORDED(RemoveMatch, (Name name, int prio, Kind kind), name, prio, kind)
  RECORDED(CreateAction, (Name name, int prio, ActionKind kind, ValuePtr value), name, prio, kind,
           value)
  RECORDED(RemoveAction, (Name name, int prio, ActionKind kind), name, prio, kind)
  RECORDED(CreateInterface, (Name interface), interface)
  RECORDED(RemoveInterface, (Name interface), interface)
  RECORDED(ClearAclsFromInterface, (Name interface), interface)
  RECORDED(AddAclIntoInterface, (Name interface, Name profile), interface, profile)
  RECORDED(RemoveAclFromInterface, (Name interface, Name profile), interface, profile)
#undef RECORDED
  acl_app::aclErr_t SubmitConfiguration() override {
    return Ask([&] { return AclFilter::SubmitConfiguration(); }, "SubmitConfiguration");
  }

 private:
  template <class Real, class... Args>
  static acl_app::aclErr_t Ask(Real real, const char* operation, const Args&... args) {
    return static_cast<acl_app::aclErr_t>(
        ScriptedPlatform::Get().Call(Line("model", operation, args...), real));
  }
};

// The configuration manager on the recording model, ready for callbacks.
struct ManagerSetup {
  ManagerSetup();
  // The record of what was logged and asked of the model.
  Lines TakeEffects() { return platform_.Take({"log ", "model ", "fault "}); }
  // One changed node: "<operation> <path>[ = <new value>]", where the operation is created,
  // deleted, modified, set, or a digit. The root of the path selects the subscription point.
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
  // Expects a change to give `result` and, after the line with its path, these effects.
  void ExpectChange(const std::string& change, confd_iter_ret result, const Lines& effects);
  // Expects a block of changes (below `root`), each followed by its "log" and "model" lines, to
  // give ITER_RECURSE. Before that, each thing asked of the model is refused once: this ends the
  // change with ITER_CONTINUE, after a log line if " ! " and its text stand behind.
  void RunChanges(const std::string& root, const std::string& block, const Names& names = {});
};

}  // namespace acl_test

#endif  // TESTS_CORE_PLATFORM_CORE_FIXTURES_H_
