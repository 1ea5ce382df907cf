// The parts of the platform that are a function or two: interface ids, the registry of state
// providers.
#include <gmock/gmock.h>

#include <string>

#include "host/limid/limid.h"
#include "host/runtime/state_providers.h"
#include "platform/limid/limid.h"

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
