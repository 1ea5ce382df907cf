#include "bench/filter_groups.h"

#include <arpa/inet.h>
#include <sched.h>
#include <sys/mount.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>

namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

constexpr char kBpfFs[] = "/sys/fs/bpf";

FiltersEntry MakeEntry(int i, Kind kind, bool deny) {
  FiltersEntry entry(0);
  if (kind == kL3Entries) {
    entry.setMatch(MatchDstIPv4(in_addr{htonl(0x0a000000U + static_cast<uint32_t>(i))}));
    entry.setMatch(MatchIpProtocol(6));
    entry.setMatch(MatchDstL4Port(static_cast<unsigned short>(i)));
  } else {
    entry.setMatch(MatchSrcMac(
        ether_addr{{2, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}}));
    entry.setMatch(MatchExternalVlanId(100));
  }
  if (deny) {
    entry.setAction(ActionDeny());
  } else {
    entry.setAction(ActionPermit());
  }
  return entry;
}

const std::vector<FiltersEntry>& Entries(Kind kind, bool deny) {
  static std::vector<FiltersEntry> made[2][2];
  for (int i = static_cast<int>(made[kind][deny].size()); i < kMostEntries; ++i) {
    made[kind][deny].push_back(MakeEntry(i, kind, deny));
  }
  return made[kind][deny];
}

}  // namespace

std::string PortName(int port) { return "port" + std::to_string(port); }

FiltersGroup MakeGroup(int count, int ports, Kind kind, int left_out, bool deny) {
  FiltersGroup group(kind == kL3Entries ? 1 : 0);
  group.setStage(FILTERS_GROUP_STAGE_PRE_INGRESS);
  group.setType(kind == kL3Entries ? FILTERS_GROUP_TYPE_L3 : FILTERS_GROUP_TYPE_L2);
  std::vector<MatchIngressPorts> lists;
  lists.reserve(static_cast<size_t>(ports));
  for (int port = 0; port < ports; ++port) {
    lists.emplace_back(std::list<limid_t>{static_cast<limid_t>(port)});
  }
  unsigned short id = 0;
  for (int i = 0; i < count; ++i) {
    if (i == left_out) continue;
    FiltersEntry entry = Entries(kind, deny)[static_cast<size_t>(i)];
    entry.setId(id);
    entry.setPriority(id);
    entry.setMatch(
        lists[static_cast<size_t>(i) * static_cast<size_t>(ports) / static_cast<size_t>(count)]);
    group.insertEntry(entry);
    ++id;
  }
  return group;
}

bool Enter(int ports) {
  std::vector<std::string> names;
  names.reserve(static_cast<size_t>(ports));
  for (int port = 0; port < ports; ++port) names.push_back(PortName(port));
  return Enter(names);
}

bool Enter(const std::vector<std::string>& ports) {
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("bpf", kBpfFs, "bpf", 0, nullptr) != 0) {
    return false;
  }
  for (size_t i = 0; i < ports.size(); ++i) {
    const std::string peer = "peer" + std::to_string(i);
    const std::string add = "ip link add " + ports[i] + " type veth peer name " + peer +
                            " && ip link set " + ports[i] + " up && ip link set " + peer + " up";
    if (system(add.c_str()) != 0) return false;
  }
  return true;
}

std::unique_ptr<host::EbpfBackend> OpenTables() {
  host::EbpfOptions options;
  options.names = [](limid_t id) { return PortName(static_cast<int>(id)); };
  options.directory = std::string(kBpfFs) + "/bench";
  std::string reason;
  auto backend = host::EbpfBackend::Open(options, &reason);
  if (backend == nullptr) std::fprintf(stderr, "%s\n", reason.c_str());
  return backend;
}

bool Apply(host::Backend* backend, const FiltersGroup& group) {
  return backend->Prepare(group) == host::FILTER_MGR_OK &&
         backend->Publish().state == host::Standing::kInForce;
}

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::vector<uint8_t> FrameOf(int i) {
  const auto high = static_cast<uint8_t>(i >> 8), low = static_cast<uint8_t>(i);
  std::vector<uint8_t> frame = {
      2,    0,  0,    0,    0,  1, 2,    0,   0,  0, high, low,  // MAC addresses
      0x81, 0,  0,    0x64, 8,  0,                               // VLAN 100, IPv4
      0x45, 0,  0,    46,   0,  0, 0,    0,   64, 6, 0,    0,    // to TCP
      192,  0,  2,    1,    10, 0, high, low,                    // addresses
      0,    80, high, low};                                      // ports
  if (i < 0) frame[10] = frame[36] = 0x77, frame[5] = 9, frame[34] = 11, frame[6] = 6;
  frame.resize(64);
  return frame;
}
