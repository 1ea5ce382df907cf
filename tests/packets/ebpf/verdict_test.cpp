// What the program decides about frames, in the kernel's test runs, against the reference.
#include <random>

#include "tests/packets/ebpf/ebpf_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

// ACL_VERDICT_ROUNDS sets how many groups are tried.
int Rounds() {
  const char* const text = getenv("ACL_VERDICT_ROUNDS");
  return text == nullptr ? 40 : atoi(text);
}

class VerdictTest : public EbpfTest {
 protected:
  void SetUp() override {
    EbpfTest::SetUp();
    if (lab_ == nullptr) return;
    AddPort("p1");
    AddPort("p2");
    Open();
  }

  // Of the frames, a few that are not tried each time.
  std::vector<Frame> Some(std::mt19937* random, size_t count) const {
    std::vector<Frame> some;
    for (size_t i = 0; i < count; ++i) some.push_back(all_[(*random)() % all_.size()]);
    return some;
  }

  // The cost that is kept from update to update is that of all ports as they are.
  void ExpectCost(GroupSlot slot) {
    for (uint32_t next = 0; ebpf_->SampleCost(slot, &next);) {
    }
    SearchCost worst{"", SearchCost::Tables{}, 0};
    for (uint32_t root = slot; root < ebpf_->classifier().root_count(); root += 2) {
      const uint32_t entries = ebpf_->classifier().UsageOf(root).entries;
      if (entries == 0) continue;
      const classifier::Cost cost = ebpf_->classifier().CostOf(root, SearchSamples(entries));
      const SearchCost here{"", SearchCost::Tables{cost.mean_tables, cost.worst_tables},
                            cost.worst_entries};
      if (worst < here) worst = here;
    }
    const SearchCost told = ebpf_->CostOf(slot).value_or(SearchCost{"", SearchCost::Tables{}, 0});
    EXPECT_FALSE(told < worst || worst < told) << told.MeanText() << " " << worst.MeanText();
  }

  const std::vector<Frame> all_ = AllFrames();
};

TEST_F(VerdictTest, EveryMatchWithEveryAction) {
  unsigned int variant = 0;
  for (int kind = 0; kind < kMatchKinds; ++kind) {
    for (int action = 0; action < kActionKinds; ++action, ++variant) {
      FiltersEntry entry(0);
      AddMatch(&entry, kind, variant);
      AddAction(&entry, action, variant);
      const FiltersGroup group = GroupOf(variant % 2 == 0 ? kL2Type : kL3Type, {{entry}});
      const FiltersGroup other = GroupOf(variant % 2 == 0 ? kL3Type : kL2Type, {});
      Apply({&group, &other});
      ExpectAsReference({&group}, 1, all_);
      const auto decided = std::count_if(all_.begin(), all_.end(), [&](const Frame& frame) {
        return EntryMatches(entry, ParseFrame(frame));
      });
      const Hits hits = ebpf_->HitsOf(SlotOf(group.getType())).at(0);
      ASSERT_EQ(static_cast<uint64_t>(decided), hits.packets) << EntryText(entry);
      if (HasFatalFailure()) return;
    }
  }
}

// In a test run also an interface of another kind gets frames with a header in front of IP's.
TEST_F(VerdictTest, TheNetworkHeaderIsFoundBehindAnyOther) {
  PacketLab::Run("ip tuntap add p3 mode tun");
  std::vector<Frame> frames;
  for (const Frame& frame : all_) {
    if (ParseFrame(frame).after_source == 0x0800 || ParseFrame(frame).after_source == 0x86dd) {
      frames.push_back(frame);
    }
  }
  for (const int kind : {5, 6, 7, 8, 9, 10}) {
    FiltersEntry entry(0);
    AddMatch(&entry, kind, 1);
    AddAction(&entry, 0, 0);
    const FiltersGroup group = GroupOf(kL3Type, {{entry, {3}}});
    Apply({&group});
    ExpectAsReference({&group}, 3, frames);
  }
}

TEST_F(VerdictTest, RandomGroupsUnderRandomUpdates) {
  std::mt19937 random(1);
  std::vector<PlacedEntry> entries[2];
  for (int round = 0; round < Rounds(); ++round) {
    if (round % 20 == 19) entries[0].clear(), entries[1].clear();
    for (auto& edited : entries) {
      const auto changes = round % 10 == 0 ? 60 : random() % 6;
      for (unsigned int i = 0; i < changes; ++i) {
        const auto at = edited.begin() + static_cast<ptrdiff_t>(random() % (edited.size() + 1));
        if (at != edited.end() && random() % 3 == 0) {
          edited.erase(at);
        } else {
          const auto port = static_cast<limid_t>(1 + random() % 2);
          const auto ports =
              random() % 4 == 0 ? std::list<limid_t>{1, 2} : std::list<limid_t>{port};
          if (at != edited.end() && random() % 3 == 0) {
            at->ports = ports;  // its content stays the same object
          } else {
            edited.insert(at, {RandomEntry(&random), ports});
          }
        }
      }
    }
    const FiltersGroup l2 = GroupOf(kL2Type, entries[0]), l3 = GroupOf(kL3Type, entries[1]);
    Apply({&l2, &l3});
    for (const GroupSlot slot : kSlots) ExpectCost(slot);
    if (round % 3 == 0) Settle();
    if (round % 7 == 3) Open();
    for (const limid_t port : {1, 2}) {
      if (ebpf_->Ports().count(ports_[port - 1]) == 0) continue;  // no entry, no program
      // Twice, so that decisions are taken from the cache, too.
      const std::vector<Frame> frames = Some(&random, 60);
      ExpectAsReference({&l2, &l3}, port, frames);
      ExpectAsReference({&l2, &l3}, port, frames);
    }
    if (HasFatalFailure()) return;
  }
}

}  // namespace
}  // namespace host
