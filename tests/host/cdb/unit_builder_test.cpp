// Stored units, built from their text and parsed by libyang: the same trees, the same refusals.
#include "host/cdb/storage/unit_builder.h"

#include <iterator>
#include <random>
#include <sstream>

#include "host/cdb/diff.h"
#include "host/cdb/storage/units.h"
#include "tests/host/cdb/edit_maker.h"
#include "tests/host/cdb/support.h"
#include "tests/random_rounds.h"

namespace host {
namespace {

// All there is to a tree's nodes, in their order.
std::string Dump(const lyd_node* first) {
  std::string text;
  for (; first != nullptr; first = first->next) {
    text += std::string(LYD_NAME(first)) + ":" + std::to_string(first->flags);
    if ((first->schema->nodetype & LYD_NODE_TERM) != 0) {
      const auto* value = &reinterpret_cast<const lyd_node_term*>(first)->value;
      while (value->realtype->basetype == LY_TYPE_UNION) value = &value->subvalue->value;
      text += " " + std::to_string(value->realtype->basetype) + " " + TextOf(first);
    }
    text += "{" + Dump(lyd_child(first)) + "}";
  }
  return text;
}

class UnitBuilderTest : public testing::Test {
 protected:
  // Puts a unit where it belongs, with all around it.
  bool Add(const UnitChange& unit, const std::string& content, UnitBuilder* builder, Tree* tree) {
    lyd_node* first = tree->release();
    lyd_new_path(first, datastore_->Context(), unit.key.place.c_str(), nullptr, LYD_NEW_PATH_UPDATE,
                 first == nullptr ? &first : nullptr);
    tree->reset(first);
    lyd_node* parent = nullptr;
    EXPECT_EQ(LY_SUCCESS, lyd_find_path(first, unit.key.place.c_str(), 0, &parent));
    if (builder == nullptr) return AddUnits(parent, unit.key.list, content);
    return builder->Add(parent,
                        lys_find_child(parent->schema, parent->schema->module,
                                       unit.key.list.c_str(), 0, LYS_LIST, 0),
                        content);
  }

  // The units of what random edits come to.
  std::vector<UnitChange> RandomUnits(EditMaker* maker) {
    for (int i = 0; i < 30; ++i) Edit(datastore_.get(), maker->Make(), maker->Options());
    Tree nothing;
    Normalize(datastore_->Context(), &nothing);
    const Tree diff = Difference(datastore_->Context(), nothing.get(), datastore_->Running());
    std::vector<UnitChange> units;
    bool in_units = true;
    const auto collect = [&](const UnitChange& unit) { return units.push_back(unit), true; };
    VisitUnitChanges(diff.get(), datastore_->Running(), collect, &in_units);
    return units;
  }

  std::unique_ptr<Datastore> datastore_ = OpenDatastore();
};

TEST_F(UnitBuilderTest, BuildsWhatTheParserReads) {
  std::istringstream words(
      "{ } [ ] \" , : - 0 1 9 a f . / \\ \xc3 [null] null true \"l3\" \"ef\" "
      "\"description\":\"x\", \"match\":{}, \"vlan\":1, \\u0031");
  const std::vector<std::string> odd{std::istream_iterator<std::string>(words), {}};
  std::mt19937 random(5);
  EditMaker maker(9);
  int whole_built = 0, damaged_built = 0, damaged_refused = 0, units = 0;
  for (int round = 0; round < RandomRounds(200); ++round) {
    for (const UnitChange& unit : RandomUnits(&maker)) {
      ++units;
      UnitBuilder builder;
      Tree by_builder, by_parser;
      for (int i = 0; i < 20; ++i) {
        const size_t faults = i == 0 ? 0 : random() % 3;
        std::string content = unit.content;
        for (size_t n = 0; n < faults; ++n) {
          const size_t at = random() % content.size(), count = random() % 4;
          content.replace(at, count, odd[random() % odd.size()]);
        }
        const bool built = Add(unit, content, &builder, &by_builder);
        Tree trial;  // of which the parser may leave a part
        const bool parsed = Add(unit, content, nullptr, &trial);
        ASSERT_TRUE(parsed || (!built && faults != 0)) << content;
        if (parsed) Add(unit, content, nullptr, &by_parser);
        if (parsed && !built) Add(unit, content, nullptr, &by_builder);
        (i == 0 ? whole_built : damaged_built) += built && (i == 0 || faults != 0) ? 1 : 0;
        damaged_refused += parsed ? 0 : 1;
      }
      ASSERT_EQ(Dump(by_parser.get()), Dump(by_builder.get())) << unit.content;
    }
  }
  EXPECT_GT(whole_built, RandomRounds(800));
  EXPECT_LT(whole_built, units);  // texts with more than plain characters are the parser's
  EXPECT_GT(damaged_built, units / 10);
  EXPECT_GT(damaged_refused, units);
}

}  // namespace
}  // namespace host
