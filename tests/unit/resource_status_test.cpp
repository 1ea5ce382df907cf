// Publishing the use of filter entries below /status/acl-resources.
#include "tests/support/core_fixtures.h"

namespace acl_test {
namespace {

using testing::IsEmpty;

constexpr char kRoot[] = "/status/acl-resources/";
constexpr char kOpen[] = "open 101 3 false";
constexpr char kCapacity[] = "fm_init ; fm_local_slot ; fm_capacity 3 4";

class ResourceStatusTest : public ManagerTest {
 protected:
  // The record, without socket and root.
  Lines TakeStatus(std::initializer_list<const char*> heads = {}) {
    Lines lines = platform_.Take(heads);
    for (std::string& line : lines) {
      const size_t at = line.find(std::string("101 ") + kRoot);
      if (at != std::string::npos) line.erase(at, 4 + sizeof kRoot - 1);
    }
    return lines;
  }
  // A call that ends with a path below the root fails.
  void Fail(const std::string& call) {
    const size_t blank = call.find(' ');
    platform_.EndRules();
    platform_.On(blank == std::string::npos
                     ? call
                     : call.substr(0, blank) + " 101 " + kRoot + call.substr(blank + 1),
                 -1);
  }
  std::string Leaf(const std::string& path) {
    const Value* value = platform_.Find(kRoot + path);
    return value == nullptr ? "absent" : ToText(value->get());
  }
  void SetUsage(acl_app::ResourceMap l2, acl_app::ResourceMap l3) {
    Model::UsedL2(*filter_) = std::move(l2);
    Model::UsedL3(*filter_) = std::move(l3);
  }
};

TEST_F(ResourceStatusTest, ClearLeavesCapacityAndNothingUsed) {
  const Names names = {{"$open", kOpen}, {"$capacity", kCapacity}, {"$leaves", R"(
      cdb_set_elem l2/entries-capacity = u32 1000 ; cdb_set_elem l3/entries-capacity = u32 1000
      cdb_set_elem l2/used-entries = u32 0 ; cdb_set_elem l3/used-entries = u32 0
      cdb_set_elem l2/available-entries = u32 1000 ; cdb_set_elem l3/available-entries = u32 1000)"}};
  EXPECT_EQ(manager_.ClearAclResources(), 0);
  EXPECT_EQ(TakeStatus(), Text(R"(
      $capacity ; $open
      cdb_num_instances l2/profile ; cdb_num_instances l3/profile ; cdb_num_instances interface
      $leaves ; close 101)",
                               names));
  SetUsage({{"e0", {{"P", 3}}}}, {{"e0", {{"Q", 4}}}});
  manager_.UpdateAclResources();
  EXPECT_EQ(Leaf("interface{e0}/l3/total"), "u32 4");
  for (int instances : {1, -1}) {  // an error counts as instances
    platform_.On("cdb_num_instances", instances);
    platform_.Take();
    EXPECT_EQ(manager_.ClearAclResources(), 0);
    EXPECT_EQ(TakeStatus(), Text(R"(
        $capacity ; $open
        cdb_num_instances l2/profile ; cdb_delete l2/profile
        cdb_num_instances l3/profile ; cdb_delete l3/profile
        cdb_num_instances interface ; cdb_delete interface
        $leaves ; close 101)",
                                 names));
  }
  EXPECT_EQ(Leaf("interface{e0}/l3/total"), "absent");
}

TEST_F(ResourceStatusTest, ClearFailsWithTheFeatureModelOrADeletion) {
  for (const Lines& row : Rows(R"(
      fm_init               | 1 | initializing Feature Model on ConfDManager::ClearAclResources()
      fm_local_slot         | 2 | getting local slot from Feature Model on ConfDManager::ClearAclResources()
      cdb_delete l2/profile | 5 | removing ACL L2 profile resources data ($error)
      cdb_delete l3/profile | 7 | removing ACL L3 profile resources data ($error)
      cdb_delete interface  | 9 | removing ACL interfaces resources data ($error))",
                               {{"$error", kLastError}})) {
    Fail(row[0]);
    platform_.On("cdb_num_instances", 1);
    platform_.FailCall(-1);
    EXPECT_EQ(manager_.ClearAclResources(), -1) << row[0];
    EXPECT_EQ(std::to_string(platform_.calls()), row[1]) << "ends there";
    EXPECT_EQ(TakeStatus({"fault", "cdb_set_elem"}),
              Lines({"fault 0 ClearAclResources confd_manager: Failed " + row[2]}));
  }
}

TEST_F(ResourceStatusTest, UpdateWritesInterfacesThenProfilesThenTotals) {
  SetUsage({{"b", {{"P", 3}}}, {"a 1/%s", {{"P", 2}, {"O%d", 1}}}}, {{"b", {{"Q", 7}}}});
  manager_.UpdateAclResources();
  EXPECT_EQ(TakeStatus(), Text(R"(
      $open
      cdb_exists $a ; cdb_create $a
      cdb_exists $a/l2/profile{O%d} ; cdb_create $a/l2/profile{O%d}
      cdb_set_elem $a/l2/profile{O%d}/used-entries = u32 1
      cdb_exists $a/l2/profile{P} ; cdb_create $a/l2/profile{P}
      cdb_set_elem $a/l2/profile{P}/used-entries = u32 2
      cdb_set_elem $a/l2/total = u32 3
      cdb_exists $b ; cdb_create $b
      cdb_exists $b/l2/profile{P} ; cdb_create $b/l2/profile{P}
      cdb_set_elem $b/l2/profile{P}/used-entries = u32 3
      cdb_set_elem $b/l2/total = u32 3
      cdb_exists $b
      cdb_exists $b/l3/profile{Q} ; cdb_create $b/l3/profile{Q}
      cdb_set_elem $b/l3/profile{Q}/used-entries = u32 7
      cdb_set_elem $b/l3/total = u32 7
      cdb_exists l2/profile{O%d} ; cdb_create l2/profile{O%d}
      cdb_set_elem l2/profile{O%d}/used-entries = u32 1
      cdb_exists l2/profile{P} ; cdb_create l2/profile{P}
      cdb_set_elem l2/profile{P}/used-entries = u32 5
      cdb_exists l3/profile{Q} ; cdb_create l3/profile{Q}
      cdb_set_elem l3/profile{Q}/used-entries = u32 7
      $capacity
      cdb_set_elem l2/used-entries = u32 6 ; cdb_set_elem l3/used-entries = u32 7
      cdb_set_elem l2/available-entries = u32 994 ; cdb_set_elem l3/available-entries = u32 993
      close 101)",
                               {{"$a", "interface{a 1/%s}"},
                                {"$b", "interface{b}"},
                                {"$open", kOpen},
                                {"$capacity", kCapacity}}));
  manager_.UpdateAclResources();
  EXPECT_THAT(TakeStatus({"cdb_create"}), IsEmpty()) << "what is there stays";
}

TEST_F(ResourceStatusTest, UseAboveTheCapacityWraps) {
  SetUsage({{"e0", {{"P", 1001}}}}, {});
  manager_.UpdateAclResources();
  EXPECT_EQ(Leaf("l2/available-entries"), "u32 4294967295");
  platform_.On("fm_capacity", -1);
  manager_.UpdateAclResources();
  EXPECT_EQ(Leaf("l3/available-entries"), "u32 0") << "an unknown capacity is 0";
}

// One interface with one L2 profile; each row's call fails, and all but the named writes are made.
TEST_F(ResourceStatusTest, FailuresAreFaultsAndTheRestIsWritten) {
  const std::string long_name(280, 'e');  // the fault's text is cut to 299 characters
  SetUsage({{long_name, {{"P", 1}}}}, {});
  for (const Lines& row : Rows(R"(
      fm_init       | 10 | UpdateAclResources | initializing Feature Model on ConfDManager::UpdateAclResources()
      fm_local_slot | 10 | UpdateAclResources | getting local slot from Feature Model on ConfDManager::UpdateAclResources()
      cdb_set_elem l2/entries-capacity | 0 | ClearAclResources | setting initial L2 entries capacity
      cdb_set_elem l3/entries-capacity | 0 | ClearAclResources | setting initial L3 entries capacity
      cdb_set_elem l2/used-entries | 0 | UpdateGlobalResourcesData | setting used L2 entries
      cdb_set_elem l3/used-entries | 0 | UpdateGlobalResourcesData | setting used L3 entries
      cdb_set_elem l2/available-entries | 0 | UpdateGlobalResourcesData | setting available L2 entries
      cdb_set_elem l3/available-entries | 0 | UpdateGlobalResourcesData | setting available L3 entries
      cdb_create $e | 2 | UpdateInterfaceResourcesData | creating ACL interface $cut
      cdb_create $e/l2/profile{P} | 1 | UpdateInterfaceResourcesData | ($error)
      cdb_set_elem $e/l2/profile{P}/used-entries | 0 | UpdateInterfaceResourcesData | setting used entries on path ($error)
      cdb_set_elem $e/l2/total | 0 | UpdateInterfaceResourcesData | setting used L3 entries ($error)
      cdb_create l2/profile{P} | 1 | UpdateProfileResourcesData | ($error)
      cdb_set_elem l2/profile{P}/used-entries | 0 | UpdateProfileResourcesData | setting used entries on path ($error))",
                               {{"$e", "interface{" + long_name + "}"},
                                {"$error", kLastError},
                                {"$cut", long_name.substr(0, 299 - 30)}})) {
    SCOPED_TRACE(row[0]);
    Fail(row[0]);
    platform_.cdb.clear();
    manager_.ClearAclResources();
    manager_.UpdateAclResources();
    const Lines lines = platform_.Take({"cdb_set_elem", "fault"});
    // The totals are written by the clear and by the update.
    EXPECT_EQ(std::count(lines.begin(), lines.end(),
                         "fault 0 " + row[2] + " confd_manager: Failed " + row[3]),
              row[2] == "UpdateGlobalResourcesData" ? 2 : 1);
    const auto writes = std::count_if(lines.begin(), lines.end(), [](const std::string& line) {
      return StartsWith(line, "cdb_set_elem");
    });
    EXPECT_EQ(writes, 13 - std::stoi(row[1]));
  }
}

TEST_F(ResourceStatusTest, CountsHoldEvenWhenWritesFail) {
  const acl_app::ResourceMap usage = {{"e0", {{"P", 1}, {"Q", 2}}}, {"e1", {{"P", 4}}}};
  unsigned int total = 99;
  const char* const base = "/status/acl-resources/interface{%s}/l2";
  Fail("cdb_create interface{e0}/l2/profile{P}");
  platform_.On("cdb_set_elem", -1);
  manager_.UpdateInterfaceResourcesData(101, usage, base, total);
  EXPECT_EQ(total, 7u);
  platform_.cdb.clear();
  Fail("cdb_create interface{e0}");
  manager_.UpdateInterfaceResourcesData(101, usage, base, total);
  EXPECT_EQ(total, 4u) << "an interface that cannot be listed is not counted";
}

}  // namespace
}  // namespace acl_test
