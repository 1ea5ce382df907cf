// Enforcement by tables: what a frame costs in the kernel's test runs, and what it takes to put
// groups in force, change one entry, start, and read all counters. In a network namespace and a BPF
// file system of its own, as root.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <bpf/bpf.h>
#include <net/if.h>
#include <sched.h>
#include <sys/mount.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "host/filter_mgr/ebpf/ebpf_backend.h"

namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

constexpr int kMost = 65536;
constexpr char kBpfFs[] = "/sys/fs/bpf";

std::string PortName(int port) { return "port" + std::to_string(port); }

// What entries compare: a destination address, protocol and port, or a source MAC address and VLAN.
enum Kind { kL3Entries, kL2Entries };

FiltersEntry MakeEntry(int i, Kind kind) {
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
  entry.setAction(ActionDeny());
  return entry;
}

const std::vector<FiltersEntry>& Entries(Kind kind) {
  static std::vector<FiltersEntry> made[2];
  for (int i = static_cast<int>(made[kind].size()); i < kMost; ++i) {
    made[kind].push_back(MakeEntry(i, kind));
  }
  return made[kind];
}

// A group of `count` entries over `ports` ports; without entry `left_out` (-1: with all).
FiltersGroup MakeGroup(int count, int ports, Kind kind, int left_out = -1) {
  FiltersGroup group(kind == kL3Entries ? 1 : 0);
  group.setStage(FILTERS_GROUP_STAGE_PRE_INGRESS);
  group.setType(kind == kL3Entries ? FILTERS_GROUP_TYPE_L3 : FILTERS_GROUP_TYPE_L2);
  std::vector<MatchIngressPorts> lists;
  for (int port = 0; port < ports; ++port) {
    lists.emplace_back(std::list<limid_t>{static_cast<limid_t>(port)});
  }
  unsigned short id = 0;
  for (int i = 0; i < count; ++i) {
    if (i == left_out) continue;
    FiltersEntry entry = Entries(kind)[static_cast<size_t>(i)];
    entry.setId(id);
    entry.setPriority(id);
    entry.setMatch(
        lists[static_cast<size_t>(i) * static_cast<size_t>(ports) / static_cast<size_t>(count)]);
    group.insertEntry(entry);
    ++id;
  }
  return group;
}

// A network with these ports and nothing in force. False where the kernel gives none.
bool Enter(int ports) {
  if (unshare(CLONE_NEWNET | CLONE_NEWNS) != 0 ||
      mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
      mount("bpf", kBpfFs, "bpf", 0, nullptr) != 0) {
    return false;
  }
  for (int port = 0; port < ports; ++port) {
    const std::string add = "ip link add " + PortName(port) + " type veth peer name peer" +
                            std::to_string(port) + " && ip link set " + PortName(port) + " up";
    if (system(add.c_str()) != 0) return false;
  }
  return true;
}

std::unique_ptr<host::EbpfBackend> Open() {
  host::EbpfOptions options;
  options.names = [](limid_t id) { return PortName(static_cast<int>(id)); };
  options.directory = std::string(kBpfFs) + "/bench";
  std::string reason;
  auto backend = host::EbpfBackend::Open(options, &reason);
  if (backend == nullptr) std::fprintf(stderr, "%s\n", reason.c_str());
  return backend;
}

bool Apply(host::EbpfBackend* backend, const FiltersGroup& group) {
  return backend->Prepare(group) == host::FILTER_MGR_OK &&
         backend->Publish().state == host::Standing::kInForce;
}

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

// A TCP segment to the address and port of entry `i`, from its MAC address, in VLAN 100.
std::vector<uint8_t> FrameOf(int i) {
  std::vector<uint8_t> frame = {2,
                                0,
                                0,
                                0,
                                0,
                                1,
                                2,
                                0,
                                0,
                                0,
                                static_cast<uint8_t>(i >> 8),
                                static_cast<uint8_t>(i),
                                0x81,
                                0,
                                0,
                                0x64,
                                8,
                                0,
                                0x45,
                                0,
                                0,
                                46,
                                0,
                                0,
                                0,
                                0,
                                64,
                                6,
                                0,
                                0,
                                192,
                                0,
                                2,
                                1,
                                10,
                                0,
                                static_cast<uint8_t>(i >> 8),
                                static_cast<uint8_t>(i),
                                0,
                                80,
                                static_cast<uint8_t>(i >> 8),
                                static_cast<uint8_t>(i)};
  if (i < 0) frame[10] = frame[36] = 0x77, frame[5] = 9, frame[34] = 11, frame[6] = 6;
  frame.resize(64);
  return frame;
}

// Nanoseconds of one run on the frame, the least of several series.
double RunFrame(int program, int interface, const std::vector<uint8_t>& frame) {
  double least = 1e9;
  for (int i = 0; i < 7; ++i) {
    __sk_buff context{};
    context.ifindex = static_cast<uint32_t>(interface);
    LIBBPF_OPTS(bpf_test_run_opts, run, .data_in = frame.data(),
                .data_size_in = static_cast<uint32_t>(frame.size()), .ctx_in = &context,
                .ctx_size_in = sizeof(context), .repeat = 20000);
    if (bpf_prog_test_run_opts(program, &run) != 0) return -1;
    least = std::min(least, static_cast<double>(run.duration));
  }
  return least;
}

// The program on one frame again and again: from the cache of decisions, and searched each time.
void BM_Frame(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const auto kind = static_cast<Kind>(state.range(1));
  auto backend = Enter(1) ? Open() : nullptr;
  if (backend == nullptr || !Apply(backend.get(), MakeGroup(count, 1, kind))) {
    state.SkipWithError("no tables here");
    return;
  }
  const auto interface = static_cast<int>(if_nametoindex("port0"));
  const int program = backend->store().program();
  for (auto _ : state) {
    const double start = Seconds();
    const uint32_t cache = backend->store().config()->cache_slice;
    state.counters["cached_ns"] = RunFrame(program, interface, FrameOf(0));
    backend->store().config()->cache_slice = 0;
    state.counters["first_ns"] = RunFrame(program, interface, FrameOf(0));
    state.counters["last_ns"] = RunFrame(program, interface, FrameOf(count - 1));
    state.counters["none_ns"] = RunFrame(program, interface, FrameOf(-1));
    backend->store().config()->cache_slice = cache;
    state.SetIterationTime(Seconds() - start);
  }
}
BENCHMARK(BM_Frame)
    ->ArgNames({"entries", "l2"})
    ->ArgsProduct({{16, 256, 1024, 16384, 65536}, {kL3Entries, kL2Entries}})
    ->UseManualTime()
    ->Iterations(1);

// A whole group, from nothing.
void BM_Program(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  for (auto _ : state) {
    auto backend = Enter(ports) ? Open() : nullptr;
    const FiltersGroup group = MakeGroup(kMost, ports, kL3Entries);
    const double start = Seconds();
    if (backend == nullptr || !Apply(backend.get(), group)) state.SkipWithError("no tables here");
    state.SetIterationTime(Seconds() - start);
    if (backend == nullptr) return;
    state.counters["MiB"] = static_cast<double>(backend->store().bytes()) / (1 << 20);
  }
}

// One entry going and coming back by turns, from updateGroup() to in force; the start over what is
// in force; and the counters of all entries.
void BM_Change(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0));
  auto backend = Enter(ports) ? Open() : nullptr;
  if (backend == nullptr || !Apply(backend.get(), MakeGroup(kMost, ports, kL3Entries))) {
    state.SkipWithError("no tables here");
    return;
  }
  double least[2] = {1e9, 1e9};
  int left_out = -1;
  for (auto _ : state) {
    left_out = left_out < 0 ? kMost / 3 : -1;
    const FiltersGroup group = MakeGroup(kMost, ports, kL3Entries, left_out);
    const double start = Seconds();
    if (!Apply(backend.get(), group)) state.SkipWithError("refused");
    const double taken = Seconds() - start;
    state.SetIterationTime(taken);
    least[left_out < 0] = std::min(least[left_out < 0], taken);
    backend->Idle();
    backend->Poll();
  }
  state.counters["remove_ms"] = least[0] * 1000;
  state.counters["add_ms"] = least[1] * 1000;
  double start = Seconds();
  benchmark::DoNotOptimize(backend->HitsOf(host::kL3));
  state.counters["hits_ms"] = (Seconds() - start) * 1000;
  backend.reset();
  const FiltersGroup group = MakeGroup(kMost, ports, kL3Entries, left_out);
  start = Seconds();
  backend = Open();
  state.counters["adopt_ms"] = (Seconds() - start) * 1000;
  start = Seconds();
  if (backend == nullptr || !Apply(backend.get(), group)) state.SkipWithError("refused");
  state.counters["compare_ms"] = (Seconds() - start) * 1000;
  state.counters["writes"] = static_cast<double>(backend->writes());
}

BENCHMARK(BM_Program)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(64)
    ->UseManualTime()
    ->Iterations(1)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Change)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(16)
    ->Arg(64)
    ->UseManualTime()
    ->Iterations(30)
    ->Unit(benchmark::kMillisecond);

}  // namespace
