// The parts of the platform that are a function or two: interface ids, the feature model, the log
// dictionary's library, the registry of state providers.
#include <gmock/gmock.h>

#include <string>

#include "host/limid/limid.h"
#include "host/runtime/settings.h"
#include "host/runtime/state_providers.h"
#include "platform/elem_log/elem_log.h"
#include "platform/feature_model/feature_model.h"
#include "platform/limid/limid.h"
#include "tests/host/runtime/scratch_state.h"

namespace host {
namespace {

TEST(LimidTest, EachNameKeepsItsOwnId) {
  limid_t first = 0;
  ASSERT_EQ(0, limid_from_intfname(&first, "limid-test"));
  EXPECT_NE(0U, first);
  // Enough of them to make every container grow.
  for (int i = 0; i < 5000; ++i) {
    limid_t id = 0;
    const std::string name = "limid-test." + std::to_string(i);
    ASSERT_EQ(0, limid_from_intfname(&id, name.c_str()));
    ASSERT_EQ(name, InterfaceNameOf(id));
  }
  limid_t again = 0;
  ASSERT_EQ(0, limid_from_intfname(&again, "limid-test"));
  EXPECT_EQ(first, again);
  EXPECT_EQ("limid-test", InterfaceNameOf(first));

  limid_t untouched = 77;
  EXPECT_NE(0, limid_from_intfname(&untouched, ""));
  EXPECT_NE(0, limid_from_intfname(&untouched, nullptr));
  EXPECT_EQ(77U, untouched);
  EXPECT_EQ("", InterfaceNameOf(0));
  EXPECT_EQ("", InterfaceNameOf(0xffffffff));
}

TEST(FeatureModelTest, CapacityIsTheSettingForTheLocalCardOnly) {
  const ScratchState scratch;
  std::string error;
  scratch.Settings("filter_capacity = 321\n");
  ASSERT_TRUE(LoadProcessSettings(&error)) << error;
  fm_slot_t slot{};
  ASSERT_EQ(0, fm_init());
  ASSERT_EQ(0, fm_local_slot(&slot));
  unsigned int capacity = 0;
  EXPECT_EQ(0, fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(&slot, &capacity));
  EXPECT_EQ(321U, capacity);
  slot.slot += 1;
  capacity = 5;
  EXPECT_NE(0, fm_scalar_card_filter_mgr_pre_ingress_max_entries_per_group(&slot, &capacity));
  EXPECT_EQ(5U, capacity);
}

TEST(ElemLogTest, TakesAWholeDictionaryOnly) {
  EXPECT_EQ(32, ElemLogCfgGetActualClass(32));
  ElemLogRow classes[] = {{"ACL", "ACL", 32, 0}, {nullptr, nullptr, 0, 0}};
  const ElemLogRow rows[] = {{"Name", "Short", 1, 0}, {nullptr, nullptr, 0, 0}};
  const ElemLogRow nameless[] = {{"Name", nullptr, 1, 0}, {nullptr, nullptr, 0, 0}};
  const ElemLogOutput outputs[1] = {};
  const ElemLogField fields[1] = {};
  int word = 0;
  const ElemLogHeader header = {{}, outputs, fields};
  const ElemLogTables whole = {classes, &word, nullptr, rows, rows};
  const ElemLogTables without_severities = {classes, &word, nullptr, rows, nullptr};
  const ElemLogTables unnamed = {classes, &word, nullptr, nameless, rows};
  EXPECT_NE(nullptr, ElemLogCfgPopulate(&header, &whole));
  EXPECT_EQ(nullptr, ElemLogCfgPopulate(nullptr, &whole));
  EXPECT_EQ(nullptr, ElemLogCfgPopulate(&header, &without_severities));
  EXPECT_EQ(nullptr, ElemLogCfgPopulate(&header, &unnamed));
}

TEST(StateProvidersTest, RegistrationsEndWithTheirOwnersInAnyOrder) {
  auto providers = std::make_unique<StateProviders>();
  const auto modules = [&] {
    std::string names;
    for (const auto& entry : providers->entries()) {
      names += entry.module;
    }
    return names;
  };
  auto a = providers->Add({"a", "", nullptr});
  auto b = providers->Add({"b", "", nullptr});
  {
    auto c = providers->Add({"c", "", nullptr});
    EXPECT_EQ("abc", modules());
    b = std::move(c);
  }
  EXPECT_EQ("ac", modules()) << "what a registration replaces has ended";
  a = {};
  EXPECT_EQ("c", modules());
  providers.reset();
}

}  // namespace
}  // namespace host
