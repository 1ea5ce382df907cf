// Filters outlive the process: taken over as they are, whatever moment it ended at.
#include <sys/wait.h>

#include <csignal>
#include <random>

#include "host/filter_mgr/ebpf/flush.h"
#include "tests/packets/ebpf/ebpf_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

// The parameter: whether programs hang on links, or are attached as older kernels do.
class RestartTest : public EbpfTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    EbpfTest::SetUp();
    if (lab_ == nullptr) return;
    options_.links = GetParam();
    AddPort("p1");
    AddPort("p2");
    Open();
  }

  // A content of both groups, told from others by a number: port 1 and 2, `size` entries each.
  static std::array<FiltersGroup, 2> Content(unsigned int seed, size_t size) {
    std::mt19937 random(seed);
    std::vector<PlacedEntry> entries[2];
    for (auto& list : entries) {
      for (size_t i = 0; i < size; ++i) {
        list.push_back({RandomEntry(&random), {static_cast<limid_t>(1 + i % 2)}});
      }
    }
    return {GroupOf(kL2Type, entries[0]), GroupOf(kL3Type, entries[1])};
  }

  // Whether the frames are decided as this content says.
  bool InForce(const std::array<FiltersGroup, 2>& content) {
    for (const limid_t port : {1, 2}) {
      const auto interface = static_cast<int>(if_nametoindex(ports_[port - 1].c_str()));
      for (const Frame& frame : frames_) {
        const ProgramRun run = RunProgram(ebpf_->store().program(), interface, frame);
        const auto want = ReferenceFilter({&content[0], &content[1]}, port, frame);
        if (want.has_value() != run.passed || (want && *want != run.frame)) return false;
      }
    }
    return true;
  }

  const std::vector<Frame> frames_ = AllFrames();
};

TEST_P(RestartTest, TheSameGroupsAreTakenOverWithoutAWrite) {
  auto content = Content(1, 50);
  Apply({&content[0], &content[1]});
  ExpectAsReference({&content[0], &content[1]}, 1, frames_);
  const uint32_t program = ProgramId(ebpf_->store().program());
  const uint64_t generation = ebpf_->classifier().generation();
  const std::vector<Hits> hits = ebpf_->HitsOf(kL3);
  Open();
  EXPECT_EQ(2u, ebpf_->Left());
  EXPECT_TRUE(InForce(content)) << "before the groups are known";
  content = Content(1, 50);  // equal, and nothing shared
  EXPECT_EQ(0u, WritesOf({&content[0], &content[1]}));
  EXPECT_EQ(program, ProgramId(ebpf_->store().program()));
  EXPECT_EQ(generation, ebpf_->classifier().generation());
  const std::vector<Hits> now = ebpf_->HitsOf(kL3);
  for (size_t i = 0; i < hits.size(); ++i) EXPECT_LE(hits[i].packets, now[i].packets) << i;
  if (ebpf_->guards() != nullptr) {
    EXPECT_EQ(0u, ebpf_->guards()->writes());
  }
  LeftFilters left;
  EXPECT_EQ(0, LeftByEbpf(&left, options_.directory));
  EXPECT_EQ(2u, left.ports) << "whoever has the lock";
  ebpf_.reset();
  EXPECT_EQ(-EACCES, FlushEbpf(&left, options_.directory + "/elsewhere"));
  EXPECT_EQ(2u, left.ports) << "in force, and pinned out of sight";
  EXPECT_EQ(0, FlushEbpf(&left, options_.directory));
  EXPECT_EQ(2u, left.ports);
  EXPECT_EQ("",
            PacketLab::Output("nft list tables; tc filter show dev p1 ingress; bpftool net show "
                              "dev p1 2>/dev/null | grep acl"));
  Open();
  EXPECT_EQ(0u, ebpf_->Left());
}

// A process that goes from one content to the other, over and over, is killed at any moment; sizes
// differ, so that the maps grow on the way.
TEST_P(RestartTest, KilledAnywhereLeavesTheOldOrTheNew) {
  std::mt19937 random(3);
  const std::array<std::array<FiltersGroup, 2>, 2> contents = {Content(1, 20), Content(2, 300)};
  Apply({&contents[0][0], &contents[0][1]});
  for (int round = 0; round < 12; ++round) {
    ebpf_.reset();
    const pid_t child = fork();
    if (child == 0) {
      Open();
      for (unsigned int i = 1;; ++i) {
        const auto& next = contents[i % 2];
        if (ebpf_->Prepare(next[0]) != FILTER_MGR_OK || ebpf_->Prepare(next[1]) != FILTER_MGR_OK ||
            ebpf_->Publish().state != Standing::kInForce) {
          _exit(1);
        }
        ebpf_->Idle();
        ebpf_->Poll();
      }
    }
    usleep(10000 + random() % (round < 4 ? 800000 : 60000));
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(child, waitpid(child, &status, 0));
    ASSERT_TRUE(WIFSIGNALED(status)) << "the child failed";
    Open();
    ASSERT_TRUE(InForce(contents[0]) || InForce(contents[1])) << round;
    Apply({&contents[round % 2][0], &contents[round % 2][1]});
    ASSERT_TRUE(InForce(contents[round % 2])) << round;
    EXPECT_EQ("", ebpf_->classifier().Check());
  }
}

TEST_P(RestartTest, TablesOfAnotherLayoutAreReplacedWhole) {
  const auto before = Content(1, 10), after = Content(2, 10);
  Apply({&before[0], &before[1]});
  ebpf_->store().config()->layout ^= 1;
  Open();
  EXPECT_EQ(2u, ebpf_->Left());
  ASSERT_EQ(FILTER_MGR_OK, ebpf_->Prepare(after[0]));
  EXPECT_EQ(Standing::kPending, ebpf_->Publish().state) << "the other group is not known yet";
  const auto attached = [] { return PacketLab::Output("tc filter show dev p1 ingress"); };
  const std::string before_poll = attached();
  AddPort("p3");
  ebpf_->Poll();
  EXPECT_EQ(before_poll, attached()) << "the new tables are empty yet, and would drop all frames";
  ASSERT_EQ(FILTER_MGR_OK, ebpf_->Prepare(after[1]));
  EXPECT_EQ(Standing::kInForce, ebpf_->Publish().state);
  EXPECT_TRUE(InForce(after));
  Open();
  EXPECT_TRUE(InForce(after));
}

INSTANTIATE_TEST_SUITE_P(Attached, RestartTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "ByLinks" : "ByClassifiers"; });

}  // namespace
}  // namespace host
