// The difference between held and wanted rules, against a model of the kernel's chains.
#include "host/filter_mgr/nftables/plan/difference.h"
#include "tests/random_rounds.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>
#include <random>

namespace host {
namespace {

// A rule told from others by a number.
RulePtr NumberedRule(uint32_t number) {
  auto rule = std::make_shared<Rule>();
  FieldTest test;
  test.source = Source::kNetwork;
  test.offset = 16;
  test.length = 4;
  for (int i = 0; i < 4; ++i) test.value[i] = static_cast<uint8_t>(number >> (24 - 8 * i));
  for (int i = 0; i < 4; ++i) test.mask[i] = 0xff;
  rule->tests = {test};
  return rule;
}

// Chains as the kernel would hold them, changed by edits only. Hits are what a rule starts with,
// which tells whether a counter was carried on.
class ModelKernel {
 public:
  explicit ModelKernel(ChunkOrder order = ChunkOrder::kJumps) : order_(order) {}

  // Brings the rules to `rules`; gives the number of messages.
  size_t Update(const std::vector<RulePtr>& rules) {
    const Layout layout = PlanLayout(held_, rules, order_);
    const bool linked = order_ == ChunkOrder::kLinks;
    const size_t most = std::max(kMaxChunk, linked ? (rules.size() / kManyLinked + 1) * 4 / 3 : 0);
    EXPECT_TRUE(!linked || layout.chunks.size() <= kMaxLinked);
    size_t messages = 0;
    HeldGroup after = held_;
    for (const ChunkPlan& chunk : layout.chunks) {
      EXPECT_TRUE(chunk.begin < chunk.end && chunk.end - chunk.begin <= most);
      for (size_t i = chunk.begin; i < chunk.end; ++i) {
        EXPECT_TRUE(FitsGuard(*rules[i], chunk.guard));
      }
      auto& link = after.chunks[chunk.number].link;
      if (chunk.relinked) link.reset();
      if (chunk.relinked && chunk.next) link = HeldRule{GoTo(*chunk.next), next_handle_++, {}, {}};
      messages += chunk.relinked ? 1 : 0;
      if (!chunk.changed) continue;
      const HeldChain before = chunk.is_new ? HeldChain{} : held_.chunks.at(chunk.number);
      EXPECT_EQ(chunk.is_new, held_.chunks.count(chunk.number) == 0);
      const ChainEdit edit =
          EditChain(before,
                    {rules.begin() + static_cast<ptrdiff_t>(chunk.begin),
                     rules.begin() + static_cast<ptrdiff_t>(chunk.end)},
                    chunk.is_new ? std::vector<int>(chunk.end - chunk.begin, -1) : chunk.places);
      messages += ApplyEdit(edit, layout, chunk, &after.chunks[chunk.number]);
    }
    for (uint32_t number : layout.removed) after.chunks.erase(number);
    after.order.clear();
    for (const ChunkPlan& chunk : layout.chunks) after.order.push_back(chunk.number);
    EXPECT_EQ(layout.order_changed, after.order != held_.order);
    after.next_chunk = layout.next_chunk;
    held_ = after;
    moved_ = layout.moved.size();
    ExpectRules(rules);
    return messages + layout.removed.size();
  }

  void SetHits(const Rule* rule, uint64_t packets) { Find(rule)->hits.packets = packets; }
  uint64_t HitsOf(const Rule* rule) { return Find(rule)->hits.packets; }
  const HeldGroup& held() const { return held_; }
  // Kept rules that the last update moved.
  size_t moved() const { return moved_; }

 private:
  size_t ApplyEdit(const ChainEdit& edit, const Layout& layout, const ChunkPlan& chunk,
                   HeldChain* chain) {
    auto& rules = chain->rules;
    chain->guard = chunk.guard;
    if (edit.flush) rules.clear();
    const auto at = [&rules](uint64_t handle) {
      return std::find_if(rules.begin(), rules.end(),
                          [handle](const HeldRule& rule) { return rule.handle == handle; });
    };
    for (uint64_t handle : edit.deletes) {
      EXPECT_NE(rules.end(), at(handle));
      rules.erase(at(handle));
    }
    for (const RuleInsert& insert : edit.inserts) {
      const auto place = insert.before == 0 ? rules.end() : at(insert.before);
      EXPECT_TRUE(insert.before == 0 || place != rules.end());
      Hits hits;
      const auto moved = layout.moved.find(chunk.begin + insert.index);
      if (moved != layout.moved.end()) {
        hits = held_.chunks.at(moved->second.chunk).rules.at(moved->second.index).hits;
      }
      rules.insert(place, {insert.rule, next_handle_++, hits, {}});
    }
    return edit.deletes.size() + edit.inserts.size() + (edit.flush ? 1 : 0);
  }

  void ExpectRules(const std::vector<RulePtr>& rules) const {
    std::vector<const Rule*> have, want;
    for (uint32_t number : held_.order) {
      for (const HeldRule& rule : held_.chunks.at(number).rules) have.push_back(rule.rule.get());
    }
    for (const RulePtr& rule : rules) want.push_back(rule.get());
    ASSERT_EQ(want, have);
    ASSERT_EQ(held_.order.size(), held_.chunks.size());
    for (size_t i = 0; order_ == ChunkOrder::kLinks && i < held_.order.size(); ++i) {
      const auto& link = held_.chunks.at(held_.order[i]).link;
      ASSERT_EQ(i + 1 < held_.order.size(), link.has_value());
      if (link) {
        ASSERT_EQ(held_.order[i + 1], link->rule->outcome.chunk);
      }
    }
  }

  HeldRule* Find(const Rule* rule) {
    for (auto& [number, chunk] : held_.chunks) {
      for (HeldRule& held : chunk.rules) {
        if (held.rule.get() == rule) return &held;
      }
    }
    return nullptr;
  }

  const ChunkOrder order_;
  HeldGroup held_;
  uint64_t next_handle_ = 1;
  size_t moved_ = 0;
};

std::vector<RulePtr> Numbered(uint32_t first, uint32_t count) {
  std::vector<RulePtr> rules(count);
  for (uint32_t i = 0; i < count; ++i) rules[i] = NumberedRule(first + i);
  return rules;
}

TEST(DifferenceTest, OneChangeTouchesOneRule) {
  ModelKernel kernel;
  std::vector<RulePtr> rules = Numbered(0, 5000);
  EXPECT_EQ(5000u, kernel.Update(rules));
  EXPECT_EQ((5000u + kFillChunk - 1) / kFillChunk, kernel.held().order.size());
  EXPECT_EQ(0u, kernel.Update(rules));
  for (size_t at : {0u, 191u, 192u, 2500u, 4999u}) {
    rules.insert(rules.begin() + static_cast<ptrdiff_t>(at), NumberedRule(100000 + at));
    EXPECT_EQ(1u, kernel.Update(rules)) << at;
    rules.erase(rules.begin() + static_cast<ptrdiff_t>(at) + 1);
    EXPECT_EQ(1u, kernel.Update(rules)) << at;
  }
  // Rules that are equal without being the same object are no change.
  std::vector<RulePtr> equal;
  for (const RulePtr& rule : rules) equal.push_back(std::make_shared<Rule>(*rule));
  EXPECT_TRUE(PlanLayout(kernel.held(), equal, ChunkOrder::kJumps).NothingToDo());
}

// Rules of two protocols behind one EtherType, and rules without either.
RulePtr Guarded(uint32_t number, uint8_t protocol) {
  auto rule = std::make_shared<Rule>(*NumberedRule(number));
  FieldTest test;
  test.length = 1;
  test.mask[0] = 0xff;
  test.value[0] = protocol;
  test.source = Source::kNetwork;
  test.offset = 9;
  rule->tests.push_back(test);
  test.source = Source::kEtherType;
  test.offset = 0;
  rule->tests.push_back(test);
  return rule;
}

TEST(DifferenceTest, MovesFewRulesAndTheirCountersWithThem) {
  constexpr uint32_t kCount = 1000;  // chunks of 166 or 167
  const auto at = [](size_t i) { return static_cast<ptrdiff_t>(i); };
  std::vector<RulePtr> original(kCount);
  for (uint32_t i = 0; i < kCount; ++i) original[i] = Guarded(i, 6);
  const struct {
    const char* what;
    size_t place, erased, added;
    RulePtr (*make)(uint32_t);
    size_t moved;
  } kCases[] = {
      {"half of a chunk goes", 0, 100, 0, nullptr, 0},
      {"most rules go", 3, 990, 0, nullptr, 0},
      {"many come behind a chunk", 166, 0, 600, [](uint32_t n) { return Guarded(n, 6); }, 0},
      {"many come into a chunk", 50, 0, 600, [](uint32_t n) { return Guarded(n, 6); }, 50},
      {"one comes that does not pass the guard", 10, 0, 1,
       [](uint32_t n) { return Guarded(n, 17); }, 10},
      {"one comes that passes no guard", 160, 0, 1, [](uint32_t n) { return NumberedRule(n); }, 6},
      {"one at a chunk's end", 166, 0, 1, [](uint32_t n) { return NumberedRule(n); }, 0},
  };
  for (const auto& c : kCases) {
    ModelKernel kernel;
    kernel.Update(original);
    for (uint32_t i = 0; i < kCount; ++i) kernel.SetHits(original[i].get(), i + 1);
    std::vector<RulePtr> rules = original, added(c.added);
    rules.erase(rules.begin() + at(c.place), rules.begin() + at(c.place + c.erased));
    for (uint32_t i = 0; i < c.added; ++i) added[i] = c.make(kCount + i);
    rules.insert(rules.begin() + at(c.place), added.begin(), added.end());
    EXPECT_LE(kernel.Update(rules), 2 * c.moved + c.erased + c.added) << c.what;
    EXPECT_EQ(c.moved, kernel.moved()) << c.what;
    for (uint32_t i = 0; i < kCount; ++i) {
      if (i >= c.place && i < c.place + c.erased) continue;
      EXPECT_EQ(i + 1, kernel.HitsOf(original[i].get())) << c.what;
    }
  }
  // One by one at one place: a rule moves for each that comes, no more.
  ModelKernel kernel;
  kernel.Update(original);
  size_t moved = 0;
  for (uint32_t i = 0; i < 600; ++i) {
    original.insert(original.begin() + 300, Guarded(kCount + i, 6));
    kernel.Update(original);
    moved += kernel.moved();
  }
  EXPECT_LE(moved, 600u);
  EXPECT_LE(kernel.held().order.size(), 20u);
}

TEST(DifferenceTest, RandomEditsArriveAtTheWantedRules) {
  std::mt19937 random(20261121);
  const auto below = [&random](size_t n) { return random() % n; };
  for (int round = 0; round < 8; ++round) {
    ModelKernel kernel(round % 4 < 2 ? ChunkOrder::kJumps : ChunkOrder::kLinks);
    const uint32_t kinds = round % 2 == 0 ? 1000000 : 40;  // the latter: rules repeat a lot
    std::vector<RulePtr> pool = Numbered(0, 40);
    const auto any = [&] { return kinds == 40 ? pool[below(40)] : NumberedRule(random()); };
    std::vector<RulePtr> rules;
    for (int step = 0; step < RandomRounds(40); ++step) {
      const size_t at = below(rules.size() + 1);
      const auto place = rules.begin() + static_cast<ptrdiff_t>(at);
      const size_t run = std::min<size_t>(rules.size() - at, below(500));
      switch (below(5)) {
        case 0:
        case 1:
          for (size_t i = below(500); i > 0; --i) rules.insert(rules.begin() + at, any());
          break;
        case 2:
          rules.erase(place, place + static_cast<ptrdiff_t>(run));
          break;
        case 3:
          std::rotate(rules.begin(), place, rules.end());
          break;
        default:
          for (size_t i = 0; i < run; ++i) rules[at + i] = any();
      }
      kernel.Update(rules);
      if (HasFatalFailure()) return;
    }
    kernel.Update({});
    EXPECT_TRUE(kernel.held().chunks.empty());
  }
}

TEST(DifferenceTest, FindsTheLongestCommonSequence) {
  // Against the textbook's dynamic programme, on permutations.
  std::mt19937 random(7);
  for (int round = 0; round < RandomRounds(200); ++round) {
    std::vector<RulePtr> before = Numbered(0, 1 + random() % 12), now = before;
    std::shuffle(now.begin(), now.end(), random);
    now.resize(1 + random() % now.size());
    std::vector<const Rule*> a, b;
    for (const auto& rule : before) a.push_back(rule.get());
    for (const auto& rule : now) b.push_back(rule.get());
    std::vector<std::vector<int>> best(a.size() + 1, std::vector<int>(b.size() + 1));
    for (size_t i = 1; i <= a.size(); ++i) {
      for (size_t j = 1; j <= b.size(); ++j) {
        best[i][j] = a[i - 1] == b[j - 1] ? best[i - 1][j - 1] + 1
                                          : std::max(best[i - 1][j], best[i][j - 1]);
      }
    }
    int found = 0, last = -1;
    const std::vector<int> places = MatchRules(a, b);
    for (size_t j = 0; j < b.size(); ++j) {
      if (places[j] < 0) continue;
      ASSERT_LT(last, places[j]);
      ASSERT_EQ(a[static_cast<size_t>(places[j])], b[j]);
      last = places[j];
      ++found;
    }
    ASSERT_EQ(best[a.size()][b.size()], found);
  }
}

}  // namespace
}  // namespace host
