#include "tests/support/core_fixtures.h"

namespace acl_test {

using acl_app::ACL_OK;

void ModelTest::AddProfile(const std::string& name, int type, int priority,
                           const std::vector<int>& entries) {
  ASSERT_EQ(model_.CreateAclProfile(type, name), ACL_OK);
  for (int entry : entries) ASSERT_EQ(model_.CreateEntry(name, entry), ACL_OK);
  if (priority < 0) return;
  ASSERT_EQ(model_.SetAclPrio(name, priority), ACL_OK);
}

void ModelTest::Bind(const std::string& interface, const std::vector<std::string>& profiles) {
  ASSERT_EQ(model_.CreateInterface(interface), ACL_OK);
  for (const std::string& profile : profiles) {
    ASSERT_EQ(model_.AddAclIntoInterface(interface, profile), ACL_OK);
  }
}

std::string ModelTest::EntryText(const std::string& profile, int entry_priority) {
  std::shared_ptr<FiltersCommon::FiltersEntry> entry;
  if (model_.GetEntry(profile, entry_priority, entry) != ACL_OK) return "none";
  const std::string text = Describe(*entry);
  return text.substr(text.find(' ') + 1);
}

Lines ModelTest::Dump() { return DumpModel(model_); }

Lines DumpModel(acl_app::AclCache& model) {
  using Model = acl_app::AclCacheTestPeer;
  Lines lines;
  for (const auto& [name, profile] : Model::PreCreated(model)) {
    lines.push_back("pending " + name + " type " + std::to_string(profile.type));
    for (const auto& [id, entry] : profile.entries) lines.push_back("  " + Describe(entry));
  }
  for (const auto& [name, group] : Model::Profiles(model)) {
    lines.push_back("profile " + name + " type " + std::to_string(group.getType()) + " priority " +
                    std::to_string(group.getPriority()) + " id " + std::to_string(group.getId()) +
                    " stage " + std::to_string(group.getStage()));
    for (const std::string& entry : Describe(group)) lines.push_back("  " + entry);
  }
  for (const auto& [interface, profiles] : Model::Interfaces(model)) {
    lines.push_back("interface " + interface);
    for (const std::string& profile : profiles) lines.push_back("  " + profile);
  }
  return lines;
}

ManagerTest::ManagerTest() {
  manager_.SetInterface(&connection_);
  platform_.Take();
}

}  // namespace acl_test
