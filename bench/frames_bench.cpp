// The way of a frame through a port, whole: from a packet socket over a pair of interfaces into the
// stack, without a filter and with both back ends that filter, side by side. As root, in network
// namespaces and a BPF file system of its own.
//
// Entries permit, so that frames go the same way with and without them. Numbers are nanoseconds per
// frame, the least of several series: `bare` without a filter; `bpf_...` by tables that are
// searched for every frame, `bpf_again` by decisions that are remembered; `nft_...` by rules.
// `..._ratio` is the slowest of a back end's over `bare`.
#include <benchmark/benchmark.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <net/if.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <deque>
#include <numeric>
#include <utility>

#include "bench/filter_groups.h"
#include "bench/rule_frames.h"
#include "host/filter_mgr/nftables/kernel/features.h"
#include "host/filter_mgr/nftables/nftables_backend.h"

namespace {

constexpr size_t kBurst = 64;

// Frames that are sent by one call.
class Burst {
 public:
  explicit Burst(std::vector<std::vector<uint8_t>> frames) : frames_(std::move(frames)) {
    for (size_t i = 0; i < kBurst; ++i) {
      parts_[i] = {frames_[i].data(), frames_[i].size()};
      messages_[i].msg_hdr.msg_iov = &parts_[i];
      messages_[i].msg_hdr.msg_iovlen = 1;
    }
  }
  Burst(const Burst&) = delete;
  Burst& operator=(const Burst&) = delete;

  mmsghdr* messages() const { return messages_.data(); }

 private:
  std::vector<std::vector<uint8_t>> frames_;
  std::array<iovec, kBurst> parts_{};
  mutable std::array<mmsghdr, kBurst> messages_{};  // the kernel writes lengths into them
};

// Sends frames into port0, and tells what one costs.
class Sender {
 public:
  Sender() : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0)) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_ifindex = static_cast<int>(if_nametoindex("peer0"));
    const int on = 1;
    if (socket_ < 0 || bind(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0 ||
        setsockopt(socket_, SOL_PACKET, PACKET_QDISC_BYPASS, &on, sizeof(on)) != 0) {
      std::abort();
    }
  }
  ~Sender() { close(socket_); }
  Sender(const Sender&) = delete;
  Sender& operator=(const Sender&) = delete;

  // Nanoseconds of a frame's way, the least of several series.
  double Measure(const std::vector<uint8_t>& frame) const {
    const Burst burst(std::vector<std::vector<uint8_t>>(kBurst, frame));
    const auto send = [&](size_t bursts) {
      double taken = 0;
      for (size_t i = 0; i < bursts; ++i) taken += Send(burst);
      return taken;
    };
    // Short series, so that some are not interrupted by others at work on the machine.
    constexpr double kSeries = 0.001, kTotal = 0.3;  // seconds
    size_t bursts = 1;
    while (send(bursts) < kSeries) bursts *= 2;
    const double start = Seconds();
    double least = 1e9;
    while (Seconds() - start < kTotal) least = std::min(least, send(bursts));
    return least / static_cast<double>(bursts * kBurst) * 1e9;
  }

  // The same of frames (a multiple of kBurst) by turns: of each burst the least of several rounds.
  double Measure(const std::vector<std::vector<uint8_t>>& frames) const {
    constexpr int kRounds = 50;
    std::deque<Burst> bursts;
    for (auto from = frames.begin(); from != frames.end(); from += kBurst) {
      bursts.emplace_back(std::vector<std::vector<uint8_t>>(from, from + kBurst));
    }
    std::vector<double> least(bursts.size(), 1e9);
    for (int round = 0; round < kRounds; ++round) {
      for (size_t i = 0; i < bursts.size(); ++i) least[i] = std::min(least[i], Send(bursts[i]));
    }
    const double sum = std::accumulate(least.begin(), least.end(), 0.0);
    return sum / static_cast<double>(frames.size()) * 1e9;
  }

 private:
  // Seconds. The receiving end does its work within the call that sends.
  double Send(const Burst& burst) const {
    const double start = Seconds();
    if (sendmmsg(socket_, burst.messages(), kBurst, 0) != static_cast<int>(kBurst)) std::abort();
    return Seconds() - start;
  }

  int socket_;
};

std::unique_ptr<host::NftablesBackend> OpenRules() {
  host::NftablesOptions options;
  options.names = [](limid_t id) { return PortName(static_cast<int>(id)); };
  std::vector<std::string> missing;
  options.features = host::ProbeKernel(&missing);
  std::string reason;
  return host::NftablesBackend::Open(options, &reason);
}

// The first entry's frame, the last one's, and one that none matches.
double MeasureAll(const Sender& sender, const std::string& name, int count,
                  benchmark::State& state) {
  double most = 0;
  const std::pair<const char*, int> places[] = {{"_first", 0}, {"_last", count - 1}, {"_none", -1}};
  for (const auto& [place, entry] : places) {
    const double ns = sender.Measure(FrameOf(entry));
    state.counters[name + place] = ns;
    most = std::max(most, ns);
  }
  return most;
}

void BM_Way(benchmark::State& state) {
  const int count = static_cast<int>(state.range(0));
  const auto kind = static_cast<Kind>(state.range(1));
  if (!Enter(1)) {
    state.SkipWithError("no network here");
    return;
  }
  const FiltersCommon::FiltersGroup group = MakeGroup(count, 1, kind, -1, /*deny=*/false);
  const Sender sender;
  for (auto _ : state) {
    const double start = Seconds();
    const double bare = std::max(1.0, sender.Measure(FrameOf(-1)));
    state.counters["bare"] = bare;
    if (auto tables = OpenTables(); tables != nullptr && Apply(tables.get(), group)) {
      state.counters["bpf_again"] = sender.Measure(FrameOf(-1));
      tables->store().config()->cache_slice = 0;
      state.counters["bpf_ratio"] = MeasureAll(sender, "bpf", count, state) / bare;
    }
    if (!Enter(1)) break;
    const Sender other;
    if (auto rules = OpenRules(); rules != nullptr && Apply(rules.get(), group)) {
      state.counters["nft_ratio"] = MeasureAll(other, "nft", count, state) / bare;
    }
    state.SetIterationTime(Seconds() - start);
  }
}
// Rule sets as operators write them, and frames that meet them, each followed by another one: the
// way without a filter, and what tables add to it when each frame is searched for.
void BM_RuleSetWay(benchmark::State& state) {
  constexpr size_t kFrames = 8192;
  const bench::Family family = bench::kFamilies[state.range(0)];
  std::vector<host::classifier::Rule> rules =
      bench::MakeRules(family, static_cast<size_t>(state.range(1)), 1);
  for (host::classifier::Rule& rule : rules) rule.action = CLS_PERMIT;
  std::vector<std::vector<uint8_t>> frames;
  for (const cls_key& key : bench::MakeKeys(rules, kFrames, 2)) {
    frames.push_back(bench::FrameOf(key));
  }
  state.SetLabel(bench::NameOf(family));
  if (!Enter(1)) {
    state.SkipWithError("no network here");
    return;
  }
  const Sender sender;
  for (auto _ : state) {
    const double start = Seconds();
    const double bare = sender.Measure(frames);
    auto tables = OpenTables();
    if (tables == nullptr || !Apply(tables.get(), bench::GroupOf(rules))) {
      state.SkipWithError("no tables here");
      break;
    }
    tables->store().config()->cache_slice = 0;
    const double searched = sender.Measure(frames);
    state.counters["bare"] = bare;
    state.counters["added_ns"] = searched - bare;
    state.counters["ratio"] = searched / bare;
    state.SetIterationTime(Seconds() - start);
  }
}
BENCHMARK(BM_RuleSetWay)
    ->ArgNames({"set", "entries"})
    ->ArgsProduct({{0, 1, 2, 3}, {1024, 16384, 65536}})
    ->UseManualTime()
    ->Iterations(1);

BENCHMARK(BM_Way)
    ->ArgNames({"entries", "l2"})
    ->ArgsProduct({{16, 256, 1024, 16384, 65536}, {kL3Entries, kL2Entries}})
    ->UseManualTime()
    ->Iterations(1);

}  // namespace
