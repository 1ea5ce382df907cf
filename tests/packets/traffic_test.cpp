// Frames that stream in while the filter is changed.
#include <sched.h>

#include <atomic>
#include <random>
#include <thread>

#include "tests/packets/backend_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

// Frames of one kind stream in from another processor while the filter is changed.
class TrafficTest : public EveryBackendTest<bool> {
 protected:
  static constexpr uint32_t kVictim = 0x0a010203;

  void SetUp() override {
    BackendTest::SetUp();
    if (lab_ == nullptr) return;
    ports_[0] = lab_->Connect(false);
    Open();
    const FiltersEntry denied = DenyTo(kVictim);
    for (const Frame& frame : AllFrames()) {
      if (EntryMatches(denied, ParseFrame(frame))) victims_.push_back(frame);
    }
    ASSERT_FALSE(victims_.empty());
  }

  // Sends the victims over and over until `work` is done.
  template <class Work>
  void UnderTraffic(const Work& work) {
    std::atomic<bool> stop{false};
    std::thread sender([&] {
      cpu_set_t all;
      CPU_ZERO(&all);
      for (size_t i = 0; i < 2; ++i) CPU_SET(i, &all);
      sched_setaffinity(0, sizeof(all), &all);
      while (!stop) {
        lab_->Send(victims_);
        sent_ += victims_.size();
      }
    });
    while (sent_ == 0) usleep(1000);
    work();
    stop = true;
    sender.join();
    EXPECT_GT(sent_, 1000u);
  }

  std::vector<Frame> victims_;
  std::atomic<size_t> sent_{0};
};

// What is in force before a change and after it drops the frames; so does every moment in between,
// also where the entry that does so moves from one group to the other.
TEST_P(TrafficTest, AChangeLeaksNothing) {
  const auto filled = [](filtersGroupType_t type, uint32_t fill, uint32_t count, int deny_at,
                         std::list<limid_t> ports = {1}) {
    std::vector<PlacedEntry> entries;
    for (uint32_t i = 0; i < count; ++i) entries.push_back({DenyTo(fill << 24 | i)});
    if (deny_at >= 0) entries[static_cast<size_t>(deny_at)] = {DenyTo(kVictim), std::move(ports)};
    return GroupOf(type, entries);
  };
  const struct {
    const char* what;
    FiltersGroup before[kGroupSlots], after[kGroupSlots];
  } kChanges[] = {
      {"a refill",
       {filled(kL2Type, 1, 3, -1), filled(kL3Type, 1, 1000, 3)},
       {filled(kL2Type, 1, 3, -1), filled(kL3Type, 2, 1000, 990)}},
      {"a move to the L3 group and back",
       {filled(kL2Type, 1, 10, 5), filled(kL3Type, 1, 1000, -1)},
       {filled(kL2Type, 1, 10, -1), filled(kL3Type, 1, 1001, 700)}},
      {"a move beside much else",
       {filled(kL2Type, 1, 1000, 5), filled(kL3Type, 1, 1000, -1)},
       {filled(kL2Type, 2, 1000, -1), filled(kL3Type, 2, 1000, 700)}},
      {"two ports' denies that change places",
       {filled(kL2Type, 1, 10, 5, {1}), filled(kL3Type, 1, 10, 5, {2})},
       {filled(kL2Type, 1, 10, 5, {2}), filled(kL3Type, 1, 10, 5, {1})}},
      {"a move from every port to this one",
       {filled(kL2Type, 1, 10, 5, {1, 2, 3}), filled(kL3Type, 1, 300, -1)},
       {filled(kL2Type, 1, 10, 5, {2}), filled(kL3Type, 1, 300, 290)}},
  };
  for (const auto& change : kChanges) {
    Apply({&change.before[kL2], &change.before[kL3]});
    lab_->Pass({});
    lab_->Drain();
    UnderTraffic([&] {
      for (int i = 1; i <= 24; ++i) {
        const auto& next = i % 2 == 0 ? change.before : change.after;
        Apply({&next[kL2], &next[kL3]});
      }
    });
    EXPECT_EQ(0u, lab_->Drain()) << change.what;
  }
  const FiltersGroup none[] = {GroupOf(kL2Type, {}), GroupOf(kL3Type, {})};
  Apply({&none[0], &none[1]});
  EXPECT_EQ(victims_.size(), lab_->Pass(victims_).size()) << "the lab itself lets them through";
}

// An entry of the other group, which is never touched, counts the same frames.
TEST_P(TrafficTest, UntouchedEntriesCountOn) {
  std::mt19937 random(7);
  FiltersEntry any(0), tagged(0);
  tagged.setMatch(MatchExternalVlanId(9));
  const FiltersGroup witness = GroupOf(kL2Type, {{any}});
  std::vector<PlacedEntry> entries(500, {DenyTo(kVictim)});
  for (uint32_t i = 0; i < 500; ++i) {
    if (i != 250) entries[i] = {DenyTo(i)};
  }
  size_t victim = 250;
  const FiltersGroup first = GroupOf(kL3Type, entries);
  Apply({&witness, &first});
  UnderTraffic([&] {
    for (uint32_t i = 0; i < 100; ++i) {
      // Most entries change; more come than a chunk holds; the guard goes; and so do they.
      const size_t at = victim + 80 - random() % 160;
      if (i % 4 == 0) {
        for (size_t j = 0; j < entries.size(); j += 2) {
          if (j != victim) entries[j] = {DenyTo(i << 16 | static_cast<uint32_t>(j))};
        }
      } else if (i % 4 <= 2) {
        const std::vector<PlacedEntry> more(i % 4 == 1 ? random() % 300 : 1,
                                            {i % 4 == 1 ? DenyTo(i << 16 | 0xffff) : tagged});
        entries.insert(entries.begin() + static_cast<ptrdiff_t>(at), more.begin(), more.end());
        if (at <= victim) victim += more.size();
      } else if (victim > 500) {
        entries.erase(entries.begin(), entries.begin() + 400);
        victim -= 400;
      }
      const FiltersGroup group = GroupOf(kL3Type, entries);
      Apply({&group});
    }
  });
  const uint64_t all = HitsOf(kL2, 0);
  EXPECT_GT(all, 1000u);
  // A frame that is on its way through a rule when that is moved may go uncounted.
  const uint64_t counted = HitsOf(kL3, static_cast<unsigned short>(victim));
  EXPECT_NEAR(static_cast<double>(all), static_cast<double>(counted), 3);
}

INSTANTIATE_TEST_SUITE_P(Over, TrafficTest,
                         ::testing::Combine(::testing::ValuesIn(BackendsUnderTest()),
                                            ::testing::Values(false)),
                         [](const auto& info) { return std::get<0>(info.param).name; });

}  // namespace
}  // namespace host
