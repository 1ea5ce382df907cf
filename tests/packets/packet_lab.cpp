#include "tests/packets/packet_lab.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <poll.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>

namespace host {
namespace {

// An EtherType for experiments that no test frame has: it passes beside the port under test and, as
// frames keep their order on one processor, tells that those before it are through.
constexpr uint16_t kSentinelType = 0x88b6;
constexpr int kPatienceMs = 5000;

int OpenPacketSocket(const char* interface) {
  const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface));
  int on = 1, size = 64 << 20;
  setsockopt(fd, SOL_PACKET, PACKET_AUXDATA, &on, sizeof(on));
  setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof(size));
  EXPECT_EQ(0, bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address))) << interface;
  return fd;
}

// One frame as it was on the wire, the outer tag put back; false when none comes.
bool Capture(int fd, Frame* frame) {
  pollfd ready{fd, POLLIN, 0};
  if (poll(&ready, 1, kPatienceMs) != 1) return false;
  uint8_t bytes[2048], control[256];
  iovec part{bytes, sizeof(bytes)};
  msghdr message{};
  message.msg_iov = &part;
  message.msg_iovlen = 1;
  message.msg_control = control;
  message.msg_controllen = sizeof(control);
  const ssize_t size = recvmsg(fd, &message, 0);
  if (size < ETH_HLEN) return false;
  frame->assign(bytes, bytes + size);
  for (cmsghdr* c = CMSG_FIRSTHDR(&message); c != nullptr; c = CMSG_NXTHDR(&message, c)) {
    tpacket_auxdata aux;
    if (c->cmsg_level != SOL_PACKET || c->cmsg_type != PACKET_AUXDATA) continue;
    memcpy(&aux, CMSG_DATA(c), sizeof(aux));
    if ((aux.tp_status & TP_STATUS_VLAN_VALID) == 0) continue;
    const uint8_t tag[4] = {
        static_cast<uint8_t>(aux.tp_vlan_tpid >> 8), static_cast<uint8_t>(aux.tp_vlan_tpid),
        static_cast<uint8_t>(aux.tp_vlan_tci >> 8), static_cast<uint8_t>(aux.tp_vlan_tci)};
    frame->insert(frame->begin() + ptrdiff_t{2} * ETH_ALEN, tag, tag + sizeof(tag));
  }
  return true;
}

void PutId(Frame* frame, uint32_t id) {
  id = htonl(id);
  memcpy(frame->data() + frame->size() - PacketLab::kIdSize, &id, sizeof(id));
}

uint32_t IdOf(const Frame& frame) {
  uint32_t id;
  memcpy(&id, frame.data() + frame.size() - PacketLab::kIdSize, sizeof(id));
  return ntohl(id);
}

Frame Sentinel(uint32_t id) {
  Frame frame(60);
  frame[0] = frame[6] = 0x02;
  frame[12] = kSentinelType >> 8;
  frame[13] = kSentinelType & 0xff;
  PutId(&frame, id);
  return frame;
}

// Shell commands that wait until a link that was set up is: that takes the kernel a while, and
// frames are lost meanwhile.
std::string UntilUp(const std::string& name) {
  return "; for i in $(seq 500); do ip link show " + name +
         " | grep -q 'state UP' && break; sleep 0.01; done";
}

// A network namespace of this process's own. Who is not root is it in a user namespace, and in the
// programs that are started there only because his id is mapped (user_namespaces(7)).
bool EnterNamespace() {
  const uid_t user = geteuid();
  const gid_t group = getegid();
  if (unshare(CLONE_NEWNET) == 0) return true;
  if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) return false;
  std::ofstream("/proc/self/setgroups") << "deny";
  std::ofstream("/proc/self/uid_map") << "0 " << user << " 1";
  std::ofstream("/proc/self/gid_map") << "0 " << group << " 1";
  return true;
}

bool IsSentinel(const Frame& frame) { return (frame[12] << 8 | frame[13]) == kSentinelType; }

}  // namespace

std::unique_ptr<PacketLab> PacketLab::Create(std::string* why_not) {
  if (!EnterNamespace()) {
    *why_not = std::string("no network namespace: ") + strerror(errno);
    return nullptr;
  }
  // Frames keep their order on one processor.
  cpu_set_t one;
  CPU_ZERO(&one);
  CPU_SET(static_cast<size_t>(sched_getcpu()), &one);
  sched_setaffinity(0, sizeof(one), &one);
  // Only the test's own frames, please.
  std::ofstream("/proc/sys/net/ipv6/conf/default/disable_ipv6") << "1";
  if (system("ip link add probe0 type veth peer name probe1 2>/dev/null && ip link del probe0 && "
             "nft list tables") != 0) {
    *why_not = "no veth pairs or no packet filter in a network namespace";
    return nullptr;
  }
  return std::unique_ptr<PacketLab>(new PacketLab);
}

PacketLab::~PacketLab() {
  if (sender_ >= 0) close(sender_);
  if (side_ >= 0) close(side_);
  if (capture_ >= 0) close(capture_);
}

void PacketLab::Run(const std::string& command) {
  ASSERT_EQ(0, system(command.c_str())) << command;
}

std::string PacketLab::Output(const std::string& command) {
  std::string output;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  while (size_t size = fread(buffer, 1, sizeof(buffer), pipe)) output.append(buffer, size);
  pclose(pipe);
  return output;
}

std::string PacketLab::Connect(bool tags_in_metadata) {
  std::string script;
  const auto pair = [&script](const std::string& name) {
    script += "ip link add " + name + " type veth peer name " + name + "-peer;";
    script += "ip link set " + name + " up; ip link set " + name + "-peer up" + UntilUp(name) +
              UntilUp(name + "-peer") + ";";
  };
  const auto chain = [&script](const std::string& from, const std::string& place, int priority,
                               const std::string& rule) {
    const std::string name = from + place;
    script += "add chain netdev lab " + name + " { type filter hook ingress device \"" + from +
              "\" priority " + std::to_string(priority) + "; };";
    script += "add rule netdev lab " + name + " " + rule + ";";
  };
  if (tags_in_metadata) pair("front");
  pair("in");
  pair("side");
  pair("out");
  script += "nft '";
  script += "add table netdev lab;";
  if (tags_in_metadata) {
    chain("front-peer", "-first", -300, "ether type 0x88b6 fwd to \"side\"");
    chain("front-peer", "-last", 300, "fwd to \"in\"");
  }
  chain("in-peer", "-last", 300, "fwd to \"out\"");
  chain("side-peer", "-last", 300, "fwd to \"out\"");
  script += "'";
  Run("set -e;" + script);
  sender_ = OpenPacketSocket(tags_in_metadata ? "front" : "in");
  side_ = OpenPacketSocket(tags_in_metadata ? "front" : "side");
  capture_ = OpenPacketSocket("out-peer");
  AwaitPath();
  return "in-peer";
}

void PacketLab::AwaitPath() {
  constexpr int kTries = 100;
  for (int i = 0; i < kTries; ++i) {
    const uint32_t sentinel = next_sentinel_++;
    SendOne(side_, Sentinel(sentinel));
    pollfd ready{capture_, POLLIN, 0};
    while (poll(&ready, 1, 50) == 1) {
      Frame frame;
      if (Capture(capture_, &frame) && IdOf(frame) == sentinel) return;
    }
  }
  FAIL() << "no frame passes the lab";
}

void PacketLab::AddPair(const std::string& name) {
  Run("ip link add " + name + " type veth peer name " + name + "-peer && ip link set " + name +
      " up && ip link set " + name + "-peer up" + UntilUp(name) + UntilUp(name + "-peer"));
}

void PacketLab::SendOn(const std::string& interface, const Frame& frame) {
  const int fd = OpenPacketSocket(interface.c_str());
  EXPECT_EQ(static_cast<ssize_t>(frame.size()), send(fd, frame.data(), frame.size(), 0));
  close(fd);
}

size_t PacketLab::Drain() {
  size_t count = 0;
  char byte;
  while (recv(capture_, &byte, sizeof(byte), MSG_DONTWAIT) > 0) ++count;
  return count;
}

void PacketLab::SendOne(int socket, const Frame& frame) {
  ASSERT_EQ(static_cast<ssize_t>(frame.size()), send(socket, frame.data(), frame.size(), 0))
      << strerror(errno);
}

void PacketLab::Send(const std::vector<Frame>& frames) {
  for (const Frame& frame : frames) SendOne(sender_, frame);
}

std::map<size_t, Frame> PacketLab::Pass(const std::vector<Frame>& frames) {
  std::map<size_t, Frame> passed;
  constexpr size_t kBurst = 200;  // well below a backlog's length (net.core.netdev_max_backlog)
  for (size_t begin = 0; begin < frames.size(); begin += kBurst) {
    const size_t end = std::min(frames.size(), begin + kBurst);
    for (size_t i = begin; i < end; ++i) {
      Frame frame = frames[i];
      PutId(&frame, static_cast<uint32_t>(i));
      SendOne(sender_, frame);
    }
    const uint32_t sentinel = next_sentinel_++;
    SendOne(side_, Sentinel(sentinel));
    for (;;) {
      Frame frame;
      if (!Capture(capture_, &frame)) {
        ADD_FAILURE() << "frames got lost in the lab";
        return passed;
      }
      if (!IsSentinel(frame)) {
        passed[IdOf(frame)] = frame;
      } else if (IdOf(frame) == sentinel) {
        break;
      }
    }
  }
  return passed;
}

}  // namespace host
