// What the kernel does to real frames, against what the definitions say it should.
#include <sched.h>

#include <atomic>
#include <random>
#include <thread>

#include "host/filter_mgr/entry_text.h"
#include "tests/packets/kernel_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT
using Groups = std::vector<const FiltersGroup*>;

// The parameter: whether frames reach the port with their outer tag beside the bytes.
class PacketTest : public KernelTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    KernelTest::SetUp();
    if (lab_ == nullptr) return;
    ports_[0] = lab_->Connect(GetParam());
    Open();
  }

  // Sends all frames and compares what comes out, bit for bit.
  void ExpectAsReference(const Groups& groups) {
    const std::map<size_t, Frame> passed = lab_->Pass(frames_);
    for (size_t i = 0; i < frames_.size(); ++i) {
      std::optional<Frame> want = ReferenceFilter(groups, 1, frames_[i]);
      const auto it = passed.find(i);
      ASSERT_EQ(want.has_value(), it != passed.end()) << Describe(groups, i);
      if (!want) continue;
      Frame have = it->second;
      want->resize(want->size() - PacketLab::kIdSize);
      have.resize(have.size() - PacketLab::kIdSize);
      ASSERT_EQ(*want, have) << Describe(groups, i);
    }
  }

  std::string Describe(const Groups& groups, size_t index) const {
    std::string text = "frame " + ::testing::PrintToString(frames_[index]);
    for (const FiltersGroup* group : groups) {
      for (const auto& [id, entry] : group->getEntriesRef()) text += "\n" + EntryText(entry);
    }
    return text;
  }

  const std::vector<Frame> frames_ = AllFrames();
};

// Every match alone and with every other, with every action, in either group.
TEST_P(PacketTest, MatchesAndActionsAloneAndInPairs) {
  const FiltersGroup empty[] = {GroupOf(kL2Type, {}), GroupOf(kL3Type, {})};
  unsigned int variant = 0;
  size_t deciding = 0;
  for (int a = 0; a < kMatchKinds; ++a) {
    for (int b = a; b < kMatchKinds; ++b) {
      for (int round = 0; round < 3 * kActionKinds; ++round, ++variant) {
        FiltersEntry entry(0);
        AddMatch(&entry, b, variant / 2);
        AddMatch(&entry, a, variant / 3);
        AddAction(&entry, round % kActionKinds, variant);
        const bool l2 = variant % 2 == 0;
        const FiltersGroup group = GroupOf(l2 ? kL2Type : kL3Type, {{entry}});
        Apply(group);
        Apply(empty[l2 ? 1 : 0]);
        ExpectAsReference({&group});
        const auto decided = std::count_if(frames_.begin(), frames_.end(), [&](const Frame& f) {
          return ReferenceDecider(group, 1, f) != nullptr;
        });
        ASSERT_EQ(static_cast<uint64_t>(decided), HitsOf(group, 0)) << EntryText(entry);
        deciding += decided != 0 ? 1 : 0;
        if (HasFatalFailure()) return;
        Apply(GroupOf(group.getType(), {}));
      }
    }
  }
  EXPECT_GT(deciding, 300u) << "most entries should have something to decide";
}

TEST_P(PacketTest, RandomGroupsUnderRandomEdits) {
  std::mt19937 random(GetParam() ? 1 : 2);
  PacketLab::AddPair(ports_[1]);  // not every kernel keeps rules for ports that are not there
  std::vector<PlacedEntry> entries[2];
  for (int step = 0; step < 60; ++step) {
    auto& edited = entries[random() % 2];
    for (auto count = random() % 5; count > 0; --count) {
      const auto at = edited.begin() + static_cast<ptrdiff_t>(random() % (edited.size() + 1));
      if (at != edited.end() && random() % 3 == 0) {
        edited.erase(at);
      } else {
        edited.insert(at, {RandomEntry(&random),
                           random() % 4 == 0 ? std::list<limid_t>{1, 2} : std::list<limid_t>{1}});
      }
    }
    const FiltersGroup l2 = GroupOf(kL2Type, entries[0]), l3 = GroupOf(kL3Type, entries[1]);
    Apply(l2);
    Apply(l3);
    ExpectInKernel({&l2, &l3});
    ExpectAsReference({&l2, &l3});
    if (HasFatalFailure()) return;
  }
}

TEST_P(PacketTest, SettingThePcpSelectsTheQueueAndChangesNothingElse) {
  FiltersEntry entry(0);
  entry.setAction(ActionSetPcpAndQueue(5));
  const FiltersGroup group = GroupOf(kL2Type, {{entry}});
  Apply(group);
  PacketLab::Run("nft insert rule netdev lab " + ports_[0] + "-last meta priority 0:5 counter");
  ExpectAsReference({&group});
  EXPECT_THAT(PacketLab::Output("nft list chain netdev lab " + ports_[0] + "-last"),
              ::testing::HasSubstr("counter packets " + std::to_string(frames_.size())));
}

// A frame that ends behind its EtherType has all that the link layer's matches ask for.
TEST_P(PacketTest, ReadsNoByteMoreThanItCompares) {
  const ether_addr mac = {{2, 0, 0, 0, 0, 1}};
  FiltersEntry entry(0);
  entry.setMatch(MatchDstMac(mac));
  entry.setMatch(MatchTPID(0x88b5));
  entry.setAction(ActionDeny());
  const FiltersGroup group = GroupOf(kL2Type, {{entry}});
  Apply(group);
  lab_->Send({{2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2, 0x88, 0xb5}});
  ExpectAsReference({&group});  // waits for the frame as well
  const auto decided = std::count_if(frames_.begin(), frames_.end(),
                                     [&](const Frame& f) { return ReferenceMatches(entry, f); });
  EXPECT_EQ(static_cast<uint64_t>(decided) + 1, HitsOf(group, 0));
}

INSTANTIATE_TEST_SUITE_P(Tags, PacketTest, ::testing::Bool(), [](const auto& info) {
  return info.param ? "BesideTheBytes" : "InTheBytes";
});

// Frames of one kind stream in from another processor while the filter is changed.
class TrafficTest : public KernelTest {
 protected:
  static constexpr uint32_t kVictim = 0x0a010203;

  void SetUp() override {
    KernelTest::SetUp();
    if (lab_ == nullptr) return;
    ports_[0] = lab_->Connect(false);
    Open();
    const FiltersEntry denied = DenyTo(kVictim);
    for (const Frame& frame : AllFrames()) {
      if (ReferenceMatches(denied, frame)) victims_.push_back(frame);
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

// Both contents drop the frames; so does every moment of the change from one to the other.
TEST_F(TrafficTest, ARefillLeaksNothing) {
  if (lab_ == nullptr) return;
  // Contents that share no rule but the one that drops, which stands at different places.
  FiltersGroup contents[2] = {GroupOf(kL3Type, {}), GroupOf(kL3Type, {})};
  for (uint32_t which = 0; which < 2; ++which) {
    std::vector<PlacedEntry> entries;
    for (uint32_t i = 0; i < 1000; ++i) entries.push_back({DenyTo(which << 24 | i)});
    entries[which == 0 ? 3 : 990].entry = DenyTo(kVictim);
    contents[which] = GroupOf(kL3Type, entries);
  }
  Apply(contents[0]);
  UnderTraffic([&] {
    for (int i = 1; i <= 60; ++i) Apply(contents[i % 2]);
  });
  EXPECT_EQ(0u, lab_->Drain());
  Apply(GroupOf(kL3Type, {}));
  EXPECT_EQ(victims_.size(), lab_->Pass(victims_).size()) << "the lab itself lets them through";
}

// An entry of the other group, which is never touched, counts the same frames.
TEST_F(TrafficTest, UntouchedEntriesCountOn) {
  if (lab_ == nullptr) return;
  std::mt19937 random(7);
  FiltersEntry any(0), tagged(0);
  tagged.setMatch(MatchExternalVlanId(9));
  const FiltersGroup witness = GroupOf(kL2Type, {{any}});
  std::vector<PlacedEntry> entries(500, {DenyTo(kVictim)});
  for (uint32_t i = 0; i < 500; ++i) {
    if (i != 250) entries[i] = {DenyTo(i)};
  }
  size_t victim = 250;
  Apply(witness);
  Apply(GroupOf(kL3Type, entries));
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
      Apply(group);
      ExpectInKernel({&witness, &group});
    }
  });
  const uint64_t all = HitsOf(witness, 0);
  EXPECT_GT(all, 1000u);
  // A frame that is on its way through a rule when that is moved may go uncounted.
  const uint64_t counted = HitsOf(GroupOf(kL3Type, entries), static_cast<unsigned short>(victim));
  EXPECT_NEAR(static_cast<double>(all), static_cast<double>(counted), 3);
}

}  // namespace
}  // namespace host
