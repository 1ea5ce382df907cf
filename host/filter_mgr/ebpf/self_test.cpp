#include "host/filter_mgr/ebpf/self_test.h"

#include <arpa/inet.h>
#include <bpf/bpf.h>
#include <linux/pkt_cls.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <vector>

#include "host/classifier/classifier.h"
#include "host/classifier/linear_matcher.h"
#include "host/filter_mgr/ebpf/entry_rule.h"
#include "host/filter_mgr/ebpf/maps.h"

namespace host {
namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout
using classifier::Rule;

constexpr int kFillers = 100;           // entries that no frame matches, for tables of some size
constexpr uint16_t kVlan = 100;         // of tagged frames
constexpr uint32_t kNet = 0x0a000000U;  // 10.0.0.0, of all addresses
constexpr uint8_t kUdp = 17, kNewPcp = 5;
constexpr uint32_t kLoopback = 1;  // the interface that test runs are on

// A frame of the trial: UDP from MAC address 02::`mac` to 10.0.0.`host` or an IPv6 address.
struct TrialFrame {
  uint8_t mac, host;
  uint16_t port;
  bool tagged, ipv6;

  cls_key Key() const;
  std::vector<uint8_t> Bytes() const;
};

cls_key TrialFrame::Key() const {
  cls_key key{};
  key.word[0] = tagged ? 0x8100 : ipv6 ? 0x86dd : 0x0800;
  key.word[1] = (uint64_t{2} << 40 | mac) << 16 | (tagged ? kVlan : 0);
  key.word[3] = FILTER_HAS_ETHERNET | CLS_HAS_PORT | port | (tagged ? CLS_HAS_TAG : 0);
  if (ipv6) return key;
  key.word[2] = kNet | host;
  key.word[3] |= CLS_HAS_IPV4 | FILTER_HAS_TOS | FILTER_HAS_PROTOCOL | FILTER_HAS_SRC_IP |
                 uint64_t{kUdp} << 24;
  return key;
}

std::vector<uint8_t> TrialFrame::Bytes() const {
  std::vector<uint8_t> bytes = {0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 0, mac};
  const auto add = [&bytes](std::initializer_list<int> more) {
    for (const int byte : more) bytes.push_back(static_cast<uint8_t>(byte));
  };
  if (tagged) add({0x81, 0, 0, kVlan});
  if (ipv6) {
    // With a hop-by-hop header in front of UDP's.
    add({0x86, 0xdd, 0x60, 0, 0, 0, 0, 16, 0, 64});
    bytes.resize(bytes.size() + 32);
    add({kUdp, 0, 1, 4, 0, 0, 0, 0});
  } else {
    add({0x08, 0, 0x45, 0, 0, 28, 0, 0, 0, 0, 64, kUdp, 0, 0, 0, 0, 0, 0, 10, 0, 0, host});
  }
  add({0, 0, port >> 8, port & 0xff, 0, 8, 0, 0});
  return bytes;
}

std::vector<TrialFrame> TrialFrames() {
  std::vector<TrialFrame> frames;
  for (uint8_t mac = 0; mac < 4; ++mac) {
    for (uint8_t host = 0; host < 4; ++host) {
      for (uint16_t port : {80, 443}) {
        for (int kind = 0; kind < 4; ++kind) {
          frames.push_back({mac, host, port, (kind & 1) != 0, (kind & 2) != 0});
        }
      }
    }
  }
  return frames;
}

// The rules of a group: those that decide, behind fillers of the same kinds.
class TrialRules {
 public:
  template <class A, class... M>
  void Add(const A& action, const M&... matches) {
    FiltersEntry entry(0);
    (entry.setMatch(matches), ...);
    entry.setAction(action);
    std::string reason;
    rules_.push_back(*RuleOfEntry(entry, &reason));
  }
  const std::vector<Rule>& rules() const { return rules_; }

 private:
  std::vector<Rule> rules_;
};

MatchSrcMac Mac(uint8_t high, uint8_t low) {
  return MatchSrcMac(ether_addr{{2, 0, 0, 0, high, low}});
}
in_addr Host(uint32_t host) { return in_addr{htonl(kNet | host)}; }

std::vector<Rule> L2Rules() {
  TrialRules l2;
  for (uint8_t i = 0; i < kFillers; ++i) {
    l2.Add(ActionDeny(), Mac(1, i), MatchExternalVlanId(kVlan));
    l2.Add(ActionDeny(), Mac(2, i));
  }
  l2.Add(ActionSetPcpAndQueue(kNewPcp), Mac(0, 1));
  l2.Add(ActionPermit(), Mac(0, 2), MatchTPID(0x86dd));
  l2.Add(ActionDeny(), Mac(0, 2), MatchExternalVlanId(kVlan));
  return l2.rules();
}

std::vector<Rule> L3Rules() {
  TrialRules l3;
  for (uint32_t i = 0; i < kFillers; ++i) {
    l3.Add(ActionDeny(), MatchDstIPv4(Host(1000 + i)), MatchIpProtocol(kUdp));
    l3.Add(ActionDeny(), MatchDstL4Port(static_cast<uint16_t>(1000 + i)));
  }
  l3.Add(ActionPermit(), MatchDstIPv4(Host(1)), MatchDstL4Port(443));
  l3.Add(ActionDeny(), MatchPcp(kNewPcp), MatchDstL4Port(80));
  l3.Add(ActionDeny(), MatchDstIPv4(Host(0), in_addr{htonl(~1U)}), MatchIpProtocol(kUdp));
  l3.Add(ActionDeny(), MatchSrcMac(ether_addr{{2, 0, 0, 0, 0, 3}}), MatchDstL4Port(443));
  return l3.rules();
}

// What becomes of the frame by the definition: nothing, or its key as it goes on.
std::optional<cls_key> Expected(const std::vector<Rule>& l2, const std::vector<Rule>& l3,
                                cls_key key) {
  for (const auto* rules : {&l2, &l3}) {
    const Rule* const rule = classifier::FirstMatch(*rules, key);
    if (rule == nullptr) continue;
    if (rule->action == CLS_DENY) return std::nullopt;
    if (rule->action == CLS_SET_PCP && (key.word[3] & CLS_HAS_TAG) != 0) {
      key.word[1] = (key.word[1] & ~(uint64_t{7} << kPcpShift)) | uint64_t{rule->pcp} << kPcpShift;
    }
  }
  return key;
}

// Maps of the trial's own, with the groups in force on the loopback interface. 0 or a negative
// errno.
int MakeMaps(const std::vector<Rule>& l2, const std::vector<Rule>& l3, FilterMaps* maps,
             std::string* reason) {
  classifier::HeapMemory memory;
  classifier::Classifier tables(&memory);
  classifier::Refusal refusal;
  if (!tables.Format() || !tables.Replace(0, l2.data(), l2.size(), nullptr, &refusal) ||
      !tables.Replace(1, l3.data(), l3.size(), nullptr, &refusal)) {
    *reason = "the tables of its trial cannot be made: " + refusal.text;
    return -ENOMEM;
  }
  tables.Publish();
  for (size_t id = 0; id < kMapCount; ++id) {
    const auto array = static_cast<cls_array>(id);
    const uint32_t capacity = id < CLS_ARRAYS ? std::max(memory.capacity(array), 1U) : 1;
    int error = 0;
    (*maps)[id] = FilterMap::Create(id, capacity, &error);
    if ((*maps)[id] == nullptr) {
      *reason = std::string("the kernel gives no map: ") + strerror(-error);
      return error;
    }
    if (id < CLS_ARRAYS && memory.capacity(array) != 0) {
      memcpy((*maps)[id]->base(), memory.base(array), memory.capacity(array) * MapElementSize(id));
    }
  }
  auto* const config = (*maps)[kMapConfig]->As<filter_config>();
  config->port_slots = 1;
  *(*maps)[kMapPorts]->As<filter_port>() = {kLoopback, 0};
  return 0;
}

// What the program makes of the frame: the verdict, and the bytes as they go on. 0 or a negative
// errno.
int Run(int program, const std::vector<uint8_t>& bytes, int* verdict, std::vector<uint8_t>* out) {
  __sk_buff context{};
  context.ifindex = kLoopback;
  out->resize(bytes.size());
  LIBBPF_OPTS(bpf_test_run_opts, run, .data_in = bytes.data(), .data_out = out->data(),
              .data_size_in = static_cast<uint32_t>(bytes.size()),
              .data_size_out = static_cast<uint32_t>(out->size()), .ctx_in = &context,
              .ctx_size_in = sizeof(context));
  if (bpf_prog_test_run_opts(program, &run) != 0) return -errno;
  *verdict = static_cast<int>(run.retval);
  return 0;
}

}  // namespace

int TryFilterProgram(std::string* reason) {
  const std::vector<Rule> l2 = L2Rules(), l3 = L3Rules();
  FilterMaps maps;
  int error = MakeMaps(l2, l3, &maps, reason);
  if (error != 0) return error;
  const Descriptor program = LoadFilterProgram(maps, &error, reason);
  if (!program) return error;
  size_t wrong = 0;
  const std::vector<TrialFrame> frames = TrialFrames();
  for (const TrialFrame& frame : frames) {
    std::vector<uint8_t> bytes = frame.Bytes(), out;
    const std::optional<cls_key> expected = Expected(l2, l3, frame.Key());
    int verdict = 0;
    error = Run(program.get(), bytes, &verdict, &out);
    if (error != 0) {
      *reason = std::string("the filter program cannot be tried: ") + strerror(-error);
      return error;
    }
    if (expected && frame.tagged) bytes[14] = static_cast<uint8_t>(expected->word[1] >> 8);
    const bool right = expected ? verdict == TC_ACT_UNSPEC && out == bytes : verdict == TC_ACT_SHOT;
    if (!right) ++wrong;
  }
  if (wrong == 0) return 0;
  *reason = "this kernel runs the filter program wrongly: " + std::to_string(wrong) + " of " +
            std::to_string(frames.size()) +
            " frames of a trial were decided otherwise than they should be";
  return -EPROTO;
}

}  // namespace host
