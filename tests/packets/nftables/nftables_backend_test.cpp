// The kernel back end over its life: updates, restarts, other people's changes, interfaces that
// come and go, and a kernel that does not answer.
#include <libmnl/libmnl.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "tests/packets/nftables/nftables_fixture.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;

// Entries that deny `first`, `first` + 1, ... on the first port.
std::vector<PlacedEntry> Denying(uint32_t first, uint32_t count) {
  std::vector<PlacedEntry> entries;
  for (uint32_t i = 0; i < count; ++i) entries.push_back({DenyTo(first + i)});
  return entries;
}

// An IPv4 frame to an address.
Frame FrameTo(uint32_t address) {
  Frame frame(64);
  const uint8_t head[] = {2, 0, 0, 0, 0, 1, 2, 0, 0, 0, 0, 2, 8, 0, 0x45, 0, 0, 40};
  std::copy(std::begin(head), std::end(head), frame.begin());
  const in_addr destination = Ipv4(address);
  memcpy(&frame[30], &destination, sizeof(destination));
  return frame;
}

// What a port's table takes without its chunks: the table, two sets with their values, the base
// chain, the groups' chains and the jumps to them.
constexpr size_t kTableWrites = 1 + 2 * 2 + 1 + 2 * 2;

class NftablesBackendTest : public NftablesTest {
 protected:
  void SetUp() override {
    NftablesTest::SetUp();
    if (lab_ == nullptr) return;
    for (const std::string& port : ports_) PacketLab::AddPair(port);
    Open();
  }

  // Sends frames to `address` into a port until the group's entry 0 counts one; whether it does. A
  // link that has just come up loses frames for a while.
  bool Decides(const FiltersGroup& group, const std::string& sender, uint32_t address,
               int attempts = 1000) {
    const uint64_t before = HitsOf(group, 0);
    for (int i = 0; i < attempts && HitsOf(group, 0) == before; ++i) {
      PacketLab::SendOn(sender, FrameTo(address));
      usleep(2000);
    }
    return HitsOf(group, 0) > before;
  }

  // Sends one frame to `address` into the first port, and waits until the group's entry counts it.
  void SendOne(const FiltersGroup& group, uint32_t address, unsigned short id) {
    const uint64_t before = HitsOf(group, id);
    PacketLab::SendOn("p1-peer", FrameTo(address));
    for (int i = 0; i < 1000 && HitsOf(group, id) == before; ++i) usleep(2000);
    ASSERT_EQ(before + 1, HitsOf(group, id));
  }

  // As on kernels that lack one or both.
  void Without(bool ownership, bool hooks_by_name) {
    options_.features.ownership = options_.features.ownership && ownership;
    options_.features.hooks_by_name = options_.features.hooks_by_name && hooks_by_name;
    Open();
  }

  static std::string Table(const std::string& port) { return "'acl-app/" + port + "'"; }
};

TEST_F(NftablesBackendTest, WritesOnlyWhatChanged) {
  std::vector<PlacedEntry> entries = Denying(0, 1000);
  FiltersGroup group = GroupOf(kL3Type, entries);
  EXPECT_GE(Apply(group), 1000u);
  EXPECT_EQ(0u, Apply(GroupOf(kL3Type, Denying(0, 1000)))) << "equal, though nothing is shared";
  SendOne(group, 700, 700);
  entries.insert(entries.begin() + 5, {DenyTo(5000)});
  EXPECT_EQ(1u, Apply(group = GroupOf(kL3Type, entries)));
  entries.erase(entries.begin() + 900);
  EXPECT_EQ(1u, Apply(group = GroupOf(kL3Type, entries)));
  EXPECT_EQ(1u, HitsOf(group, 701)) << "an unrelated change must not reset the counter";
  ExpectInKernel({&group});
  // The last entry of a port takes its table along.
  EXPECT_EQ(1u, Apply(GroupOf(kL3Type, {})));
  EXPECT_TRUE(ReadKernel().empty());
}

TEST_F(NftablesBackendTest, ARestartAdoptsWhatItFinds) {
  const FiltersGroup l2 = GroupOf(kL2Type, Denying(10000, 1000));
  FiltersGroup l3 = GroupOf(kL3Type, Denying(1000, 300));
  Apply(l2);
  Apply(l3);
  SendOne(l3, 1007, 7);
  const size_t claims = options_.features.ownership ? 1 : 0;  // taking over the table, no more

  Open();
  EXPECT_EQ(1u, backend_->Left());
  ExpectInKernel({&l2, &l3});  // nothing is torn down before the first update
  EXPECT_EQ(claims, Apply(l2));
  ExpectInKernel({&l3});
  EXPECT_EQ(0u, Apply(l3));
  EXPECT_EQ(1u, HitsOf(l3, 7));

  Open();  // with other content than before: the difference, in one transaction
  std::vector<PlacedEntry> stale = Denying(1000, 300);
  stale.erase(stale.begin() + 100);
  EXPECT_EQ(claims + 1, Apply(l3 = GroupOf(kL3Type, stale)));
  EXPECT_EQ(0u, Apply(l2));
  EXPECT_EQ(1u, HitsOf(l3, 7));

  Open();  // with ports that are no more; and nothing at all
  Apply(GroupOf(kL2Type, {{DenyTo(1), {2}}}));
  EXPECT_EQ(1u, ReadKernel().count("p1")) << "the other group has not been updated yet";
  Apply(GroupOf(kL3Type, {}));
  EXPECT_EQ(0u, ReadKernel().count("p1"));
}

// An earlier version had a base chain for each group, in which L2 entries permitted by an accept.
TEST_F(NftablesBackendTest, TablesOfAnEarlierVersionAreTakenOver) {
  PacketLab::Run(
      "nft 'add table netdev acl-app/p1;"
      "add chain netdev acl-app/p1 l2 { type filter hook ingress device p1 priority -20; };"
      "add chain netdev acl-app/p1 l3 { type filter hook ingress device p1 priority -10; };"
      "add chain netdev acl-app/p1 l2-0; add rule netdev acl-app/p1 l2 jump l2-0;"
      "add rule netdev acl-app/p1 l2-0 @ll,0,48 2 counter packets 5 bytes 50 accept;"
      "add rule netdev acl-app/p1 l2-0 counter packets 6 bytes 60 drop'");
  FiltersEntry permit(0), deny(0);
  permit.setMatch(MatchDstMac(ether_addr{{0, 0, 0, 0, 0, 2}}));
  deny.setAction(ActionDeny());
  const FiltersGroup l2 = GroupOf(kL2Type, {{permit}, {deny}}),
                     l3 = GroupOf(kL3Type, Denying(0, 3));
  Open();
  EXPECT_EQ(1u, backend_->Left());
  Apply(l3);
  ExpectInKernel({&l2, &l3});
  Apply(l2);
  EXPECT_EQ(5u, HitsOf(l2, 0));
  EXPECT_EQ(6u, HitsOf(l2, 1));
}

// What a run finds of foreign making in its tables is put right by its first update.
TEST_F(NftablesBackendTest, ARestartRepairsWhatOthersDid) {
  const FiltersGroup group = GroupOf(kL2Type, Denying(0, 500));
  const FiltersGroup other = GroupOf(kL3Type, Denying(1000, 500));
  const char* const kDamage[] = {
      "insert rule netdev acl-app/p1 l2-1 drop",
      "insert rule netdev acl-app/p1 l2-1 meta mark 1 accept",
      "insert rule netdev acl-app/p1 l2-1 limit rate 1/second log prefix \"mine\" accept",
      "flush chain netdev acl-app/p1 l2-0",
      "flush chain netdev acl-app/p1 l2",
      "insert rule netdev acl-app/p1 l2 accept",
      "add chain netdev acl-app/p1 mine",
      "add set netdev acl-app/p1 mine { type ether_type; }",
      "add chain netdev acl-app/p1 mine { type filter hook ingress device p1 priority 0; }",
      "delete table netdev acl-app/p1",
      "add chain netdev acl-app/p1 ingress { policy drop; }",
      "insert rule netdev acl-app/p1 ingress accept",
      "flush chain netdev acl-app/p1 ingress",
  };
  for (const std::string damage : kDamage) {
    Open();
    Apply(group);
    Apply(other);
    SendOne(group, 300, 300);
    const uint64_t hits = HitsOf(group, 300);
    backend_.reset();
    PacketLab::Run("nft '" + damage + "'");
    Open();
    EXPECT_GT(Apply(group), 0u) << damage;
    // What still has its rule, and is still reached, counts on.
    const bool lost = damage.find("flush chain netdev acl-app/p1 l2") == 0 ||  // leads there
                      damage.find("delete") == 0;
    EXPECT_EQ(lost ? 0 : hits, HitsOf(group, 300)) << damage;
    ExpectInKernel({&group});
    // The group that has not been updated yet keeps its rules, where they are still there.
    if (damage.find("delete") == std::string::npos) ExpectInKernel({&other});
    Apply(other);
    ExpectInKernel({&group, &other});
    EXPECT_EQ(0u, Apply(group)) << damage;
  }
}

TEST_F(NftablesBackendTest, OwnTablesAreClosedToOthers) {
  if (!options_.features.ownership) GTEST_SKIP() << "this kernel has no owned tables that persist";
  const FiltersGroup group = GroupOf(kL2Type, Denying(0, 3));
  Apply(group);
  EXPECT_NE(0, system("nft 'flush chain netdev acl-app/p1 l2-0' 2>/dev/null"));
  PacketLab::Run("nft flush ruleset");
  ExpectInKernel({&group});

  // Another process's table is no reason to refuse an update: where no group names its port it is
  // left alone, elsewhere it holds up that port until it goes.
  int error = 0;
  auto another = OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
  uint32_t generation = 0;
  ASSERT_EQ(0, KernelReader(another.get()).ReadGeneration(&generation));
  NftBatch batch;
  batch.AddTable(TableName("p2"), kTableOwner);
  ASSERT_EQ(0, batch.Commit(*another, generation).error);
  for (const uint32_t first : {1, 2}) {  // noticed while running, found at the start
    CapturedLog().clear();
    Apply(GroupOf(kL2Type, Denying(first, 3)));
    EXPECT_THAT(CapturedLog(), Contains(HasSubstr("table acl-app/p2 is another process's")));
    EXPECT_EQ(1u, ReadKernel().count("p2"));
    Open();
  }
  const FiltersGroup both = GroupOf(kL2Type, {{DenyTo(1), {1, 2}}});
  EXPECT_EQ(Standing::kPartial, Try(both).state);
  EXPECT_THAT(backend_->standing().reason, HasSubstr("table acl-app/p2 is another process's"));
  EXPECT_EQ(PortState::kEnforced, backend_->Ports().at("p1"));
  EXPECT_EQ(PortState::kFailed, backend_->Ports().at("p2"));
  EXPECT_FALSE(backend_->Poll());
  another.reset();
  EXPECT_TRUE(backend_->Poll());
  EXPECT_EQ(Standing(), backend_->standing());
  EXPECT_EQ(PortState::kEnforced, backend_->Ports().at("p2"));
  ExpectInKernel({&both});
}

TEST_F(NftablesBackendTest, ChangesOfOthersAreNoticedAndPutRight) {
  Without(/*ownership=*/false, /*hooks_by_name=*/true);
  const FiltersGroup l2 = GroupOf(kL2Type, Denying(0, 500)), l3 = GroupOf(kL3Type, Denying(9, 3));
  Apply(l2);
  Apply(l3);
  EXPECT_TRUE(backend_->Poll());
  const size_t before = backend_->writes();
  PacketLab::Run("nft add table ip other");  // no concern of ours
  EXPECT_TRUE(backend_->Poll());
  EXPECT_EQ(before, backend_->writes());
  const struct {
    const char* damage;
    size_t writes;  // that put it right
  } kCases[] = {
      {"nft flush ruleset", kTableWrites + size_t{2} * (3 + 1) + 500 + 3},
      {"nft 'insert rule netdev acl-app/p1 l2-1 accept'", 1},
      {"nft 'flush chain netdev acl-app/p1 l3-0'", 1 + 3 + 3},  // another chunk takes its place
  };
  for (const auto& c : kCases) {
    CapturedLog().clear();
    const size_t written = backend_->writes();
    PacketLab::Run(c.damage);
    EXPECT_TRUE(backend_->Poll());
    ExpectInKernel({&l2, &l3});
    EXPECT_EQ(c.writes, backend_->writes() - written) << c.damage;
    EXPECT_THAT(CapturedLog(), Contains(HasSubstr("port p1 was not as it should be")));
  }
  // A change in the very moment of an update is noticed by it.
  PacketLab::Run("nft 'flush chain netdev acl-app/p1 l3'");
  const FiltersGroup next = GroupOf(kL2Type, Denying(1, 500));
  Apply(next);
  ExpectInKernel({&next, &l3});
}

class LinkTest : public NftablesBackendTest, public ::testing::WithParamInterface<bool> {};

TEST_P(LinkTest, InterfacesMayComeAndGo) {
  Without(true, /*hooks_by_name=*/GetParam());
  if (GetParam() && !options_.features.hooks_by_name) GTEST_SKIP() << "no hooks by name here";
  ports_ = {"p1", "later", "gigabit-ethernet-1/1/1", "extra"};
  const FiltersGroup group = GroupOf(kL2Type, {{DenyTo(5), {1, 2, 3}}});
  const FiltersGroup extra = GroupOf(kL3Type, {{DenyTo(7), {4}}});
  Apply(group);
  Apply(extra);
  const auto state = [this](const char* port) { return backend_->Ports().at(port); };
  // Hooks by name need no writing; others cost a table with a chunk of one rule, or its removal.
  constexpr size_t kBuild = kTableWrites + 3, kRemove = 1;
  const auto poll = [this](size_t writes_by_interface) {
    const size_t before = backend_->writes();
    ASSERT_TRUE(backend_->Poll());
    EXPECT_EQ(GetParam() ? 0 : writes_by_interface, backend_->writes() - before);
  };
  EXPECT_EQ(PortState::kEnforced, state("p1"));
  EXPECT_EQ(PortState::kAbsent, state("later"));
  EXPECT_EQ(PortState::kAbsent, state("gigabit-ethernet-1/1/1"));

  PacketLab::AddPair("later");
  poll(kBuild);
  EXPECT_EQ(PortState::kEnforced, state("later"));
  EXPECT_TRUE(Decides(group, "later-peer", 5));

  PacketLab::Run("ip link del p1");
  poll(kRemove);
  EXPECT_EQ(PortState::kAbsent, state("p1"));
  PacketLab::AddPair("p1");
  poll(kBuild);
  EXPECT_TRUE(Decides(group, "p1-peer", 5));

  // A rename takes the filter off one name, and a name that has a filter gets it.
  PacketLab::Run("ip link set later down; ip link set later name other; ip link set other up");
  poll(kRemove);
  EXPECT_EQ(PortState::kAbsent, state("later"));
  EXPECT_FALSE(Decides(group, "later-peer", 5, /*attempts=*/20));
  PacketLab::Run("ip link set p2 down; ip link set p2 name later; ip link set later up");
  poll(kBuild);
  EXPECT_TRUE(Decides(group, "p2-peer", 5));

  // Updates go on while an interface is away.
  PacketLab::Run("ip link del p1");
  PacketLab::AddPair("extra");  // an update hears of it, though it is another group's
  const FiltersGroup changed = GroupOf(kL2Type, {{DenyTo(6), {1, 2}}});
  Apply(changed);
  PacketLab::AddPair("p1");
  poll(kBuild);
  EXPECT_TRUE(Decides(changed, "p1-peer", 6));
  EXPECT_TRUE(Decides(extra, "extra-peer", 7));
  EXPECT_THAT(CapturedLog(), Not(Contains(HasSubstr("not as it should be"))));
}

INSTANTIATE_TEST_SUITE_P(Hooks, LinkTest, ::testing::Bool(),
                         [](const auto& info) { return info.param ? "ByName" : "ByInterface"; });

TEST_F(NftablesBackendTest, RefusesWholeAndSaysWhere) {
  const FiltersGroup group = GroupOf(kL2Type, Denying(0, 10));
  Apply(group);
  std::vector<PlacedEntry> bad = Denying(20, 10);
  bad[5].ports.clear();
  EXPECT_EQ(FILTER_MGR_ERR_UNSUPPORTED, Try(GroupOf(kL2Type, bad)).error);
  EXPECT_THAT(CapturedLog(), Contains(HasSubstr("entry 5 cannot be enforced: it names no ingress "
                                                "port")));
  ExpectInKernel({&group});
}

// Fails calls on the back end's sockets from one on: one of them, or all. Drops what is announced.
// Spoils one of the rules that are sent.
struct FaultPlan {
  int calls = 0;
  int fail_at = -1;
  bool keep_failing = false;
  bool drop_events = false;
  int spoiled_rule = -1;
  bool Fails() {
    const int call = calls++;
    return fail_at >= 0 && (call == fail_at || (keep_failing && call > fail_at));
  }
  // Makes the rule something that the kernel does not know.
  void Spoil(const std::vector<iovec>& parts) {
    int rule = 0;
    for (const iovec& part : parts) {
      auto remaining = static_cast<int>(part.iov_len);
      auto* message = static_cast<nlmsghdr*>(part.iov_base);
      for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
        if (message->nlmsg_type != (NFNL_SUBSYS_NFTABLES << 8 | NFT_MSG_NEWRULE)) continue;
        if (rule++ != spoiled_rule) continue;
        message->nlmsg_type |= 0xff;
      }
    }
  }
};

class FaultySocket : public NetlinkSocket {
 public:
  FaultySocket(std::unique_ptr<NetlinkSocket> socket, bool announces, FaultPlan* plan)
      : socket_(std::move(socket)), announces_(announces), plan_(plan) {}
  int Send(const std::vector<iovec>& parts) override {
    plan_->Spoil(parts);
    return plan_->Fails() ? -ENOBUFS : socket_->Send(parts);
  }
  ssize_t Receive(void* buffer, size_t size, bool wait) override {
    if (announces_ && plan_->drop_events) {
      while (socket_->Receive(buffer, size, wait) > 0) {
      }
      plan_->drop_events = false;
      return -ENOBUFS;
    }
    const ssize_t result = socket_->Receive(buffer, size, wait);  // what came is lost
    return plan_->Fails() ? -EIO : result;
  }
  int SetMember(uint32_t group, bool member) override {
    return plan_->Fails() ? -EPERM : socket_->SetMember(group, member);
  }
  int fd() const override { return socket_->fd(); }
  uint32_t port_id() const override { return socket_->port_id(); }

 private:
  std::unique_ptr<NetlinkSocket> socket_;
  const bool announces_;
  FaultPlan* plan_;
};

// Nobody who looks at the hits while entries change finds none.
TEST_F(NftablesBackendTest, AReadingOfHitsGoesOnThroughUpdates) {
  std::vector<PlacedEntry> entries = Denying(0, 2000);
  FiltersGroup group = GroupOf(kL3Type, entries);
  Apply(group);
  SendOne(group, 700, 700);
  const auto reading = backend_->ReadHits(kL3);
  for (uint32_t i = 0; reading->Next() == HitsReading::Progress::kMore; ++i) {
    ASSERT_LT(i, 100u);
    for (size_t at = i % 2; at < 500; at += 2) entries[at] = {DenyTo(i << 16 | (9000 + at))};
    entries.insert(entries.begin(), {DenyTo(i << 16 | 8000)});
    Apply(group = GroupOf(kL3Type, entries));
  }
  ASSERT_EQ(entries.size(), reading->hits.size());
  EXPECT_GT(entries.size(), 2001u);
  EXPECT_EQ(1u, reading->hits[entries.size() - 1300].packets);
}

// Another program that changes the packet filter all the time, and cannot be stopped by ownership.
TEST_F(NftablesBackendTest, UpdatesSucceedWhileOthersChangeThePacketFilter) {
  Without(/*ownership=*/false, /*hooks_by_name=*/true);
  // Several changes in the time that an update takes, on any machine.
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(Standing(), Try(GroupOf(kL3Type, Denying(0, 20000))));
  const std::chrono::microseconds pause = std::chrono::duration_cast<std::chrono::microseconds>(
      (std::chrono::steady_clock::now() - start) / 8);
  std::atomic<bool> stop{false};
  std::atomic<int> changes{0};
  std::thread others([&] {  // in the namespace that the process is in by now
    int error = 0;
    const auto socket = OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
    KernelReader reader(socket.get());
    for (int i = 0; !stop; ++i, std::this_thread::sleep_for(pause)) {
      uint32_t generation = 0;
      reader.ReadGeneration(&generation);
      NftBatch batch;
      if (i % 2 == 0) batch.AddTable("other", 0);
      if (i % 2 != 0) batch.DeleteTable("other");
      changes += batch.Commit(*socket, generation).error == 0 ? 1 : 0;
    }
  });
  for (int round = 1; round <= 2 || (changes < 10 && round <= 500); ++round) {
    const FiltersGroup group = GroupOf(kL3Type, Denying(round % 3 * 20000, 20000));
    Standing standing = Try(group);
    for (int i = 0; i < 100 && standing.state == Standing::kPending; ++i) {
      backend_->Poll();
      standing = backend_->standing();
    }
    EXPECT_EQ(Standing(), standing) << standing.reason;
    ExpectInKernel({&group});
  }
  stop = true;
  others.join();
  EXPECT_LE(10, changes);
}

class FaultTest : public NftablesBackendTest {
 protected:
  void SetUp() override {
    options_.open = [this](const NetlinkOptions& options, int* error) {
      return std::unique_ptr<NetlinkSocket>(
          new FaultySocket(OpenNetlink(options, error), options.group != 0, &plan));
    };
    NftablesBackendTest::SetUp();
  }

  FaultPlan plan;
};

// An entry moves from one group to the other: never are both without it, or both with it.
TEST_F(FaultTest, AFailingCallLeavesTheOldContentOrTheNewOfBothGroups) {
  // Small changes, and one for which the back end stops listening.
  for (const uint32_t count : {400, 700}) {
    const FiltersGroup l2[] = {GroupOf(kL2Type, {{DenyTo(7777)}}), GroupOf(kL2Type, {})};
    std::vector<PlacedEntry> entries = Denying(count == 400 ? 0 : 1000, count);
    entries.insert(entries.begin() + 10, {DenyTo(7777)});
    entries.erase(entries.begin() + 300);
    entries.push_back({DenyTo(8888), {2}});
    const FiltersGroup l3[] = {GroupOf(kL3Type, Denying(0, count)), GroupOf(kL3Type, entries)};
    const auto prepare = [&](int which) {
      EXPECT_EQ(FILTER_MGR_OK, backend_->Prepare(l2[which]));
      EXPECT_EQ(FILTER_MGR_OK, backend_->Prepare(l3[which]));
    };
    for (const bool keep_failing : {false, true}) {
      bool reached = true;
      for (int fail_at = 0; reached; ++fail_at) {
        ASSERT_LT(fail_at, 200);
        prepare(0);
        ASSERT_EQ(Standing(), backend_->Publish());
        prepare(1);
        plan = {0, fail_at, keep_failing};
        const Standing standing = backend_->Publish();
        reached = plan.calls > fail_at;
        plan = {};
        if (standing.state == Standing::kPending) {
          EXPECT_TRUE(backend_->Pending());
          const bool old = ReadKernel().at("p1").groups[kL2].order.size() == 1;
          ExpectInKernel({&l2[old ? 0 : 1], &l3[old ? 0 : 1]});  // also where the answer was lost
          EXPECT_TRUE(backend_->Poll());
        } else {
          EXPECT_EQ(Standing(), standing);
          EXPECT_TRUE(!backend_->Pending() || backend_->Poll());
        }
        EXPECT_EQ(Standing(), backend_->standing());
        ExpectInKernel({&l2[1], &l3[1]});
        if (HasFailure()) return;
      }
    }
  }
}

TEST_F(FaultTest, NamesTheEntryThatTheKernelRefuses) {
  const FiltersGroup before = GroupOf(kL3Type, Denying(0, 400));
  Apply(before);
  FiltersEntry sets_pcp(0);  // two rules
  sets_pcp.setMatch(MatchToS(8));
  sets_pcp.setAction(ActionSetPcpAndQueue(1));
  std::vector<PlacedEntry> entries = Denying(0, 400);
  entries.insert(entries.begin() + 300, {DenyTo(7777)});
  entries.insert(entries.begin() + 10, {sets_pcp, {2}});
  entries.insert(entries.begin() + 5, {sets_pcp});
  const char* const kNamed[] = {
      "on port p1 at entry 5 (tos 8: set-pcp 1)",
      "on port p1 at entry 5 (tos 8: set-pcp 1)",
      "on port p1 at entry 302 (destination-ipv4-address 0.0.30.97: deny)",
      "on port p2 at entry 11 (tos 8: set-pcp 1)",
  };
  for (int rule = 0; rule < 4; ++rule) {
    CapturedLog().clear();
    plan.spoiled_rule = rule < 3 ? rule : rule + 2;  // behind the jumps of the other port's table
    EXPECT_EQ(FILTER_MGR_ERR_KERNEL, Try(GroupOf(kL3Type, entries)).error);
    EXPECT_THAT(CapturedLog(), Contains(HasSubstr(kNamed[rule])));
    ExpectInKernel({&before});
  }
  plan = {};
  Apply(GroupOf(kL3Type, entries));
}

TEST_F(FaultTest, DamageHeardOfByAFailingUpdateIsPutRightLater) {
  Without(/*ownership=*/false, /*hooks_by_name=*/true);
  const FiltersGroup before = GroupOf(kL2Type, Denying(0, 5)),
                     after = GroupOf(kL2Type, Denying(1, 5));
  for (const bool dropped : {false, true}) {
    for (const bool by_update : {false, true}) {
      Apply(before);
      EXPECT_FALSE(backend_->Pending());
      CapturedLog().clear();
      PacketLab::Run("nft delete table netdev acl-app/p1");
      plan = {0, 2, /*keep_failing=*/true, dropped};  // reads the announcements, then fails
      EXPECT_EQ(Standing::kPending, Try(after).state);
      EXPECT_TRUE(backend_->Pending());
      EXPECT_FALSE(backend_->Poll());
      EXPECT_EQ(PortState::kFailed, backend_->Ports().at("p1"));
      plan = {};
      if (by_update) {
        Apply(after);
      } else {
        EXPECT_TRUE(backend_->Poll());
      }
      ExpectInKernel({&after});
      EXPECT_THAT(CapturedLog(), Contains(HasSubstr("port p1 was not as it should be")));
      EXPECT_EQ(PortState::kEnforced, backend_->Ports().at("p1"));
      EXPECT_FALSE(backend_->Pending());
    }
  }
}

}  // namespace
}  // namespace host
