// The model's profiles, entries and interface bindings.
#include <cstring>
#include <functional>
#include <numeric>
#include <type_traits>

#include "tests/core/platform/core_fixtures.h"

namespace acl_test {
namespace {

using testing::IsEmpty;

TEST_F(ModelTest, ProfilesAreCreatedThenGivenTheirPriority) {
  EXPECT_EQ(model_.CreateAclProfile(0, ""), -5);
  EXPECT_EQ(model_.SetAclPrio("P", 3), -3);
  EXPECT_EQ(model_.CreateAclProfile(0, "P"), 0);
  EXPECT_EQ(model_.CreateAclProfile(1, "P"), -1);
  EXPECT_EQ(model_.SetAclPrio("P", 65543), 0);
  EXPECT_EQ(model_.SetAclPrio("P", 8), -2);
  EXPECT_EQ(model_.CreateAclProfile(1, "P"), -1);
  EXPECT_EQ(model_.CreateAclProfile(1, "p"), 0);
  for (int entry : {5, 1}) EXPECT_EQ(model_.CreateEntry("p", entry), 0);
  EXPECT_EQ(Dump(model_),
            Text("p pending type 4 ; p 1/0 -> ; p 5/0 -> ; P type 6 priority 7 id 7 stage 1"));
  EXPECT_EQ(model_.SetAclPrio("p", -1), 0);
  EXPECT_EQ(model_.CreateAclProfile(0, "Q"), 0);
  model_.CreateInterface("e");
  for (const char* name : {"Q", "P"}) {
    model_.AddAclIntoInterface("e", name);
    EXPECT_EQ(model_.RemoveAclProfile(name), 0);
    EXPECT_EQ(model_.RemoveAclProfile(name), 0) << "unknown now";
  }
  EXPECT_EQ(Dump(model_), Text(R"(
      p type 4 priority 65535 id 65535 stage 1 ; p 1/0 -> ; p 5/0 -> ; e binds P Q)"));
}

TEST_F(ModelTest, UnknownTypeIsRefusedOnlyWithThePriority) {
  EXPECT_EQ(model_.CreateAclProfile(2, "P"), 0);
  EXPECT_EQ(model_.CreateEntry("P", 4), 0);
  EXPECT_EQ(model_.SetAclPrio("P", 1), -4);
  EXPECT_EQ(Dump(model_), Text("P pending type 0 ; P 4/0 ->"));
  EXPECT_EQ(model_.ConfdType2FilterCommon(0), 6);
  EXPECT_EQ(model_.ConfdType2FilterCommon(1), 4);
  EXPECT_EQ(model_.ConfdType2FilterCommon(-1), 0);
}

// Entries are handled alike before and after a profile has its priority, but for one result.
TEST_F(ModelTest, EntriesInBothStages) {
  model_.CreateAclProfile(0, "E");
  for (const bool grouped : {false, true}) {
    model_.CreateAclProfile(0, "P");
    if (grouped) model_.SetAclPrio("P", 1);
    EXPECT_EQ(model_.CreateEntry("P", 65541), 0);
    EXPECT_EQ(model_.CreateEntry("P", 5), -1) << "the low 16 bits are the id";
    EXPECT_EQ(model_.CreateEntry("P", -1), 0);
    EXPECT_EQ(model_.CreateEntry("unknown", 6), -3);

    // Look-ups give copies.
    std::map<unsigned short, FiltersCommon::FiltersEntry> entries;
    EXPECT_EQ(model_.GetEntriesMap("P", entries), 0);
    EXPECT_EQ(model_.GetEntriesMap("unknown", entries), -3);
    EXPECT_EQ(entries.size(), 2u) << "left as it was";
    EXPECT_EQ(model_.GetEntriesMap("E", entries), 0);
    EXPECT_THAT(entries, IsEmpty()) << "replaced, not added to";
    std::shared_ptr<FiltersCommon::FiltersEntry> entry;
    EXPECT_EQ(model_.GetEntry("P", 65536 + 5, entry), 0);
    EXPECT_EQ(entry->getId(), 5);
    entry->setAction(FiltersCommon::ActionDeny());
    for (const auto& [profile, id] : {std::pair("P", 6), {"E", 5}, {"unknown", 5}}) {
      EXPECT_EQ(model_.GetEntry(profile, id, entry), -3);
      ASSERT_NE(entry, nullptr) << "left as it was";
    }
    EXPECT_EQ(Dump(model_).end()[-2], "P 5/0 ->");

    EXPECT_EQ(model_.RemoveEntry("unknown", 5), 0);
    EXPECT_EQ(model_.RemoveEntry("P", 6), grouped ? -4 : 0);
    EXPECT_EQ(model_.RemoveEntry("P", 131077), 0);
    EXPECT_EQ(Dump(model_).end()[-2],
              grouped ? "P type 6 priority 1 id 1 stage 1" : "P pending type 6");
    EXPECT_EQ(Dump(model_).back(), "P 65535/0 ->");
    model_.RemoveAclProfile("P");
  }
}

// What the library refuses of a group leaves the model as it was, but where no error is told.
TEST_F(ModelTest, RefusedByTheLibrary) {
  const auto kPcp = acl_app::ACL_MATCH_PCP;
  const auto kDeny = FiltersCommon::FILTERS_ACTION_DENY;
  const auto set_priority = [&] { return model_.SetAclPrio("P", 1); };
  const auto create_match = [&] { return CreateMatch("P", 5, kPcp, "u8 1"); };
  const auto remove_match = [&] { return model_.RemoveMatch("P", 5, kPcp); };
  const auto create_action = [&] { return model_.CreateAction("P", 5, kDeny, nullptr); };
  const struct {
    const char* refused;
    std::function<int()> operation;
    int result;
    const char* model;
  } rows[] = {
      {"setStage", set_priority, -4, "P pending type 6 ; P 5/0 ->"},
      {"insertEntry", set_priority, -4, "P pending type 6 ; P 5/0 ->"},
      {"insertEntry", [&] { return model_.CreateEntry("P", 6); }, -4, "$P ; P 5/0 ->"},
      {"removeEntry", [&] { return model_.RemoveEntry("P", 5); }, -4, "$P ; P 5/0 ->"},
      {"insertEntry", create_match, -4, "$P ; P 5/0 ->"},
      {"removeEntry", create_match, -4, "$P ; P 5/0 ->"},
      {"insertEntry", remove_match, 0, "$P"},
      {"removeEntry", remove_match, 0, "$P ; P 5/0 ->"},
      {"insertEntry", create_action, 0, "$P"},
      {"removeEntry", create_action, 0, "$P ; P 5/0 ->"},
      {"insertEntry", [&] { return model_.RemoveAction("P", 5, kDeny); }, 0, "$P"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(&row - rows);
    model_.RemoveAclProfile("P");
    model_.CreateAclProfile(0, "P");
    model_.CreateEntry("P", 5);
    if (row.model[0] == '$') model_.SetAclPrio("P", 1);
    platform_.refuse = row.refused;
    EXPECT_EQ(row.operation(), row.result);
    EXPECT_EQ(Dump(model_), Text(row.model, {{"$P", "P type 6 priority 1 id 1 stage 1"}}));
  }
  model_.CreateEntry("P", 5);
  model_.CreateInterface("e");
  model_.AddAclIntoInterface("e", "P");
  std::list<FiltersCommon::FiltersGroup> groups;
  platform_.refuse = "insertEntry";
  EXPECT_EQ(model_.MergeFilterEnvironment(groups), -4);
  EXPECT_THAT(groups, IsEmpty());
}

// Where virtual operations stand in the class's table, by the C++ ABI's pointers to members.
template <class... Operations>
std::vector<size_t> SlotsOf(Operations... operations) {
  const auto slot = [](auto operation) {
    uintptr_t offset = 0;
    std::memcpy(&offset, &operation, sizeof offset);
    return (offset - 1) / sizeof(void*);
  };
  return {slot(operations)...};
}

// The element's platform fixes the order of operations and members; there is no virtual destructor.
TEST_F(ModelTest, LayoutIsThePlatforms) {
  using M = acl_app::AclCache;
  std::vector<size_t> order(17);
  std::iota(order.begin(), order.end(), 0);
  EXPECT_EQ(SlotsOf(&M::CreateAclProfile, &M::RemoveAclProfile, &M::SetAclPrio, &M::CreateEntry,
                    &M::RemoveEntry, &M::CreateMatch, &M::RemoveMatch, &M::CreateAction,
                    &M::RemoveAction, &M::CreateInterface, &M::RemoveInterface,
                    &M::ClearAclsFromInterface, &M::AddAclIntoInterface, &M::RemoveAclFromInterface,
                    &M::MergeFilterEnvironment, &M::getUsedL2Resources, &M::getUsedL3Resources),
            order);
  EXPECT_FALSE(std::has_virtual_destructor_v<M>);
  struct Members {
    void* table;
    std::map<int, int> maps[5];
  };
  EXPECT_EQ(sizeof(M), sizeof(Members));
  const auto& maps = reinterpret_cast<Members*>(&model_)->maps;
  const void* const members[] = {&Model::PreCreated(model_), &Model::Profiles(model_),
                                 &Model::Interfaces(model_), &Model::UsedL2(model_),
                                 &Model::UsedL3(model_)};
  for (size_t i = 0; i < 5; ++i) EXPECT_EQ(members[i], &maps[i]) << i;

  using F = acl_app::AclFilter;
  EXPECT_EQ(SlotsOf(&F::SubmitConfiguration), std::vector<size_t>{order.size()});
  EXPECT_FALSE(std::has_virtual_destructor_v<F>);
  EXPECT_EQ(sizeof(F), sizeof(M) + sizeof(void*));
}

TEST_F(ModelTest, InterfacesHoldSetsOfNames) {
  EXPECT_EQ(model_.RemoveInterface("e"), 0);
  EXPECT_EQ(model_.ClearAclsFromInterface("e"), -3);
  EXPECT_EQ(model_.AddAclIntoInterface("e", "a"), -3);
  EXPECT_EQ(model_.RemoveAclFromInterface("e", "a"), -3);
  EXPECT_THAT(Dump(model_), IsEmpty());
  EXPECT_EQ(model_.CreateInterface("e"), 0);
  for (const char* name : {"b", "a", "b"}) EXPECT_EQ(model_.AddAclIntoInterface("e", name), 0);
  EXPECT_EQ(model_.CreateInterface("e"), -1);
  EXPECT_EQ(model_.CreateInterface("E"), 0);
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds a b"));
  for (int i : {1, 2}) EXPECT_EQ(model_.RemoveAclFromInterface("e", "b"), 0) << i;
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds a"));
  for (int i : {1, 2}) EXPECT_EQ(model_.ClearAclsFromInterface("e"), 0) << i;
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds"));
  model_.AddAclIntoInterface("e", "b");
  EXPECT_EQ(model_.RemoveInterface("e"), 0);
  EXPECT_EQ(model_.CreateInterface("e"), 0);
  EXPECT_EQ(Dump(model_), Text("E binds ; e binds"));
}

}  // namespace
}  // namespace acl_test
