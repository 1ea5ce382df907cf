// How long a commit of one entry among 65,536 takes while other sessions do their worst: median,
// 99 % and the longest of each case, in milliseconds from the request to the reply, on the
// datastore and NETCONF server alone. "Idle" is the same without the others. Peak and growth of the
// process's memory are given as well; what the peers themselves hold is in it.
//
// The peers are of another user, who may only read, where the benchmark may become one (as root).
// All run in one process on one machine, so they take processor time from the server as well.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <functional>
#include <random>
#include <thread>

#include "bench/client.h"
#include "bench/configuration.h"
#include "bench/scratch.h"
#include "host/cdb/datastore.h"
#include "host/cdb/operational_store.h"
#include "host/netconf/server/server.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/log.h"

namespace {

constexpr int kEntries = 65536;
constexpr char kHello[] =
    R"(<hello xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><capabilities><capability>)"
    "urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>]]>]]>";

std::string Rpc(const std::string& operation) {
  return R"(<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0">)" + operation +
         "</rpc>]]>]]>";
}

std::string GetConfig(const std::string& filter) {
  return Rpc("<get-config><source><running/></source>" + filter + "</get-config>");
}

std::string Nested(int depth) {
  std::string text;
  for (int i = 0; i < depth; ++i) text += "<a>";
  for (int i = 0; i < depth; ++i) text += "</a>";
  return text;
}

// A valid edit with some bytes changed, a hundred of them.
std::string Mutated() {
  std::minstd_rand random(4711);
  std::string all;
  for (int i = 0; i < 100; ++i) {
    std::string message = Rpc("<edit-config><target><running/></target><config>" + Nested(5) +
                              "</config></edit-config>");
    for (int k = 0; k < 3; ++k)
      message[random() % (message.size() - 6)] = "<>&\"'/ x\n\0"[random() % 10];
    all += message;
  }
  return all;
}

struct Peers {
  const char* name;
  int count;
  bool hello;
  std::string message;  // sent over and over
  bool once;            // sent but once
  bool reads;
};

const std::vector<Peers>& Cases() {
  static const std::vector<Peers> cases = {
      {"Idle", 0, false, "", true, true},
      {"NoHello", 400, false, "", true, false},
      {"HalfRequest", 400, true, Rpc("<get/>").substr(0, 40), true, false},
      {"NeverRead", 400, true, GetConfig(""), false, false},
      {"Readers", 64, true, GetConfig(""), false, true},
      {"FilteredReaders", 64, true,
       GetConfig(R"(<filter><config xmlns="urn:acl-app:acl"><access-list><acl-profile><ingress>)"
                 "<access-list><access-list-entry><ace-priority/><match/></access-list-entry>"
                 "</access-list></ingress></acl-profile></access-list></config></filter>"),
       false, true},
      {"XPathReaders", 64, true,
       GetConfig(R"(<filter type="xpath" xmlns:a="urn:acl-app:acl" )"
                 R"(select="//a:access-list-entry[a:match/a:destination-port='7']"/>)"),
       false, true},
      {"StateReaders", 64, true, Rpc("<get/>"), false, true},
      {"SmallRequests", 400, true, Rpc("<get-schema/>"), false, true},
      {"Oversized", 16, true, Rpc(std::string(size_t{130} << 20, ' ')), false, true},
      {"DeeplyNested", 64, true, Rpc(Nested(20000)), false, true},
      {"Mutated", 64, true, Mutated(), false, true},
  };
  return cases;
}

// Plays the peers until told to stop. A session that the daemon ends begins anew.
class Crowd {
 public:
  Crowd(const Peers& peers, const std::string& path) : peers_(peers), path_(path) {
    for (int i = 0; i < peers.count; ++i) connections_.push_back(Connect());
  }
  Crowd(const Crowd&) = delete;
  Crowd& operator=(const Crowd&) = delete;
  ~Crowd() {
    for (const Connection& connection : connections_) close(connection.fd);
  }

  void Run(const std::atomic<bool>& stop) {
    std::vector<pollfd> ready(connections_.size());
    while (!stop) {
      for (size_t i = 0; i < ready.size(); ++i) {
        const short events = (peers_.reads ? POLLIN : 0) | (HasMore(connections_[i]) ? POLLOUT : 0);
        ready[i] = {connections_[i].fd, events, 0};
      }
      poll(ready.data(), ready.size(), 20);
      for (size_t i = 0; i < ready.size() && !stop; ++i) Serve(&connections_[i], ready[i].revents);
    }
  }

 private:
  struct Connection {
    int fd;
    size_t sent = 0;  // of hello and message
    bool all_sent = false;
  };

  Connection Connect() const {
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path_.c_str(), sizeof(address.sun_path) - 1);
    if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) std::abort();
    fcntl(fd, F_SETFL, O_NONBLOCK);
    Connection connection{fd};
    if (peers_.hello) send(fd, kHello, sizeof(kHello) - 1, MSG_NOSIGNAL);
    return connection;
  }
  bool HasMore(const Connection& connection) const {
    return !peers_.message.empty() && !connection.all_sent;
  }
  void Serve(Connection* connection, short ready) {
    static char buffer[1 << 17];
    if ((ready & POLLIN) != 0 && read(connection->fd, buffer, sizeof(buffer)) <= 0)
      ready |= POLLHUP;
    if ((ready & (POLLHUP | POLLERR)) != 0) {
      close(connection->fd);
      *connection = Connect();
      return;
    }
    if ((ready & POLLOUT) == 0) return;
    const std::string& message = peers_.message;
    const ssize_t size =
        send(connection->fd, message.data() + connection->sent,
             std::min<size_t>(message.size() - connection->sent, 1 << 17), MSG_NOSIGNAL);
    if (size > 0) connection->sent += size;
    if (connection->sent < message.size()) return;
    connection->sent = 0;
    connection->all_sent = peers_.once;
  }

  const Peers& peers_;
  const std::string path_;
  std::vector<Connection> connections_;
};

// A datastore on disk and its NETCONF server.
class Server {
 public:
  Server() {
    std::string error;
    if (!host::OpenLog("bench", "stderr", "error", &error)) std::abort();
    chmod(scratch_.directory().c_str(), 0755);
    host::DatastoreOptions options;
    options.yang_directory = BENCH_YANG_DIRECTORY;
    options.state_directory = scratch_.directory();
    options.startup_file = scratch_.Write("startup.json", ConfigurationJson(1, kEntries));
    host::DatastoreErrors errors;
    datastore_ = host::Datastore::Open(options, &errors);
    host::NetconfServerOptions server_options;
    server_options.socket_path = scratch_.directory() + "/netconf.sock";
    server_options.socket_mode = 0666;
    // One user stands for as many as it takes to have so many sessions.
    server_options.limits.user_sessions = server_options.limits.sessions;
    auto providers = std::make_shared<host::StateProviders>();
    if (datastore_ == nullptr) std::abort();
    datastore_->Operational().SetProviders(providers);
    server_ = host::NetconfServer::Create(server_options, *datastore_, loop_, providers, &error);
    if (server_ == nullptr) std::abort();
  }
  // Runs `client` on a thread of its own, and the loop beside it until the client returns.
  void RunWith(const std::function<void(const std::string& socket)>& client) {
    const int done = eventfd(0, EFD_CLOEXEC);
    bool running = true;
    const auto watch = loop_->OnIo(done, EPOLLIN, [&running](uint32_t) { running = false; });
    std::thread thread([&] {
      client(scratch_.directory() + "/netconf.sock");
      eventfd_write(done, 1);
    });
    loop_->RunWhile(&running);
    thread.join();
    close(done);
  }

 private:
  Scratch scratch_;
  std::shared_ptr<host::EventLoop> loop_ = host::EventLoop::Create();
  std::unique_ptr<host::Datastore> datastore_;
  std::unique_ptr<host::NetconfServer> server_;
};

// The calling thread alone becomes another user (setresuid(2): the kernel's call is per thread).
void BecomeNobody() { syscall(SYS_setresuid, 65534, 65534, 65534); }

double ResidentMb() {
  std::ifstream statm("/proc/self/statm");
  double size = 0, resident = 0;
  statm >> size >> resident;
  return resident * static_cast<double>(sysconf(_SC_PAGESIZE)) / (1 << 20);
}

void BM_CommitBeside(benchmark::State& state, const Peers& peers) {
  rlimit files{65536, 65536};
  setrlimit(RLIMIT_NOFILE, &files);
  Server server;
  const double before = ResidentMb();
  double grown = 0;
  std::vector<double> times;
  for (auto _ : state) {
    server.RunWith([&](const std::string& socket) {
      std::atomic<bool> stop = false;
      Client client(socket);
      std::thread thread([&] {
        BecomeNobody();
        Crowd(peers, socket).Run(stop);
      });
      std::this_thread::sleep_for(std::chrono::milliseconds(1000));
      for (int i = 0; i < 500; ++i) {
        const auto start = std::chrono::steady_clock::now();
        client.Send(ChangePort(i * 7919 % kEntries, i + 1));
        if (client.Receive().find("<ok/>") == std::string::npos) std::abort();
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count());
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
      }
      grown = ResidentMb() - before;
      stop = true;
      thread.join();
    });
  }
  std::sort(times.begin(), times.end());
  state.counters["median_ms"] = times[times.size() / 2];
  state.counters["p99_ms"] = times[times.size() * 99 / 100];
  state.counters["max_ms"] = times.back();
  state.counters["start_MB"] = before;
  state.counters["grown_MB"] = grown;
}

const int kRegistered = [] {
  for (const Peers& peers : Cases()) {
    benchmark::RegisterBenchmark(
        (std::string("BM_CommitBeside/") + peers.name).c_str(),
        [&peers](benchmark::State& state) { BM_CommitBeside(state, peers); })
        ->Iterations(1)
        ->UseRealTime()
        ->Unit(benchmark::kMillisecond);
  }
  return 0;
}();

}  // namespace
