// Programming the kernel's packet filter: a whole group, against the nft tool with the same rules
// in the same layout, and one entry's change at full size. In network namespaces of its own, as
// root.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <linux/netlink.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>

#include "bench/scratch.h"
#include "host/filter_mgr/nftables/flush.h"
#include "host/filter_mgr/nftables/nftables_backend.h"

namespace {

using namespace FiltersCommon;  // NOLINT: the classes of one library, used throughout

constexpr int kEntries = 65536;

double Seconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

uint32_t AddressOf(int entry) { return 0x0a000000U + static_cast<uint32_t>(entry); }
std::string PortName(int port) { return "port" + std::to_string(port); }

// The protocol of the i-th entry: TCP, or by turns TCP and UDP.
bool IsUdp(int i, int protocols) { return i % protocols != 0; }

// The i-th entry, as the model holds it: it is made once and copied from there on.
const FiltersEntry& EntryOf(int i, int protocols) {
  static std::vector<FiltersEntry> made[2];
  std::vector<FiltersEntry>& entries = made[protocols - 1];
  while (static_cast<int>(entries.size()) <= i) {
    const auto n = static_cast<int>(entries.size());
    FiltersEntry entry(0);
    entry.setMatch(MatchDstIPv4(in_addr{htonl(AddressOf(n))}));
    entry.setMatch(MatchIpProtocol(IsUdp(n, protocols) ? 17 : 6));
    entry.setMatch(MatchDstL4Port(static_cast<unsigned short>(n)));
    entry.setAction(ActionDeny());
    entries.push_back(entry);
  }
  return entries[static_cast<size_t>(i)];
}

// A group of `kEntries` entries over `ports` ports; without entry `left_out` (-1: with all).
FiltersGroup MakeGroup(int ports, int left_out, int protocols = 1) {
  FiltersGroup group(1);
  group.setPriority(1);
  group.setStage(FILTERS_GROUP_STAGE_PRE_INGRESS);
  group.setType(FILTERS_GROUP_TYPE_L3);
  std::vector<MatchIngressPorts> lists;
  lists.reserve(static_cast<size_t>(ports));
  for (int port = 0; port < ports; ++port) {
    lists.emplace_back(std::list<limid_t>{static_cast<limid_t>(port)});
  }
  unsigned short id = 0;
  for (int i = 0; i < kEntries; ++i) {
    if (i == left_out) continue;
    FiltersEntry entry = EntryOf(i, protocols);
    entry.setId(id);
    entry.setPriority(id);
    entry.setMatch(lists[static_cast<size_t>(i) * static_cast<size_t>(ports) / kEntries]);
    group.insertEntry(entry);
    ++id;
  }
  return group;
}

// The same for the nft tool, in the layout that the back end uses.
void WriteScript(const std::string& path, int ports, int protocols) {
  std::ofstream out(path);
  const int per_port = kEntries / ports;
  for (int port = 0; port < ports; ++port) {
    out << "table netdev bench-" << port << " {\n";
    const int chunks = (per_port + 191) / 192;
    for (int chunk = 0; chunk < chunks; ++chunk) {
      out << "chain l3-" << chunk << " {\n";
      for (int i = chunk * 192; i < std::min(per_port, (chunk + 1) * 192); ++i) {
        const int entry = port * per_port + i;
        in_addr address = {htonl(AddressOf(entry))};
        char text[INET_ADDRSTRLEN];
        inet_ntop(AF_INET, &address, text, sizeof(text));
        out << "ip daddr " << text << (IsUdp(entry, protocols) ? " udp" : " tcp") << " dport "
            << (entry & 0xffff) << " counter drop\n";
      }
      out << "}\n";
    }
    out << "chain l3 { type filter hook ingress device \"" << PortName(port)
        << "\" priority -10;\n";
    for (int chunk = 0; chunk < chunks; ++chunk) out << "jump l3-" << chunk << "\n";
    out << "}\n}\n";
  }
}

void AddPorts(int ports) {
  for (int port = 0; port < ports; ++port) {
    const std::string add = "ip link add " + PortName(port) + " type veth peer name peer" +
                            std::to_string(port) + " && ip link set " + PortName(port) + " up";
    if (system(add.c_str()) != 0) std::abort();
  }
}

std::unique_ptr<host::NftablesBackend> OpenBackend() {
  host::NftablesOptions options;
  std::vector<std::string> missing;
  options.names = [](limid_t id) { return PortName(static_cast<int>(id)); };
  options.features = host::ProbeKernel(&missing);
  std::string reason;
  auto backend = host::NftablesBackend::Open(options, &reason);
  if (backend == nullptr) std::fprintf(stderr, "%s\n", reason.c_str());
  return backend;
}

// Puts the group in force.
bool Apply(host::Backend* backend, const FiltersGroup& group) {
  return backend->Prepare(group) == host::FILTER_MGR_OK &&
         backend->Publish().state == host::Standing::kInForce;
}

struct Cost {
  double seconds = 0;      // on the clock
  double cpu_seconds = 0;  // of the process and, on its behalf, the kernel
  double peak_mib = 0;     // what the work added to the process's peak memory
};

rusage Usage(int whose) {
  rusage usage;
  getrusage(whose, &usage);
  return usage;
}

double CpuSeconds(const rusage& usage) {
  const auto seconds = [](const timeval& t) {
    return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// Runs, in a process and a network of its own that has the ports, first `prepare` and then `work`,
// whose cost is that of the process itself (RUSAGE_SELF) or of the programs it runs.
bool Measure(int ports, int whose, const std::function<void()>& prepare,
             const std::function<bool()>& work, Cost* cost) {
  int pipes[2];
  if (pipe(pipes) != 0) return false;
  const pid_t child = fork();
  if (child == 0) {
    if (unshare(CLONE_NEWNET) != 0) _exit(1);
    AddPorts(ports);
    prepare();
    const rusage before = Usage(whose);
    const double start = Seconds();
    if (!work()) _exit(1);
    Cost result;
    result.seconds = Seconds() - start;
    const rusage after = Usage(whose);
    result.cpu_seconds = CpuSeconds(after) - CpuSeconds(before);
    // A program that runs starts from nothing; this process does not.
    const long base = whose == RUSAGE_SELF ? before.ru_maxrss : 0;
    result.peak_mib = static_cast<double>(after.ru_maxrss - base) / 1024;
    _exit(write(pipes[1], &result, sizeof(result)) == sizeof(result) ? 0 : 1);
  }
  close(pipes[1]);
  const bool ok = read(pipes[0], cost, sizeof(*cost)) == sizeof(*cost);
  close(pipes[0]);
  waitpid(child, nullptr, 0);
  return ok;
}

void Report(benchmark::State& state, bool ok, const Cost& cost) {
  if (!ok) state.SkipWithError("no network namespace, or no packet filter in it");
  state.SetIterationTime(cost.seconds);
  state.counters["cpu_ms"] = cost.cpu_seconds * 1000;
  state.counters["MiB"] = cost.peak_mib;
}

void BM_ProgramGroup(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0)), protocols = static_cast<int>(state.range(1));
  for (auto _ : state) {
    Cost cost;
    std::unique_ptr<host::NftablesBackend> backend;
    FiltersGroup group(1);
    const bool ok = Measure(
        ports, RUSAGE_SELF,
        [&] {
          group = MakeGroup(ports, -1, protocols);
          backend = OpenBackend();
        },
        [&] { return backend != nullptr && Apply(backend.get(), group); }, &cost);
    Report(state, ok, cost);
  }
}

void BM_ProgramByNft(benchmark::State& state) {
  const int ports = static_cast<int>(state.range(0)), protocols = static_cast<int>(state.range(1));
  const Scratch scratch;
  const std::string script = scratch.directory() + "/script";
  WriteScript(script, ports, protocols);
  for (auto _ : state) {
    Cost cost;
    const bool ok = Measure(
        ports, RUSAGE_CHILDREN, [] {},
        [&script] { return system(("nft -f " + script).c_str()) == 0; }, &cost);
    Report(state, ok, cost);
  }
}

#define PROGRAM_ARGS               \
  ArgNames({"ports", "protocols"}) \
      ->Args({1, 1})               \
      ->Args({16, 1})              \
      ->Args({64, 1})              \
      ->Args({16, 2})              \
      ->UseManualTime()            \
      ->Iterations(1)              \
      ->Unit(benchmark::kMillisecond)
BENCHMARK(BM_ProgramGroup)->PROGRAM_ARGS;
BENCHMARK(BM_ProgramByNft)->PROGRAM_ARGS;

// Runs `work` with a back end that has all entries in force, in a network of its own.
void WithBackend(benchmark::State& state, const std::function<void(host::NftablesBackend*)>& work) {
  const int ports = static_cast<int>(state.range(0));
  if (unshare(CLONE_NEWNET) != 0) {
    state.SkipWithError("no network namespace");
    return;
  }
  AddPorts(ports);
  const auto backend = OpenBackend();
  if (backend == nullptr || !Apply(backend.get(), MakeGroup(ports, -1))) {
    state.SkipWithError("the packet filter cannot be programmed");
    return;
  }
  work(backend.get());
}

// From updateGroup() to the kernel's answer, an entry going and coming back by turns.
void BM_UpdateOneEntry(benchmark::State& state) {
  WithBackend(state, [&state](host::NftablesBackend* backend) {
    const int ports = static_cast<int>(state.range(0));
    const size_t before = backend->writes();
    double seconds[2] = {};  // of additions, of removals
    double cpu = 0;
    int left_out = -1;
    for (auto _ : state) {
      left_out = left_out < 0 ? kEntries / 3 : -1;
      const FiltersGroup group = MakeGroup(ports, left_out);
      const double start = Seconds(), cpu_start = CpuSeconds(Usage(RUSAGE_SELF));
      if (!Apply(backend, group)) state.SkipWithError("refused");
      const double taken = Seconds() - start;
      cpu += CpuSeconds(Usage(RUSAGE_SELF)) - cpu_start;
      state.SetIterationTime(taken);
      seconds[left_out < 0 ? 0 : 1] += taken;
      backend->Idle();
    }
    const auto average = [](double value) {
      return benchmark::Counter(value, benchmark::Counter::kAvgIterations);
    };
    state.counters["add_ms"] = average(2 * seconds[0] * 1000);
    state.counters["remove_ms"] = average(2 * seconds[1] * 1000);
    state.counters["cpu_ms"] = average(cpu * 1000);
    state.counters["writes"] = average(static_cast<double>(backend->writes() - before));
  });
}
BENCHMARK(BM_UpdateOneEntry)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(16)
    ->Arg(64)
    ->UseManualTime()
    ->Iterations(50)
    ->Unit(benchmark::kMillisecond);

// Reading what an earlier run left, at the start.
void BM_ReadKernel(benchmark::State& state) {
  WithBackend(state, [&state](host::NftablesBackend*) {
    int error = 0;
    const auto socket = host::OpenNetlink({NETLINK_NETFILTER, 0, 0}, &error);
    for (auto _ : state) {
      host::HeldTables tables;
      host::KernelReader(socket.get()).ReadTables(&tables);
      benchmark::DoNotOptimize(tables);
    }
  });
}
BENCHMARK(BM_ReadKernel)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(64)
    ->Iterations(3)
    ->Unit(benchmark::kMillisecond);

// The counters of all entries, for those who look at them, and the longest step of the reading.
void BM_ReadHits(benchmark::State& state) {
  WithBackend(state, [&state](host::NftablesBackend* backend) {
    double longest = 0;
    for (auto _ : state) {
      const auto reading = backend->ReadHits(host::kL3);
      auto progress = host::HitsReading::Progress::kMore;
      while (progress == host::HitsReading::Progress::kMore) {
        const double start = Seconds();
        progress = reading->Next();
        longest = std::max(longest, Seconds() - start);
      }
    }
    state.counters["longest_ms"] = longest * 1000;
  });
}
BENCHMARK(BM_ReadHits)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(64)
    ->Iterations(5)
    ->Unit(benchmark::kMillisecond);

}  // namespace
