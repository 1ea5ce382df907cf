// The classifier against the linear matcher: random rule sets, random changes, restarts in between.
#include "host/classifier/classifier.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "host/classifier/linear_matcher.h"
#include "tests/host/classifier/rule_sets.h"

namespace host::classifier {
namespace {

constexpr uint32_t kRoots = 3;

// A root as it should be: its rules in order, and the names that the classifier gave them.
struct Expected {
  std::vector<Rule> rules;
  std::vector<EntryId> ids;
};

class Model {
 public:
  explicit Model(uint64_t seed) : random_(seed), kind_(static_cast<Kind>(seed % kKinds)) {
    EXPECT_TRUE(classifier_.Format());
  }

  void Run(int steps) {
    for (int i = 0; i < steps && !testing::Test::HasFailure(); ++i) {
      switch (random_() % 32) {
        case 0:
          Replace();
          break;
        case 1:
        case 2:
        case 3:
        case 4:
        case 5:
        case 6:
          Publish();
          break;
        case 7:
          Discard();
          break;
        case 8:
          Restart();
          break;
        case 9:
          Grace();
          break;
        case 10:
          Tidy();
          break;
        case 11:
          InsertRun();
          break;
        default:
          random_() % 3 == 0 ? Remove() : Insert();
          break;
      }
    }
    Publish();
    Restart();
  }

 private:
  static constexpr uint64_t kKinds = static_cast<uint64_t>(Kind::kKinds);

  uint32_t AnyRoot() { return static_cast<uint32_t>(random_() % kRoots); }

  void Insert() {
    const uint32_t root = AnyRoot();
    InsertAt(root, random_() % (next_[root].rules.size() + 1));
  }
  void InsertRun() {  // all in one place, until gaps are used up
    const uint32_t root = AnyRoot();
    const size_t at = random_() % (next_[root].rules.size() + 1);
    const size_t forward = random_() % 2;
    for (size_t i = 0; i < 60; ++i) InsertAt(root, at + i * forward);
  }
  void InsertAt(uint32_t root, size_t at) {
    Expected& to = next_[root];
    const Rule rule = RandomRule(kind_, random_);
    Refusal refusal;
    const EntryId id =
        classifier_.Insert(root, at == 0 ? kNoEntry : to.ids[at - 1], rule, &refusal);
    ASSERT_NE(id, kNoEntry) << refusal.text;
    to.rules.insert(to.rules.begin() + static_cast<ptrdiff_t>(at), rule);
    to.ids.insert(to.ids.begin() + static_cast<ptrdiff_t>(at), id);
  }
  void Remove() {
    Expected& from = next_[AnyRoot()];
    for (uint64_t i = random_() % 3; i != 0 && !from.ids.empty(); --i) {
      const auto at = static_cast<ptrdiff_t>(random_() % from.ids.size());
      Refusal refusal;
      ASSERT_TRUE(classifier_.Remove(from.ids[static_cast<size_t>(at)], &refusal)) << refusal.text;
      from.ids.erase(from.ids.begin() + at);
      from.rules.erase(from.rules.begin() + at);
    }
  }
  void Replace() {
    const uint32_t root = AnyRoot();
    Expected made;
    for (uint64_t n = random_() % 300; n != 0; --n)
      made.rules.push_back(RandomRule(kind_, random_));
    made.ids.resize(made.rules.size());
    Refusal refusal;
    ASSERT_TRUE(
        classifier_.Replace(root, made.rules.data(), made.rules.size(), made.ids.data(), &refusal))
        << refusal.text;
    next_[root] = made;
  }

  // What is in force before and after; unpublished changes must not show.
  void Publish() {
    CheckAll();
    classifier_.Publish();
    for (uint32_t root = 0; root < kRoots; ++root) published_[root] = next_[root];
    CheckAll();
  }
  void Discard() {
    const uint32_t root = AnyRoot();
    classifier_.Discard(root);
    next_[root] = published_[root];
    CheckAll();
  }
  void Tidy() {
    classifier_.Tidy();
    CheckAll();
  }
  void Grace() {
    for (uint64_t rounds = random_() % 3; rounds != 0; --rounds) {
      classifier_.GracePassed(classifier_.TakeTicket());
    }
    CheckAll();
  }
  // Another process: what was not published is gone, and so are entries behind an equal one.
  void Restart() {
    std::string problem;
    ASSERT_TRUE(classifier_.Adopt(&problem)) << problem;
    for (uint32_t root = 0; root < kRoots; ++root) {
      Expected& now = next_[root] = published_[root];
      EntryId found = classifier_.First(root);
      EntryId last = kNoEntry;
      for (size_t i = 0; i < now.rules.size(); ++i) {
        const bool shadowed =
            std::any_of(now.rules.begin(), now.rules.begin() + static_cast<ptrdiff_t>(i),
                        [&](const Rule& rule) {
                          return rule.mask == now.rules[i].mask && rule.value == now.rules[i].value;
                        });
        Refusal refusal;
        if (shadowed) {
          now.ids[i] = classifier_.Insert(root, last, now.rules[i], &refusal);
        } else {
          now.ids[i] = found;
          ASSERT_NE(found, kNoEntry);
          found = classifier_.Next(found);
        }
        last = now.ids[i];
        ASSERT_EQ(classifier_.RuleOf(last).cookie, now.rules[i].cookie);
      }
      ASSERT_EQ(found, kNoEntry);
    }
    ASSERT_FALSE(classifier_.changed());
    Publish();
  }

  void CheckAll() {
    ASSERT_EQ(classifier_.Check(), "");
    for (uint32_t root = 0; root < kRoots; ++root) {
      EntryId id = classifier_.First(root);
      for (const EntryId expected : next_[root].ids) {
        ASSERT_EQ(id, expected);
        id = classifier_.Next(id);
      }
      ASSERT_EQ(id, kNoEntry);
      ASSERT_EQ(classifier_.UsageOf(root).entries, next_[root].ids.size());
      const std::vector<Rule>& rules = published_[root].rules;
      for (int i = 0; i < 40 && !rules.empty(); ++i) {
        const cls_key key =
            KeyFor(rules[random_() % rules.size()], rules[random_() % rules.size()], random_);
        const Rule* rule = FirstMatch(rules, key);
        const uint32_t hit = Search(memory_, root, key, classifier_.generation());
        ASSERT_NE(hit, CLS_FAILED);
        ASSERT_EQ(hit == 0, rule == nullptr);
        if (rule == nullptr) continue;
        const auto* entry = memory_.At<cls_entry>(CLS_ENTRIES, hit);
        ASSERT_EQ(entry->cookie, rule->cookie);
        ASSERT_EQ(entry->action, rule->action);
      }
    }
  }

  std::mt19937_64 random_;
  Kind kind_;
  HeapMemory memory_;
  Classifier classifier_{&memory_};
  Expected published_[kRoots];
  Expected next_[kRoots];
};

TEST(ClassifierTest, DecidesAsALinearSearchDoes) {
  for (uint64_t seed = 0; seed < 12 && !HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    Model(seed).Run(150);
  }
}

}  // namespace
}  // namespace host::classifier
