// Interfaces that come, go and change names, with real frames: those of a port are filtered from
// the first one on.
#include <arpa/inet.h>
#include <bpf/bpf.h>
#include <linux/if_packet.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include "tests/packets/ebpf/ebpf_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT

constexpr uint16_t kType = 0x88b5;

// Frames of one type are denied on p1. Counts those that get through anyway.
class PortsTest : public EbpfTest, public ::testing::WithParamInterface<bool> {
 protected:
  void SetUp() override {
    EbpfTest::SetUp();
    if (lab_ == nullptr) return;
    options_.links = GetParam();
    // A socket for one type gets frames behind the ingress hooks, of any interface.
    socket_ = Descriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(kType)));
    ASSERT_TRUE(socket_);
    FiltersEntry entry(0);
    entry.setMatch(MatchTPID(kType));
    entry.setAction(ActionDeny());
    group_.emplace(GroupOf(kL2Type, {{entry}}));
    Open();
  }

  // Whether a frame that is sent into the interface at whose other end `peer` is gets through.
  // Tells by the peer's counterpart having received it that it is no longer on its way.
  bool Passes(const std::string& peer) {
    Frame frame(60);
    frame[0] = frame[6] = 0x02;
    frame[12] = kType >> 8;
    frame[13] = kType & 0xff;
    for (int i = 0; i < 5; ++i) {  // the kernel opens the queues of a new pair after a while
      PacketLab::SendOn(peer, frame);
      usleep(20000);
    }
    char buffer[128];
    bool passed = false;
    while (recv(socket_.get(), buffer, sizeof(buffer), MSG_DONTWAIT) > 0) passed = true;
    return passed;
  }

  // Takes the program off p1 in the way that is open to others.
  void TakeAway() {
    PacketLab::Run("tc qdisc replace dev p1 clsact; tc qdisc del dev p1 clsact");
    const Descriptor link(bpf_obj_get(Pin().c_str()));
    if (link) {
      EXPECT_EQ(0, bpf_link_detach(link.get()));
    }
  }
  // Where p1's link is pinned.
  std::string Pin() { return ebpf_->store().links().PathOf(std::to_string(if_nametoindex("p1"))); }

  bool GuardsEveryFrame() const {
    return ebpf_->guards() != nullptr && ebpf_->guards()->kind() == PortGuards::Kind::kIngress;
  }

  Descriptor socket_;
  std::optional<FiltersGroup> group_;
};

TEST_P(PortsTest, AnInterfaceIsFilteredWheneverItIsThere) {
  AddPort("p1");
  EXPECT_TRUE(Passes("p1-peer"));
  Apply({&*group_});
  EXPECT_FALSE(Passes("p1-peer"));
  EXPECT_EQ(PortState::kEnforced, ebpf_->Ports().at("p1"));
  // Others may take the program away. The next commit sees that, and if there is none, the next
  // look.
  for (const bool commit : {false, true}) {
    TakeAway();
    EXPECT_TRUE(Passes("p1-peer"));
    if (commit) {
      Apply({&*group_});
    } else {
      EXPECT_TRUE(ebpf_->Poll());
    }
    EXPECT_FALSE(Passes("p1-peer"));
    EXPECT_THAT(std::exchange(CapturedLog(), {}),
                ::testing::Contains(::testing::HasSubstr("taken away by another")));
  }
  // Gone, and made anew: nobody has heard of it yet.
  PacketLab::Run("ip link del p1");
  ebpf_->Poll();
  EXPECT_EQ(PortState::kAbsent, ebpf_->Ports().at("p1"));
  AddPort("p1");
  if (GuardsEveryFrame()) {
    EXPECT_FALSE(Passes("p1-peer"));
    // Another program may change the guards: they are put right, once.
    PacketLab::Run("ip link del p1");
    const size_t writes = ebpf_->guards()->writes();
    PacketLab::Run(GetParam() ? "nft flush ruleset" : "nft flush table netdev acl-app-guard");
    EXPECT_TRUE(ebpf_->Poll() && ebpf_->Poll());
    EXPECT_EQ(writes + 1, ebpf_->guards()->writes());
    AddPort("p1");
    EXPECT_FALSE(Passes("p1-peer"));
  }
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_FALSE(Passes("p1-peer"));
  EXPECT_EQ(PortState::kEnforced, ebpf_->Ports().at("p1"));
  // The same while nobody is there, and taken over.
  ebpf_.reset();
  PacketLab::Run("ip link del p1");
  AddPort("p1");
  Open();
  EXPECT_FALSE(Passes("p1-peer"));
  Apply({&*group_});
  EXPECT_FALSE(Passes("p1-peer"));
  EXPECT_EQ(PortState::kEnforced, ebpf_->Ports().at("p1"));
  // Without entries it is anyone's, and in the end nothing is left.
  const FiltersGroup empty[] = {GroupOf(kL2Type, {}), GroupOf(kL3Type, {})};
  Apply({&empty[0], &empty[1]});
  EXPECT_TRUE(Passes("p1-peer"));
  ebpf_.reset();
  EXPECT_NE(0, access(EbpfDirectory(options_.directory).c_str(), F_OK));
}

TEST_P(PortsTest, PinsOfLinksAreKept) {
  AddPort("p1");
  Apply({&*group_});
  if (access(Pin().c_str(), F_OK) != 0) GTEST_SKIP() << "classifiers have none";
  const FiltersGroup empty[] = {GroupOf(kL2Type, {}), GroupOf(kL3Type, {})};
  Apply({&empty[0], &empty[1]});
  // A link that cannot be pinned is given back, and made when it can.
  mkdir(Pin().c_str(), 0700);
  ASSERT_EQ(FILTER_MGR_OK, ebpf_->Prepare(*group_));
  EXPECT_EQ(Standing::kPartial, ebpf_->Publish().state);
  rmdir(Pin().c_str());
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_EQ(PortState::kEnforced, ebpf_->Ports().at("p1"));
  // So is one that would take the last descriptors.
  Apply({&empty[0], &empty[1]});
  rlimit before{};
  ASSERT_EQ(0, getrlimit(RLIMIT_NOFILE, &before));
  const rlimit few{static_cast<rlim_t>(Descriptor(dup(0)).get()) + 64, before.rlim_max};
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &few));
  ASSERT_EQ(FILTER_MGR_OK, ebpf_->Prepare(*group_));
  EXPECT_EQ(Standing::kPartial, ebpf_->Publish().state);
  ASSERT_EQ(0, setrlimit(RLIMIT_NOFILE, &before));
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_EQ(PortState::kEnforced, ebpf_->Ports().at("p1"));
  // One whose pin another program removes is pinned again.
  unlink(Pin().c_str());
  for (int i = 0; i < 1000 && access(Pin().c_str(), F_OK) != 0; ++i) {
    usleep(10000);
    EXPECT_TRUE(ebpf_->Poll());
  }
  EXPECT_EQ(0, access(Pin().c_str(), F_OK));
  // An interface that is no port any more but has the program still is known to it, also where
  // the new ports need a larger table: their indices want the same place.
  unlink(Pin().c_str());
  mkdir(Pin().c_str(), 0700);
  std::list<limid_t> others;
  for (int i = 1; i <= 8; ++i) {
    ports_.push_back("n" + std::to_string(i));
    PacketLab::Run("ip link add " + ports_.back() + " index " +
                   std::to_string(if_nametoindex("p1") + 64 * i) + " type veth");
    others.push_back(ports_.size());
  }
  const auto other_group = GroupOf(kL2Type, {{group_->getEntriesRef().begin()->second, others}});
  Apply({&other_group});
  EXPECT_LT(64u, ebpf_->store().config()->port_slots);
  EXPECT_TRUE(Passes("p1-peer"));
}

// Its name is guarded until the program is on it again; meanwhile nobody calls it enforced.
TEST_P(PortsTest, APortThatCannotBeFilteredAgainIsShut) {
  AddPort("p1");
  Apply({&*group_});
  const std::string pin = Pin();
  const Descriptor link(bpf_obj_get(pin.c_str()));
  if (link) {
    unlink(pin.c_str());
    mkdir(pin.c_str(), 0700);
    ASSERT_EQ(0, bpf_link_detach(link.get()));
  } else {
    PacketLab::Run(
        "tc qdisc del dev p1 clsact; tc qdisc add dev p1 clsact; "
        "tc filter add dev p1 ingress prio 1 protocol all u32 match u32 0 0 flowid :1");
  }
  ebpf_->Poll();
  EXPECT_EQ(PortState::kFailed, ebpf_->Ports().at("p1"));
  EXPECT_TRUE(!GuardsEveryFrame() || !Passes("p1-peer"));
  ASSERT_EQ(FILTER_MGR_OK, ebpf_->Prepare(*group_));
  EXPECT_EQ(Standing::kPartial, ebpf_->Publish().state);
  PacketLab::Run("rmdir " + pin + " 2>/dev/null || tc qdisc del dev p1 clsact");
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_EQ(PortState::kEnforced, ebpf_->Ports().at("p1"));
  EXPECT_FALSE(Passes("p1-peer"));
}

TEST_P(PortsTest, ANameTakesItsFilterToAnotherInterface) {
  AddPort("p1");
  AddPort("other");
  Apply({&*group_});
  PacketLab::Run(
      "ip link set p1 down; ip link set other down; ip link set p1 name old; "
      "ip link set other name p1; ip link set p1 up; ip link set old up");
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_FALSE(Passes("other-peer")) << "this one is p1 now";
  EXPECT_TRUE(Passes("p1-peer")) << "this one is no port";
  // Moved to another namespace, and back.
  const std::string elsewhere = "acl-test-" + std::to_string(getpid());
  PacketLab::Run("ip netns add " + elsewhere + "; ip link set p1 netns " + elsewhere);
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_EQ(PortState::kAbsent, ebpf_->Ports().at("p1"));
  PacketLab::Run("ip netns exec " + elsewhere + " ip link set p1 netns $$; ip link set p1 up");
  EXPECT_TRUE(ebpf_->Poll());
  EXPECT_FALSE(Passes("other-peer"));
  // Another one comes from there that has the same index there, while nobody looks; and once more
  // while nobody is there.
  const std::string there = "ip netns exec " + elsewhere + " ip link ";
  for (const char* const far : {"far1", "far2"}) {
    if (far[3] == '2') ebpf_.reset();
    PacketLab::Run(there + "add fresh index " + std::to_string(if_nametoindex("p1")) +
                   " type veth peer name " + far + "; ip link set p1 netns " + elsewhere +
                   " name gone-" + far + "; " + there + "set fresh netns $$ name p1; " + there +
                   "set " + far + " netns $$; ip link set p1 up; ip link set " + far + " up");
    if (ebpf_ == nullptr) Open();
    EXPECT_TRUE(ebpf_->Poll());
    EXPECT_FALSE(Passes(far));
  }
  PacketLab::Run("ip netns del " + elsewhere);
}

INSTANTIATE_TEST_SUITE_P(Attached, PortsTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "ByLinks" : "ByClassifiers"; });

}  // namespace
}  // namespace host
