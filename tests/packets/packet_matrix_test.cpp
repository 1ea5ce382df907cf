// What the kernel does to real frames, against what a trace of each tells.
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>

#include <random>

#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/entry_text.h"
#include "tests/packets/backend_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT
using Groups = std::vector<const FiltersGroup*>;

// The parameter: whether frames reach the port with their outer tag beside the bytes.
class PacketTest : public EveryBackendTest<bool> {
 protected:
  void SetUp() override {
    BackendTest::SetUp();
    if (lab_ == nullptr) return;
    ports_[0] = lab_->Connect(own_parameter());
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
  // Where a tag stands has to do with few matches: fewer variants where it is in the metadata.
  const int rounds = own_parameter() ? kActionKinds : 3 * kActionKinds;
  unsigned int variant = 0;
  size_t deciding = 0;
  for (int a = 0; a < kMatchKinds; ++a) {
    for (int b = a; b < kMatchKinds; ++b) {
      for (int round = 0; round < rounds; ++round, ++variant) {
        FiltersEntry entry(0);
        AddMatch(&entry, b, variant / 2);
        AddMatch(&entry, a, variant / 3);
        AddAction(&entry, round % kActionKinds, variant);
        const bool l2 = variant % 2 == 0;
        const FiltersGroup group = GroupOf(l2 ? kL2Type : kL3Type, {{entry}});
        Apply({&group, &empty[l2 ? 1 : 0]});
        ExpectAsReference({&group});
        const auto decided = std::count_if(frames_.begin(), frames_.end(), [&](const Frame& f) {
          return FindDecider(group, 1, ParseFrame(f)) != nullptr;
        });
        ASSERT_EQ(static_cast<uint64_t>(decided), HitsOf(l2 ? kL2 : kL3, 0)) << EntryText(entry);
        deciding += decided != 0 ? 1 : 0;
        if (HasFatalFailure()) return;
      }
    }
  }
  EXPECT_GT(deciding, variant / 2) << "most entries should have something to decide";
}

TEST_P(PacketTest, RandomGroupsUnderRandomEdits) {
  std::mt19937 random(own_parameter() ? 1 : 2);
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
    Apply({&l2, &l3});
    ExpectAsReference({&l2, &l3});
    if (HasFatalFailure()) return;
  }
}

// Hits belong to the entry that decided, not to what it says: neither an equal entry nor one that
// takes its place gets them, and another number, or another place, does not lose them.
TEST_P(PacketTest, EqualEntriesCountForThemselves) {
  const auto copies = frames_.size();
  const FiltersEntry other = DenyTo(7);
  std::vector<FiltersEntry> any;  // equal, and each its own
  for (int i = 0; i < 3; ++i) {
    any.emplace_back(0);
    any.back().setAction(ActionPermit());
  }
  const FiltersGroup l2 = GroupOf(kL2Type, {});
  const auto apply = [&](const std::vector<PlacedEntry>& entries) {
    const FiltersGroup group = GroupOf(kL3Type, entries);
    Apply({&l2, &group});
    std::vector<uint64_t> hits;
    for (unsigned short id = 0; id < entries.size(); ++id) hits.push_back(HitsOf(kL3, id));
    return hits;
  };
  using Each = std::vector<uint64_t>;
  apply({{any[0]}, {any[1]}});
  lab_->Pass(frames_);
  EXPECT_EQ((Each{0, copies, 0}), apply({{other}, {any[0]}, {any[1]}}));
  EXPECT_EQ((Each{0, 0}), apply({{other}, {any[1]}})) << "the other equal one is gone";
  lab_->Pass(frames_);
  const uint64_t counted = HitsOf(kL3, 1);
  EXPECT_GT(counted, copies / 2);
  EXPECT_EQ((Each{0, counted, 0}), apply({{any[2]}, {any[1]}, {other}})) << "an equal one came";
  EXPECT_EQ((Each{counted, 0, 0}), apply({{any[1]}, {other}, {any[2]}})) << "and moved";
  FiltersEntry renumbered(0);
  renumbered.setAction(ActionPermit());
  EXPECT_EQ((Each{counted, 0}), apply({{renumbered}, {any[2]}}));
}

TEST_P(PacketTest, SettingThePcpSelectsTheQueueAndChangesNothingElse) {
  FiltersEntry entry(0);
  entry.setAction(ActionSetPcpAndQueue(5));
  const FiltersGroup group = GroupOf(kL2Type, {{entry}});
  Apply({&group});
  PacketLab::Run("nft insert rule netdev lab " + ports_[0] + "-last meta priority 0:5 counter");
  ExpectAsReference({&group});
  EXPECT_THAT(PacketLab::Output("nft list chain netdev lab " + ports_[0] + "-last"),
              ::testing::HasSubstr("counter packets " + std::to_string(frames_.size())));
}

// A frame may end anywhere: it has what is compared, or not, and nothing behind that is read.
TEST_P(PacketTest, FramesMayEndAnywhere) {
  std::vector<Frame> cut;
  for (const Frame& frame : frames_) {
    if (frame[12] == 0x81 || frame[12] == 0x88 || cut.size() > 2000) continue;  // untagged ones
    for (size_t size = 14; size < frame.size(); size += size < 40 ? 1 : 3) {
      cut.emplace_back(frame.begin(), frame.begin() + static_cast<ptrdiff_t>(size));
    }
  }
  constexpr unsigned int kNoBits = 11;  // the variant of an address whose mask has none
  constexpr std::pair<int, unsigned int> kEach[] = {
      {0, 1}, {3, 1}, {5, 1}, {6, 1}, {7, 1}, {7, kNoBits}, {8, 1}, {8, kNoBits}, {9, 1}, {10, 1}};
  for (const auto& [kind, variant] : kEach) {
    FiltersEntry entry(0);
    AddMatch(&entry, kind, variant);
    entry.setAction(ActionDeny());
    const FiltersGroup group = GroupOf(kL2Type, {{entry}});
    Apply({&group});
    const uint64_t before = HitsOf(kL2, 0);
    lab_->Send(cut);
    lab_->Pass({});  // waits for them
    const auto want = std::count_if(
        cut.begin(), cut.end(), [&](const Frame& f) { return EntryMatches(entry, ParseFrame(f)); });
    EXPECT_EQ(static_cast<uint64_t>(want), HitsOf(kL2, 0) - before) << EntryText(entry);
  }
}

// Of an interface without Ethernet no frame has what is compared of its header.
TEST_P(PacketTest, InterfacesMayHaveNoEthernet) {
  const Descriptor tun(open("/dev/net/tun", O_RDWR | O_CLOEXEC));
  ifreq request{};
  request.ifr_flags = IFF_TUN | IFF_NO_PI;
  ports_[1].copy(request.ifr_name, IFNAMSIZ - 1);
  if (ioctl(tun.get(), TUNSETIFF, &request) != 0) GTEST_SKIP() << "no tun: " << strerror(errno);
  PacketLab::Run("ip link set " + ports_[1] + " up");
  for (int kind = 0; kind < kMatchKinds; ++kind) {
    FiltersEntry entry(0);
    AddMatch(&entry, kind, 1);
    entry.setAction(ActionDeny());
    const FiltersGroup group = GroupOf(kL2Type, {{entry, {2}}});
    Apply({&group});
    uint64_t want = HitsOf(kL2, 0), sent = 0;
    for (const Frame& frame : frames_) {
      const FrameFields fields = ParseFrame(frame);
      const int version = frame[14] >> 4;  // by which the device tells what it is
      if (fields.after_source != (version == 4 ? 0x0800 : 0x86dd)) continue;
      if (write(tun.get(), frame.data() + 14, frame.size() - 14) < 0) continue;
      ++sent;
      want += kind > 4 && EntryMatches(entry, fields) ? 1 : 0;
    }
    EXPECT_LT(30u, sent);
    EXPECT_EQ(want, HitsOf(kL2, 0)) << EntryText(entry);
  }
}

INSTANTIATE_TEST_SUITE_P(Over, PacketTest,
                         ::testing::Combine(::testing::ValuesIn(BackendsUnderTest()),
                                            ::testing::Bool()),
                         [](const auto& info) {
                           return std::string(std::get<0>(info.param).name) + "TagsIn" +
                                  (std::get<1>(info.param) ? "Metadata" : "Bytes");
                         });

}  // namespace
}  // namespace host
