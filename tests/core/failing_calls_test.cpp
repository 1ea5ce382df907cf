// What the failure of each single call of an initial load leads to.
#include <algorithm>
#include <stdexcept>

#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

const Names kNames = {
    {"$p", "/config/access-list/acl-profile/ingress/access-list/["},
    {"$q", "$p0]/access-list-entry[0]"},
    {"$i", "/config/access-list/interface/["},
    {"$s", "101 /status/acl-resources"},
    {"$entry", "{0/0 port 1001 src-mac 0x020000000001 mask 0x000000ffffff -> deny set-pcp 3}"},
    {"$P", "log Error loading ACL profiles"},
    {"$I", "log Error loading ACL interfaces"},
    {"$F",
     "fault 0 LoadConfdAcl confd_manager: Filter Manager failed to apply ACL initial "
     "configuration"},
    {"$clear", "fault 0 ClearAclResources confd_manager: Failed"},
    {"$update", "fault 0 UpdateAclResources confd_manager: Failed"},
    {"$total", "fault 0 UpdateGlobalResourcesData confd_manager: Failed"},
    {"$interface", "fault 0 UpdateInterfaceResourcesData confd_manager: Failed"},
    {"$profile", "fault 0 UpdateProfileResourcesData confd_manager: Failed"},
    {"$error", kLastError}};

// The call, what is reported at once, the next step, and the report that the load failed with.
const char kTable[] = R"(
    fm_init | $clear initializing Feature Model on ConfDManager::ClearAclResources() | cdb_get_txid 7 |
    fm_local_slot | $clear getting local slot from Feature Model on ConfDManager::ClearAclResources() | cdb_get_txid 7 |
    cdb_delete $s/l2/profile | $clear removing ACL L2 profile resources data ($error) | close 101 |
    cdb_delete $s/l3/profile | $clear removing ACL L3 profile resources data ($error) | close 101 |
    cdb_delete $s/interface | $clear removing ACL interfaces resources data ($error) | close 101 |
    cdb_set_elem $s/l2/entries-capacity = u32 1000 | $clear setting initial L2 entries capacity | cdb_set_elem $s/l3/entries-capacity = u32 1000 |
    cdb_set_elem $s/l3/entries-capacity = u32 1000 | $clear setting initial L3 entries capacity | cdb_set_elem $s/l2/used-entries = u32 0 |
    cdb_set_elem $s/l2/used-entries = u32 0 | $total setting used L2 entries | cdb_set_elem $s/l3/used-entries = u32 0 |
    cdb_set_elem $s/l3/used-entries = u32 0 | $total setting used L3 entries | cdb_set_elem $s/l2/available-entries = u32 1000 |
    cdb_set_elem $s/l2/available-entries = u32 1000 | $total setting available L2 entries | cdb_set_elem $s/l3/available-entries = u32 1000 |
    cdb_set_elem $s/l3/available-entries = u32 1000 | $total setting available L3 entries | close 101 |
    cdb_set_namespace 7 1543965233 |  |  | log Cannot set namespace to acl_app on loadCfg
    cdb_get_buf 7 $p0]/acl-name | log Error getting ACL profile name | cdb_get_buf 7 $p1]/acl-name | $P
    cdb_get_enum_value 7 $p0]/acl-type | log Error type of ACL profile A | cdb_get_buf 7 $p1]/acl-name | $P
    cdb_get_int32 7 $p0]/acl-priority-l2/priority | log Error getting priority of ACL profile A | cdb_get_buf 7 $p1]/acl-name | $P
    model CreateAclProfile 0 A | log Error creating ACL profile A | cdb_get_buf 7 $p1]/acl-name | $P
    model SetAclPrio A 10 | log Error setting priority 10 to ACL profile A | cdb_get_buf 7 $p1]/acl-name | $P
    model CreateEntry A 5 | log Error creating entry 5 on ACL profile A ; log ACEs were not set correctly at database | cdb_get_buf 7 $p1]/acl-name | $P
    cdb_cd 7 $q/match/source-mac-address | log Error entering in path $q/match/source-mac-address | cdb_exists 7 $q/match/tos | $P
    cdb_getcwd_kpath 7 | log Error getting keypath of $q/match/source-mac-address | cdb_exists 7 $q/match/tos | $P
    cdb_get 7 $q/match/source-mac-address | log Error getting value from $q/match/source-mac-address | cdb_exists 7 $q/match/tos | $P
    cdb_get 7 $q/match/source-mac-address-mask | log Error getting value from $q/match/source-mac-address-mask | cdb_exists 7 $q/match/tos | $P
    model CreateMatch A 5 1 0x020000000001 0xffffff000000 | log Error creating match source-mac-address | cdb_exists 7 $q/match/tos | $P
    model CreateAction A 5 1 null | log Error creating action Deny created on entry 5 of ACL profile A | cdb_exists 7 $q/action/set/pcp |
    cdb_get 7 $q/action/set/pcp | log Error getting value from Action Set PCP created on entry 5 of ACL profile A ; log Actions were not set correctly at database ; log ACEs were not set correctly at database | cdb_get_buf 7 $p1]/acl-name | $P
    model CreateAction A 5 6 u8 3 | log Error creating action Set PCP on entry 5 of ACL profile A ; log Actions were not set correctly at database ; log ACEs were not set correctly at database | cdb_get_buf 7 $p1]/acl-name | $P
    cdb_get_buf 7 $p1]/acl-name | log Error getting ACL profile name |  | $P
    cdb_get_enum_value 7 $p1]/acl-type | log Error type of ACL profile B |  | $P
    cdb_get_int32 7 $p1]/acl-priority-l3/priority | log Error getting priority of ACL profile B |  | $P
    model CreateAclProfile 1 B | log Error creating ACL profile B |  | $P
    model SetAclPrio B 20 | log Error setting priority 20 to ACL profile B |  | $P
    cdb_get_buf 7 $i0]/interface-name |  |  | basic_string::_M_construct null not valid
    model CreateInterface e0 | log Error creating interface e0 | cdb_set_timeout 7 10 |
    cdb_get 7 $i0]/ingress | log Error getting ACLs related to interface e0 | cdb_set_timeout 7 10 |
    model ClearAclsFromInterface e0 | log Error clearing ACLs of interface e0 | cdb_set_timeout 7 10 |
    model AddAclIntoInterface e0 A | log Error setting ACL A into interface e0 | model AddAclIntoInterface e0 A |
    model AddAclIntoInterface e0 A | log Error setting ACL A into interface e0 | cdb_set_timeout 7 10 |
    cdb_get_buf 7 $i1]/interface-name |  |  | basic_string::_M_construct null not valid
    model CreateInterface e1 | log Error creating interface e1 |  | $I
    cdb_get 7 $i1]/ingress | log Error getting ACLs related to interface e1 |  | $I
    model ClearAclsFromInterface e1 | log Error clearing ACLs of interface e1 |  | $I
    model SubmitConfiguration |  | open 101 3 false | $F
    updateGroup 0 stage 1 type 6 priority 0 $entry | log SubmitConfiguration: error updating group 0 of stage 1 on Filter Manager (filtMgrErr -1) | open 101 3 false | $F
    updateGroup 1 stage 1 type 4 priority 1 | log SubmitConfiguration: error updating group 1 of stage 1 on Filter Manager (filtMgrErr -1) | open 101 3 false | $F
    cdb_create $s/interface{e0} | $interface creating ACL interface e0 resources data | cdb_exists $s/l2/profile{A} |
    cdb_create $s/interface{e0}/l2/profile{A} | $interface ($error) | cdb_set_elem $s/interface{e0}/l2/total = u32 1 |
    cdb_set_elem $s/interface{e0}/l2/profile{A}/used-entries = u32 1 | $interface setting used entries on path ($error) | cdb_set_elem $s/interface{e0}/l2/total = u32 1 |
    cdb_set_elem $s/interface{e0}/l2/total = u32 1 | $interface setting used L3 entries ($error) | cdb_exists $s/l2/profile{A} |
    cdb_create $s/l2/profile{A} | $profile ($error) | fm_init |
    cdb_set_elem $s/l2/profile{A}/used-entries = u32 1 | $profile setting used entries on path ($error) | fm_init |
    fm_init | $update initializing Feature Model on ConfDManager::UpdateAclResources() | close 101 |
    fm_local_slot | $update getting local slot from Feature Model on ConfDManager::UpdateAclResources() | close 101 |
    cdb_set_elem $s/l2/used-entries = u32 1 | $total setting used L2 entries | cdb_set_elem $s/l3/used-entries = u32 0 |
    cdb_set_elem $s/l3/used-entries = u32 0 | $total setting used L3 entries | cdb_set_elem $s/l2/available-entries = u32 999 |
    cdb_set_elem $s/l2/available-entries = u32 999 | $total setting available L2 entries | cdb_set_elem $s/l3/available-entries = u32 1000 |
    cdb_set_elem $s/l3/available-entries = u32 1000 | $total setting available L3 entries | close 101 |
)";

// Profile A with an entry, and B without; interface e0, to which A is bound (twice), and e1.
void Fill(ScriptedPlatform* platform) {
  const std::string entry = platform->AddEntry(platform->AddProfile("A", 0, 10), 5);
  platform->cdb[entry + "/match/source-mac-address"] = "0x020000000001";
  platform->cdb[entry + "/match/source-mac-address-mask"] = "0xffffff000000";
  platform->cdb[entry + "/action/packet-handling/deny"] = "";
  platform->cdb[entry + "/action/set/pcp"] = "u8 3";
  platform->AddProfile("B", 1, 20);
  platform->AddInterface("e0", "[\"A\",\"A\"]");
  platform->AddInterface("e1", "[]");
  for (const char* list : {"l2/profile", "l3/profile", "interface"}) {
    platform->cdb[std::string("/status/acl-resources/") + list] = "1";
  }
  platform->txid.s1 = 1;
}

TEST(FailingCallTest, IsReportedAndTheLoadGoesOnWhereItCan) {
  const std::vector<Lines> rows = Rows(kTable, kNames);
  auto row = rows.begin();
  for (int number = 0;; ++number) {
    ManagerSetup setup;  // expects that everything is given back
    ScriptedPlatform& platform = setup.platform_;
    Fill(&platform);
    platform.FailCall(number);
    bool thrown = false;
    try {
      setup.manager_.LoadInitialConfig(kLoadSocket);
    } catch (const std::logic_error& error) {
      platform.Record(error.what());
      thrown = true;
    }
    if (platform.calls <= number) break;
    const std::string& failed = platform.failed_call;
    // Errors of these are answers.
    if (StartsWith(failed, "cdb_exists 7") || StartsWith(failed, "cdb_num_instances 7")) continue;
    Lines record = platform.Take();
    if (record.back() == "log All LoadConfdConfig executed successfully!") {
      record.back() = "";
    } else if (!thrown) {
      EXPECT_EQ(record.back(), "log Could not load acl_app from CDB configuration.") << failed;
      record.pop_back();
    }
    const std::string outcome = record.back();
    record.pop_back();
    const auto next = std::find_if(record.begin(), record.end(), [](const std::string& line) {
      return !StartsWith(line, "log ") && !StartsWith(line, "fault ");
    });
    std::string reports;
    for (auto line = record.begin(); line != next; ++line) {
      reports += (reports.empty() ? "" : " ; ") + *line;
    }
    if (row != rows.end() && failed == row->front()) {
      EXPECT_EQ(Lines({failed, reports, next == record.end() ? "" : *next, outcome}), *row++);
    } else {
      EXPECT_EQ(reports + outcome, "") << failed;
    }
  }
  EXPECT_EQ(row, rows.end());
}

}  // namespace
}  // namespace acl_test
