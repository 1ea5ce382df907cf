// What the kernel does to real frames, against what the definitions say it should.
#include <sched.h>

#include <atomic>
#include <random>
#include <thread>

#include "host/filter_mgr/entry_text.h"
#include "tests/e2e/packets/kernel_fixture.h"

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

using TrafficTest = KernelTest;

// Both contents drop the frames; so does every moment of the change from one to the other.
TEST_F(TrafficTest, ARefillLeaksNothing) {
  if (lab_ == nullptr) return;
  ports_[0] = lab_->Connect(false);
  Open();
  // Contents that share no rule but the one that drops, which stands at different places.
  FiltersGroup contents[2] = {GroupOf(kL3Type, {}), GroupOf(kL3Type, {})};
  constexpr uint32_t kVictim = 0x0a010203;
  for (uint32_t which = 0; which < 2; ++which) {
    std::vector<PlacedEntry> entries;
    for (uint32_t i = 0; i < 1000; ++i) entries.push_back({DenyTo(which << 24 | i)});
    entries[which == 0 ? 3 : 990].entry = DenyTo(kVictim);
    contents[which] = GroupOf(kL3Type, entries);
  }
  std::vector<Frame> victims;
  const FiltersEntry denied = DenyTo(kVictim);
  for (const Frame& frame : AllFrames()) {
    if (ReferenceMatches(denied, frame)) victims.push_back(frame);
  }
  ASSERT_FALSE(victims.empty());
  Apply(contents[0]);

  std::atomic<bool> stop{false};
  std::atomic<size_t> sent{0};
  std::thread sender([&] {
    cpu_set_t all;
    CPU_ZERO(&all);
    for (size_t i = 0; i < 2; ++i) CPU_SET(i, &all);
    sched_setaffinity(0, sizeof(all), &all);
    while (!stop) {
      lab_->Send(victims);
      sent += victims.size();
    }
  });
  for (int i = 1; i <= 60; ++i) Apply(contents[i % 2]);
  stop = true;
  sender.join();
  EXPECT_EQ(0u, lab_->Drain());
  EXPECT_GT(sent, 1000u);
  Apply(GroupOf(kL3Type, {}));
  EXPECT_EQ(victims.size(), lab_->Pass(victims).size()) << "the lab itself lets them through";
}

}  // namespace
}  // namespace host
