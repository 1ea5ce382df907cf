#include "host/filter_mgr/nftables/kernel/features.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "host/filter_mgr/nftables/kernel/batch.h"
#include "host/filter_mgr/nftables/kernel/reader.h"
#include "host/filter_mgr/nftables/kernel/table_update.h"
#include "host/filter_mgr/nftables/plan/compiler.h"

namespace host {
namespace {

// What the trial's process reports as its exit status: a bit for each feature that is there, and
// where the trial of setting the PCP ended.
enum : int { kOwnershipWorks = 1, kHooksByName = 2, kStepShift = 2 };
enum Step : int { kDone, kNamespace, kNetlink, kRules, kPacketSocket, kSending, kReading, kSeeing };
constexpr const char* kFailures[] = {
    "",
    "the kernel gave no network namespace to try it in",
    "the kernel gave no netlink socket",
    "the kernel refused the rules",
    "the kernel gave no packet socket",
    "the frame could not be sent",
    "the counters could not be read",
    "the frame did not come out as it should",
};

constexpr char kTrialPort[] = "lo";
constexpr uint8_t kTrialPcp = 5;
// A frame with VLAN 100, PCP 2 and DEI set, of an EtherType for experiments (IEEE 802), and a
// payload whose first bytes would show a write at the wrong place.
constexpr uint8_t kFrame[64] = {0x02, 0,    0,    0,    0,    0x01, 0x02, 0,    0,    0,    0,
                                0x02, 0x81, 0x00, 0x50, 0x64, 0x88, 0xb5, 0x11, 0x22, 0x33, 0x44};
constexpr size_t kTciAt = 14, kEtherTypeAt = 16, kPayloadAt = 18;

int Commit(NetlinkSocket& socket, const std::function<void(NftBatch*)>& fill) {
  uint32_t generation = 0;
  const int error = KernelReader(&socket).ReadGeneration(&generation);
  if (error != 0) return error;
  NftBatch batch;
  fill(&batch);
  return batch.Commit(socket, generation).error;
}

// The rules of a group with one entry that sets the PCP of that frame.
std::vector<RulePtr> SettingRules() {
  FiltersCommon::FiltersEntry entry(0);
  entry.setMatch(FiltersCommon::MatchExternalVlanId(100));
  entry.setAction(FiltersCommon::ActionSetPcpAndQueue(kTrialPcp));
  std::string reason;
  return CompileEntry(entry, /*can_set_pcp=*/true, &reason).value_or(std::vector<RulePtr>{});
}

FieldTest Compare(Source source, size_t offset, const uint8_t* bytes, size_t length) {
  FieldTest test;
  test.source = source;
  test.offset = static_cast<uint8_t>(offset);
  test.length = static_cast<uint8_t>(length);
  memcpy(test.value.data(), bytes, length);
  memset(test.mask.data(), 0xff, length);
  return test;
}

// A rule that counts and drops the frame as it should have become, every byte up to the payload.
std::vector<RulePtr> ExpectingRules() {
  uint8_t frame[sizeof(kFrame)];
  memcpy(frame, kFrame, sizeof(frame));
  frame[kTciAt] = static_cast<uint8_t>(kTrialPcp << 5 | (frame[kTciAt] & 0x1f));
  auto rule = std::make_shared<Rule>();
  rule->tests = {Compare(Source::kLink, 0, frame, kEtherTypeAt),
                 Compare(Source::kLink, kEtherTypeAt, frame + kEtherTypeAt, 2),
                 Compare(Source::kNetwork, 0, frame + kPayloadAt, 16)};
  rule->outcome.verdict = Verdict::kDrop;
  return {rule};
}

Step BringUpAndSend() {
  const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  if (fd < 0) return kPacketSocket;
  ifreq request{};
  strncpy(request.ifr_name, kTrialPort, IFNAMSIZ - 1);
  request.ifr_flags = IFF_UP | IFF_RUNNING;
  bool ok = ioctl(fd, SIOCSIFFLAGS, &request) == 0 && ioctl(fd, SIOCGIFINDEX, &request) == 0;
  sockaddr_ll to{};
  to.sll_family = AF_PACKET;
  to.sll_ifindex = request.ifr_ifindex;
  to.sll_halen = ETH_ALEN;
  memcpy(to.sll_addr, kFrame, ETH_ALEN);
  ok = ok && sendto(fd, kFrame, sizeof(kFrame), 0, reinterpret_cast<const sockaddr*>(&to),
                    sizeof(to)) == sizeof(kFrame);
  close(fd);
  return ok ? kDone : kSending;
}

Step TrySetPcp(NetlinkSocket& socket) {
  const std::string port = kTrialPort;
  const std::vector<RulePtr> setting = SettingRules(), expecting = ExpectingRules();
  const TableUpdate update(port, nullptr, {{&setting, &expecting}, 0});
  if (Commit(socket, [&](NftBatch* batch) { update.Encode(batch); }) != 0) return kRules;
  const Step sent = BringUpAndSend();
  if (sent != kDone) return sent;
  // Two entries counted the frame: the one that set the PCP, and the one that saw it.
  for (int i = 0; i < 100; ++i) {
    std::vector<Hits> set, seen;
    KernelReader reader(&socket);
    if (reader.ReadHits(port, kL2, 0, &set) != 0 || reader.ReadHits(port, kL3, 0, &seen) != 0) {
      return kReading;
    }
    if (set[0].packets == 1 && seen[0].packets == 1) return kDone;
    usleep(1000);
  }
  return kSeeing;
}

// Runs in a process of its own, which is in a network namespace of its own.
int RunTrials() {
  int error = 0;
  const auto socket = OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
  if (socket == nullptr) return kNetlink << kStepShift;
  int result = TrySetPcp(*socket) << kStepShift;
  const std::string table = TableName("trial"), absent = "no-such-port";
  if (Commit(*socket,
             [&](NftBatch* batch) { batch->AddTable(table, kTableOwner | kTablePersist); }) == 0) {
    result |= kOwnershipWorks;
  }
  if (Commit(*socket, [&](NftBatch* batch) {
        batch->AddTable(TableName(absent), 0);
        batch->AddBaseChain(TableName(absent), absent);
      }) == 0) {
    result |= kHooksByName;
  }
  return result;
}

// The exit status of a process that tries everything.
int TryInChild() {
  const pid_t child = fork();
  if (child == 0) {
    // Without the privilege, a user namespace gives it inside a network namespace.
    const bool alone = unshare(CLONE_NEWNET) == 0 || unshare(CLONE_NEWUSER | CLONE_NEWNET) == 0;
    _exit(alone ? RunTrials() : kNamespace << kStepShift);
  }
  int status = 0;
  while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return child > 0 && WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

KernelFeatures ProbeKernel(std::vector<std::string>* missing) {
  const int status = TryInChild();
  const int step = status < 0 ? kSeeing : status >> kStepShift;
  const std::string failure = status < 0 ? "the trial did not come to its end" : kFailures[step];
  KernelFeatures features;
  features.set_pcp = status >= 0 && step == kDone;
  features.ownership = status >= 0 && (status & kOwnershipWorks) != 0;
  features.hooks_by_name = status >= 0 && (status & kHooksByName) != 0;
  if (!features.set_pcp) {
    missing->push_back("setting the PCP could not be proved on this kernel: " + failure +
                       "; entries that do so are refused");
  }
  const std::string why = status < 0 || step == kNamespace || step == kNetlink
                              ? "could not be tried on this kernel: " + failure
                              : "are not to be had on this kernel";
  if (!features.ownership) {
    missing->push_back("tables that belong to the daemon alone " + why +
                       "; what others change is put right afterwards");
  }
  if (!features.hooks_by_name) {
    missing->push_back("hooks that follow an interface's name " + why +
                       "; a new interface is filtered only after the daemon has heard of it");
  }
  return features;
}

}  // namespace host
