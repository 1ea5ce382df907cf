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
    Model(seed).Run(100);
  }
}

// Searches run beside updates that never change their outcome: in each generation one of two roots
// denies the frame, and the other lets it pass.
TEST(ClassifierTest, SwitchesAllRootsAtOnceUnderRunningSearches) {
  if (sizeof(void*) < 8) GTEST_SKIP() << "a generation takes two stores on this machine";
  HeapMemory memory;
  for (int array = 0; array < CLS_ARRAYS; ++array) {  // arrays must not move
    ASSERT_EQ(0, memory.Grow(static_cast<cls_array>(array), 1U << 16));
  }
  Classifier classifier(&memory);
  ASSERT_TRUE(classifier.Format());
  std::mt19937_64 random(1);
  Refusal refusal;
  Rule deny;
  deny.mask.word[2] = deny.value.word[2] = 0xffff0000;
  deny.action = CLS_DENY;
  EntryId denying = classifier.Insert(0, kNoEntry, deny, &refusal);
  classifier.Publish();

  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::atomic<uint64_t> begun{0};  // even: the searcher is between two searches
  std::thread searcher([&] {
    const auto denies = [&](uint32_t root, uint64_t generation) {
      const uint32_t hit = Search(memory, root, {{0, 0, 0xffff0000, 0}}, generation);
      return hit == CLS_FAILED || memory.At<cls_entry>(CLS_ENTRIES, hit)->action == CLS_DENY;
    };
    while (!stop) {
      ++begun;
      const uint64_t generation = __atomic_load_n(&memory.control()->generation, __ATOMIC_ACQUIRE);
      if (denies(0, generation) == denies(1, generation)) ++wrong;
      ++begun;
    }
  });
  for (int i = 0; i < 600; ++i) {
    const uint32_t from = i % 2;
    ASSERT_TRUE(classifier.Remove(denying, &refusal));
    EntryId last = kNoEntry;
    for (int j = 0; j < 3; ++j) {  // beside it, so that tables and chains change
      Rule other = RandomRule(Kind::kNested, random);
      other.mask.word[3] |= 0xffff;
      other.value.word[3] |= 1;
      last = classifier.Insert(random() % 2, kNoEntry, other, &refusal);
    }
    if (i % 3 == 0) classifier.Remove(last, &refusal);
    denying = classifier.Insert(1 - from, kNoEntry, deny, &refusal);
    ASSERT_NE(denying, kNoEntry) << refusal.text;
    if (i % 50 == 0) {
      const uint32_t root = i / 50 % 2;
      if (root == from) classifier.Replace(root, nullptr, 0, nullptr, &refusal);
    }
    classifier.Publish();
    const uint64_t ticket = classifier.TakeTicket();
    const uint64_t then = begun;
    while (then % 2 != 0 && begun == then) std::this_thread::yield();
    classifier.GracePassed(ticket);
  }
  stop = true;
  searcher.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_GT(begun, 1000U);
}

// What does not fit is refused with its numbers, and what was in force stays.
TEST(ClassifierTest, RefusesWhatItCannotHold) {
  std::mt19937_64 random(1);
  struct Case {
    uint32_t limit;  // elements of each array
    size_t rules;
    Refusal::Kind refused;
  };
  for (const Case& c :
       {Case{512, 3000, Refusal::kNoRoom}, Case{1U << 18, 4000, Refusal::kTooComplex}}) {
    HeapMemory memory(c.limit);
    Classifier classifier(&memory);
    ASSERT_TRUE(classifier.Format());
    Refusal refusal;
    Rule all;
    ASSERT_NE(classifier.Insert(0, kNoEntry, all, &refusal), kNoEntry);
    classifier.Publish();
    // Masks without order that all meet in one key: no table but the coarsest holds two.
    std::vector<Rule> rules(c.rules);
    for (Rule& rule : rules) rule.mask.word[2] = random();
    EXPECT_FALSE(classifier.Replace(0, rules.data(), rules.size(), nullptr, &refusal));
    EXPECT_EQ(refusal.kind, c.refused);
    EXPECT_GT(refusal.wanted, 0U);
    classifier.Publish();  // leaves it out
    EXPECT_EQ(classifier.UsageOf(0).entries, 1U);
    if (c.refused == Refusal::kTooComplex) continue;
    EntryId last = kNoEntry;
    for (const Rule& rule : rules) {  // one by one: as many as fit
      const EntryId id = classifier.Insert(0, last, rule, &refusal);
      if (id == kNoEntry) break;
      last = id;
      classifier.Publish();
    }
    classifier.Publish();
    EXPECT_EQ(classifier.Check(), "");
    EXPECT_LT(classifier.UsageOf(0).entries, c.rules);
    EXPECT_GT(classifier.UsageOf(0).entries, 100U);
    EXPECT_NE(Search(memory, 0, {{0, 0, ~0ULL, 0}}, classifier.generation()), 0U);
  }
}

}  // namespace
}  // namespace host::classifier
