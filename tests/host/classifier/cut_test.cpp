// A process dies between any two instructions of an update; the next one must find the old state or
// the new one, whole. The update runs in a child that is stepped through it; at each stop the
// arrays, which both share, are copied and taken over.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstring>

#include "host/classifier/classifier.h"
#include "tests/host/classifier/rule_sets.h"

namespace host::classifier {
namespace {

constexpr uint32_t kElements = 256;
constexpr size_t kArrayBytes = kElements * sizeof(cls_group);  // the largest element
constexpr int kUpdates = 12;

// Arrays in one piece of memory that a child process shares.
class SharedMemory final : public Memory {
 public:
  explicit SharedMemory(char* bytes) {
    for (size_t i = 0; i < CLS_ARRAYS; ++i) areas_[i] = {bytes + i * kArrayBytes, kElements};
  }
  int Grow(cls_array /*array*/, uint32_t capacity) override {
    return capacity <= kElements ? 0 : -E2BIG;
  }
  void WaitForReaders() override {}
};

char* Map() {
  void* bytes = mmap(nullptr, CLS_ARRAYS * kArrayBytes, PROT_READ | PROT_WRITE,
                     MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return static_cast<char*>(bytes);
}

// What the roots hold, in order, told by the rules' cookies; without entries that stand behind one
// of the same match, which a restart does not find.
using Content = std::vector<uint64_t>;
Content ContentOf(const Classifier& classifier) {
  Content content;
  for (uint32_t root = 0; root < 2; ++root) {
    for (EntryId id = classifier.First(root); id != kNoEntry; id = classifier.Next(id)) {
      const Rule rule = classifier.RuleOf(id);
      bool shadowed = false;
      for (EntryId other = classifier.First(root); other != id; other = classifier.Next(other)) {
        const Rule before = classifier.RuleOf(other);
        shadowed |= before.mask == rule.mask && before.value == rule.value;
      }
      if (!shadowed) content.push_back(rule.cookie);
    }
    content.push_back(0);
  }
  return content;
}

// Updates of two roots; the content of each generation goes to `contents` (may be null).
void RunUpdates(Memory* memory, std::vector<Content>* contents) {
  std::mt19937_64 random(7);
  Classifier classifier(memory);
  classifier.Format();
  Refusal refusal;
  const Rule rule = RandomRule(Kind::kEqual, random);
  classifier.Insert(0, kNoEntry, rule, &refusal);
  for (int update = 0; update < kUpdates; ++update) {
    classifier.Publish();
    if (contents != nullptr) {
      contents->resize(classifier.generation() + 1);
      contents->back() = ContentOf(classifier);
    }
    for (uint64_t i = 0; i < 3; ++i) {
      const Kind kind = random() % 8 == 0 ? Kind::kLink : Kind::kEqual;
      const uint32_t root = random() % 2;
      const EntryId after = random() % 3 == 0 ? kNoEntry : classifier.First(root);
      classifier.Insert(root, after, RandomRule(kind, random), &refusal);
      if (random() % 3 == 0) classifier.Remove(classifier.First(root), &refusal);
    }
    if (update % 8 == 3) {
      std::vector<Rule> rules(6);
      for (Rule& made : rules) made = RandomRule(Kind::kEqual, random);
      classifier.Replace(1, rules.data(), rules.size(), nullptr, &refusal);
    }
    if (update % 8 == 2) classifier.DiscardAll();
    if (update % 3 == 0) classifier.GracePassed(classifier.TakeTicket());
  }
}

TEST(ClassifierCutTest, LeavesTheOldStateOrTheNewOneAtAnyInstruction) {
  std::vector<Content> contents;
  {
    HeapMemory memory;
    RunUpdates(&memory, &contents);
  }
  char* bytes = Map();
  char* copy = Map();
  const pid_t child = fork();
  if (child == 0) {
    if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(77);
    raise(SIGSTOP);
    SharedMemory memory(bytes);
    RunUpdates(&memory, nullptr);
    _exit(0);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFEXITED(status)) GTEST_SKIP() << "the kernel does not let this process be traced";
  std::mt19937 random(3);
  std::string problem;
  int stops = 0;
  uint32_t left = 1;
  while (!HasFailure() && ptrace(PTRACE_SINGLESTEP, child, nullptr, nullptr) == 0 &&
         waitpid(child, &status, 0) == child && WIFSTOPPED(status)) {
    const auto* control = reinterpret_cast<const cls_control*>(bytes);
    if (--left != 0 || control->generation < 2) {
      if (left == 0) left = 1;
      continue;
    }
    left = 1 + random() % 1500;
    ++stops;
    std::memcpy(copy, bytes, CLS_ARRAYS * kArrayBytes);
    SharedMemory memory(copy);
    Classifier found(&memory);
    ASSERT_TRUE(found.Adopt(&problem)) << problem;
    ASSERT_EQ(ContentOf(found), contents[found.generation()]) << found.generation();
    ASSERT_EQ(found.Check(), "");
  }
  kill(child, SIGKILL);
  waitpid(child, &status, 0);
  EXPECT_GT(stops, 100);
  munmap(bytes, CLS_ARRAYS * kArrayBytes);
  munmap(copy, CLS_ARRAYS * kArrayBytes);
}

}  // namespace
}  // namespace host::classifier
