// Publishing the use of filter entries below /status/acl-resources.
#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using testing::IsEmpty;

const std::string kStatusRoot = "/status/acl-resources/";
const Names kStatusNames = {{"$start", "open 101 3 false"},
                            {"$capacity", "fm_init ; fm_local_slot ; fm_capacity 3 4"}};

class ResourceStatusTest : public ManagerTest {
 protected:
  // The record, without socket and root.
  Lines TakeStatus(std::initializer_list<const char*> heads = {}) {
    Lines lines = platform_.Take(heads);
    for (std::string& line : lines) {
      const size_t at = line.find("101 " + kStatusRoot);
      if (at != std::string::npos) line.erase(at, 4 + kStatusRoot.size());
    }
    return lines;
  }
  void SetUsage(acl_app::ResourceMap l2, acl_app::ResourceMap l3) {
    Model::UsedL2(*filter_) = std::move(l2);
    Model::UsedL3(*filter_) = std::move(l3);
  }
};

TEST_F(ResourceStatusTest, ClearLeavesCapacityAndNothingUsed) {
  Names names = kStatusNames;
  names["$leaves"] = R"(
      cdb_set_elem l2/entries-capacity = u32 1000 ; cdb_set_elem l3/entries-capacity = u32 1000
      cdb_set_elem l2/used-entries = u32 0 ; cdb_set_elem l3/used-entries = u32 0
      cdb_set_elem l2/available-entries = u32 1000 ; cdb_set_elem l3/available-entries = u32 1000)";
  EXPECT_EQ(manager_.ClearAclResources(), 0);
  EXPECT_EQ(TakeStatus(), Text(R"(
      $capacity ; $start
      cdb_num_instances l2/profile ; cdb_num_instances l3/profile ; cdb_num_instances interface
      $leaves ; close 101)",
                               names));
  for (int instances : {1, -1}) {  // an error counts as instances
    platform_.On("cdb_num_instances", instances);
    EXPECT_EQ(manager_.ClearAclResources(), 0);
    EXPECT_EQ(TakeStatus(), Text(R"(
        $capacity ; $start
        cdb_num_instances l2/profile ; cdb_delete l2/profile
        cdb_num_instances l3/profile ; cdb_delete l3/profile
        cdb_num_instances interface ; cdb_delete interface
        $leaves ; close 101)",
                                 names));
  }
  for (const char* failing : {"cdb_delete", "fm_init"}) {
    platform_.On(failing, -1);
    EXPECT_EQ(manager_.ClearAclResources(), -1) << failing;
  }
}

TEST_F(ResourceStatusTest, UpdateWritesInterfacesThenProfilesThenTotals) {
  SetUsage({{"b", {{"P", 3}}}, {"a 1/%s", {{"P", 2}, {"O%d", 1}}}}, {{"b", {{"Q", 1001}}}});
  Names names = kStatusNames;
  names["$a"] = "interface{a 1/%s}";
  names["$b"] = "interface{b}";
  manager_.UpdateAclResources();
  EXPECT_EQ(TakeStatus(), Text(R"(
      $start
      cdb_exists $a ; cdb_create $a
      cdb_exists $a/l2/profile{O%d} ; cdb_create $a/l2/profile{O%d}
      cdb_set_elem $a/l2/profile{O%d}/used-entries = u32 1
      cdb_exists $a/l2/profile{P} ; cdb_create $a/l2/profile{P}
      cdb_set_elem $a/l2/profile{P}/used-entries = u32 2
      cdb_set_elem $a/l2/total = u32 3
      cdb_exists $b ; cdb_create $b
      cdb_exists $b/l2/profile{P} ; cdb_create $b/l2/profile{P}
      cdb_set_elem $b/l2/profile{P}/used-entries = u32 3 ; cdb_set_elem $b/l2/total = u32 3
      cdb_exists $b
      cdb_exists $b/l3/profile{Q} ; cdb_create $b/l3/profile{Q}
      cdb_set_elem $b/l3/profile{Q}/used-entries = u32 1001 ; cdb_set_elem $b/l3/total = u32 1001
      cdb_exists l2/profile{O%d} ; cdb_create l2/profile{O%d}
      cdb_set_elem l2/profile{O%d}/used-entries = u32 1
      cdb_exists l2/profile{P} ; cdb_create l2/profile{P}
      cdb_set_elem l2/profile{P}/used-entries = u32 5
      cdb_exists l3/profile{Q} ; cdb_create l3/profile{Q}
      cdb_set_elem l3/profile{Q}/used-entries = u32 1001
      $capacity
      cdb_set_elem l2/used-entries = u32 6 ; cdb_set_elem l3/used-entries = u32 1001
      cdb_set_elem l2/available-entries = u32 994
      cdb_set_elem l3/available-entries = u32 4294967295
      close 101)",
                               names))
      << "what is available may wrap";
  for (int exists : {1, -1}) {  // an error counts as there
    platform_.On("cdb_exists", exists);
    manager_.UpdateAclResources();
    EXPECT_THAT(TakeStatus({"cdb_create"}), IsEmpty()) << "what is there stays";
  }
}

TEST_F(ResourceStatusTest, CountsHoldEvenWhenWritesFail) {
  const std::string name(280, 'e');  // a fault's text is cut to 299 characters
  const acl_app::ResourceMap usage = {{name, {{"P", 1}, {"Q", 2}}}, {"f", {{"P", 4}}}};
  unsigned int total = 99;
  const char* const base = "/status/acl-resources/interface{%s}/l2";
  platform_.On("cdb_create 101 " + kStatusRoot + "interface{" + name + "}/l2/profile{P}", -1);
  platform_.On("cdb_set_elem", -1);
  manager_.UpdateInterfaceResourcesData(kSessionSocket, usage, base, total);
  EXPECT_EQ(total, 7u);
  platform_.cdb.clear();
  platform_.Take();
  platform_.EndRules();
  platform_.On("cdb_create 101 " + kStatusRoot + "interface{" + name + "}", -1);
  manager_.UpdateInterfaceResourcesData(kSessionSocket, usage, base, total);
  EXPECT_EQ(total, 4u) << "an interface that cannot be listed is not counted";
  EXPECT_EQ(platform_.Take({"fault"}),
            Lines({"fault 0 UpdateInterfaceResourcesData confd_manager: Failed creating ACL "
                   "interface " +
                   name.substr(0, 299 - 30)}));
}

}  // namespace
}  // namespace acl_test
