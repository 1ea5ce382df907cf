// Publishing the use of filter entries below /status/acl-resources.
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class ResourceStatusTest : public ManagerTest {
 protected:
  // Everything between the opening and the closing of the session, without socket and root.
  Lines TakeStatus() {
    Lines lines = platform_.Take();
    const std::string root = " 101 /status/acl-resources/";
    for (std::string& line : lines) {
      const size_t at = line.find(root);
      if (at != std::string::npos) line.replace(at, root.size(), " ");
    }
    return lines;
  }
  std::string Leaf(const std::string& path) {
    const Value* value = platform_.Find("/status/acl-resources/" + path);
    return value == nullptr ? "absent" : ToText(value->get());
  }
  void SetUsage(acl_app::ResourceMap l2, acl_app::ResourceMap l3) {
    Model::UsedL2(*filter_) = std::move(l2);
    Model::UsedL3(*filter_) = std::move(l3);
  }
};

TEST_F(ResourceStatusTest, ClearLeavesCapacityAndNothingUsed) {
  EXPECT_EQ(manager_.ClearAclResources(), 0);
  const Lines fresh = {"fm_init",
                       "fm_local_slot",
                       "fm_capacity 3 4",
                       "open 101 3 false",
                       "cdb_num_instances l2/profile",
                       "cdb_num_instances l3/profile",
                       "cdb_num_instances interface",
                       "cdb_set_elem l2/entries-capacity = u32 1000",
                       "cdb_set_elem l3/entries-capacity = u32 1000",
                       "cdb_set_elem l2/used-entries = u32 0",
                       "cdb_set_elem l3/used-entries = u32 0",
                       "cdb_set_elem l2/available-entries = u32 1000",
                       "cdb_set_elem l3/available-entries = u32 1000",
                       "close 101"};
  EXPECT_EQ(TakeStatus(), fresh);
  SetUsage({{"e0", {{"P", 3}}}}, {{"e0", {{"Q", 4}}}});
  manager_.UpdateAclResources();
  platform_.Take();
  EXPECT_EQ(manager_.ClearAclResources(), 0);
  Lines cleared = fresh;
  cleared.insert(cleared.begin() + 7, "cdb_delete interface");
  cleared.insert(cleared.begin() + 6, "cdb_delete l3/profile");
  cleared.insert(cleared.begin() + 5, "cdb_delete l2/profile");
  EXPECT_EQ(TakeStatus(), cleared);
  EXPECT_EQ(Leaf("interface{e0}"), "absent");
  platform_.On("cdb_num_instances", -1);
  EXPECT_EQ(manager_.ClearAclResources(), 0);
  EXPECT_EQ(TakeStatus(), cleared) << "an error counts as instances";
}

TEST_F(ResourceStatusTest, ClearFailsWithTheFeatureModelOrADeletion) {
  const std::string prefix = "fault 0 ClearAclResources confd_manager: Failed ";
  const std::string lasterr = std::string(" (") + kLastError + ")";
  const struct {
    const char* call;
    std::string fault;
    size_t calls;
  } rows[] = {
      {"fm_init", "initializing Feature Model on ConfDManager::ClearAclResources()", 1},
      {"fm_local_slot",
       "getting local slot from Feature Model on ConfDManager::ClearAclResources()", 2},
      {"cdb_delete 101 /status/acl-resources/l2/profile",
       "removing ACL L2 profile resources data" + lasterr, 5},
      {"cdb_delete 101 /status/acl-resources/l3/profile",
       "removing ACL L3 profile resources data" + lasterr, 7},
      {"cdb_delete 101 /status/acl-resources/interface",
       "removing ACL interfaces resources data" + lasterr, 9},
  };
  platform_.On("cdb_num_instances", 1);
  for (const auto& row : rows) {
    platform_.On(row.call, -1);
    platform_.FailCall(-1);
    EXPECT_EQ(manager_.ClearAclResources(), -1) << row.call;
    EXPECT_EQ(static_cast<size_t>(platform_.calls()), row.calls) << "ends there";
    EXPECT_THAT(platform_.Take({"fault", "cdb_set_elem"}), ElementsAre(prefix + row.fault));
    platform_.On(row.call, 0);
  }
}

TEST_F(ResourceStatusTest, UpdateWithoutBindingsWritesTheGlobalLeaves) {
  manager_.UpdateAclResources();
  EXPECT_THAT(
      TakeStatus(),
      ElementsAre("open 101 3 false", "fm_init", "fm_local_slot", "fm_capacity 3 4",
                  "cdb_set_elem l2/used-entries = u32 0", "cdb_set_elem l3/used-entries = u32 0",
                  "cdb_set_elem l2/available-entries = u32 1000",
                  "cdb_set_elem l3/available-entries = u32 1000", "close 101"));
}

TEST_F(ResourceStatusTest, UpdateWritesInterfacesThenProfilesThenTotals) {
  SetUsage({{"b", {{"P", 3}}}, {"a 1/%s", {{"P", 2}, {"O%d", 1}}}}, {{"b", {{"Q", 7}}}});
  manager_.UpdateAclResources();
  const Lines record = TakeStatus();
  Lines changes;
  for (const std::string& line : record) {
    if (line.compare(0, 10, "cdb_exists") != 0) changes.push_back(line);
  }
  EXPECT_THAT(
      changes,
      ElementsAre(
          "open 101 3 false", "cdb_create interface{a 1/%s}",
          "cdb_create interface{a 1/%s}/l2/profile{O%d}",
          "cdb_set_elem interface{a 1/%s}/l2/profile{O%d}/used-entries = u32 1",
          "cdb_create interface{a 1/%s}/l2/profile{P}",
          "cdb_set_elem interface{a 1/%s}/l2/profile{P}/used-entries = u32 2",
          "cdb_set_elem interface{a 1/%s}/l2/total = u32 3", "cdb_create interface{b}",
          "cdb_create interface{b}/l2/profile{P}",
          "cdb_set_elem interface{b}/l2/profile{P}/used-entries = u32 3",
          "cdb_set_elem interface{b}/l2/total = u32 3", "cdb_create interface{b}/l3/profile{Q}",
          "cdb_set_elem interface{b}/l3/profile{Q}/used-entries = u32 7",
          "cdb_set_elem interface{b}/l3/total = u32 7", "cdb_create l2/profile{O%d}",
          "cdb_set_elem l2/profile{O%d}/used-entries = u32 1", "cdb_create l2/profile{P}",
          "cdb_set_elem l2/profile{P}/used-entries = u32 5", "cdb_create l3/profile{Q}",
          "cdb_set_elem l3/profile{Q}/used-entries = u32 7", "fm_init", "fm_local_slot",
          "fm_capacity 3 4", "cdb_set_elem l2/used-entries = u32 6",
          "cdb_set_elem l3/used-entries = u32 7", "cdb_set_elem l2/available-entries = u32 994",
          "cdb_set_elem l3/available-entries = u32 993", "close 101"));
  EXPECT_EQ(record[1], "cdb_exists interface{a 1/%s}");
  EXPECT_EQ(record.size(), changes.size() + 10) << "each list entry is looked for first";
  manager_.UpdateAclResources();
  EXPECT_THAT(platform_.Take({"cdb_create"}), IsEmpty()) << "what is there stays";
}

TEST_F(ResourceStatusTest, UseAboveTheCapacityWraps) {
  SetUsage({{"e0", {{"P", 1001}}}}, {});
  manager_.UpdateAclResources();
  EXPECT_EQ(Leaf("l2/available-entries"), "u32 4294967295");
  platform_.On("fm_capacity", -1);
  manager_.UpdateAclResources();
  EXPECT_EQ(Leaf("l3/available-entries"), "u32 0") << "an unknown capacity is 0";
}

TEST_F(ResourceStatusTest, WithoutTheFeatureModelOnlyTheTotalsAreMissing) {
  SetUsage({{"e0", {{"P", 1}}}}, {});
  const std::string prefix = "fault 0 UpdateAclResources confd_manager: Failed ";
  for (const auto& [call, fault] :
       {std::pair("fm_init", "initializing Feature Model on ConfDManager::UpdateAclResources()"),
        std::pair("fm_local_slot",
                  "getting local slot from Feature Model on ConfDManager::UpdateAclResources()")}) {
    platform_.cdb.clear();
    platform_.EndRules();
    platform_.On(call, -1);
    manager_.UpdateAclResources();
    EXPECT_THAT(platform_.Take({"fault"}), ElementsAre(prefix + fault));
    EXPECT_EQ(Leaf("interface{e0}/l2/total"), "u32 1");
    EXPECT_EQ(Leaf("l2/profile{P}/used-entries"), "u32 1");
    EXPECT_EQ(Leaf("l2/used-entries"), "absent");
  }
}

TEST_F(ResourceStatusTest, FailedWritesAreFaultsAndTheRestIsWritten) {
  const std::string name = "e" + std::string(10, '0');
  const std::string lasterr = std::string("(") + kLastError + ")";
  const struct {
    std::string call;  // below the root
    std::string fault;
    int missing_writes;
  } rows[] = {
      {"cdb_set_elem l2/entries-capacity",
       "ClearAclResources confd_manager: Failed setting initial L2 entries capacity", 0},
      {"cdb_set_elem l3/entries-capacity",
       "ClearAclResources confd_manager: Failed setting initial L3 entries capacity", 0},
      {"cdb_create interface{" + name + "}",
       "UpdateInterfaceResourcesData confd_manager: Failed creating ACL interface " + name +
           " resources data",
       2},
      {"cdb_create interface{" + name + "}/l2/profile{P}",
       "UpdateInterfaceResourcesData confd_manager: Failed " + lasterr, 1},
      {"cdb_set_elem interface{" + name + "}/l2/profile{P}/used-entries",
       "UpdateInterfaceResourcesData confd_manager: Failed setting used entries on path " + lasterr,
       0},
      {"cdb_set_elem interface{" + name + "}/l2/total",
       "UpdateInterfaceResourcesData confd_manager: Failed setting used L3 entries " + lasterr, 0},
      {"cdb_create l2/profile{P}", "UpdateProfileResourcesData confd_manager: Failed " + lasterr,
       1},
      {"cdb_set_elem l2/profile{P}/used-entries",
       "UpdateProfileResourcesData confd_manager: Failed setting used entries on path " + lasterr,
       0},
  };
  SetUsage({{name, {{"P", 1}}}}, {});
  const auto count_writes = [&] {
    platform_.cdb.clear();
    manager_.ClearAclResources();
    manager_.UpdateAclResources();
    const Lines lines = platform_.Take({"cdb_set_elem", "fault"});
    return std::pair(
        std::count_if(lines.begin(), lines.end(), [](const auto& line) { return line[0] == 'c'; }),
        lines);
  };
  const auto all = count_writes().first;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.call);
    platform_.EndRules();
    std::string call = row.call;
    platform_.On(call.insert(call.find(' '), " 101 /status/acl-resources/")
                     .erase(call.find("resources/ ") + 10, 1),
                 -1);
    const auto [writes, lines] = count_writes();
    EXPECT_EQ(writes, all - row.missing_writes);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "fault 0 " + row.fault), 1);
  }
}

TEST_F(ResourceStatusTest, TotalsAreSetEachOnItsOwn) {
  platform_.On("cdb_set_elem", -1);
  manager_.UpdateGlobalResourcesData(101, 10, 4, 20, 5);
  const std::string fault = "fault 0 UpdateGlobalResourcesData confd_manager: Failed setting ";
  EXPECT_THAT(
      TakeStatus(),
      ElementsAre("cdb_set_elem l2/used-entries = u32 4", fault + "used L2 entries",
                  "cdb_set_elem l3/used-entries = u32 5", fault + "used L3 entries",
                  "cdb_set_elem l2/available-entries = u32 6", fault + "available L2 entries",
                  "cdb_set_elem l3/available-entries = u32 15", fault + "available L3 entries"));
}

TEST_F(ResourceStatusTest, CountsHoldEvenWhenWritesFail) {
  SetUsage({{"e0", {{"P", 1}, {"Q", 2}}}, {"e1", {{"P", 4}}}}, {});
  unsigned int total = 99;
  platform_.On("cdb_set_elem", -1);
  platform_.On("cdb_create 101 /status/acl-resources/interface{e0}/l2/profile{P}", -1);
  const char* base = "/status/acl-resources/interface{%s}/l2";
  manager_.UpdateInterfaceResourcesData(101, filter_->getUsedL2Resources(), base, total);
  EXPECT_EQ(total, 7u);
  platform_.cdb.clear();
  platform_.On("cdb_create 101 /status/acl-resources/interface{e0}", -1);
  manager_.UpdateInterfaceResourcesData(101, filter_->getUsedL2Resources(), base, total);
  EXPECT_EQ(total, 4u) << "an interface that cannot be listed is not counted";
}

}  // namespace
}  // namespace acl_test
