// A commit as an operator's client sees it: from the request for one entry's change on the NETCONF
// socket to the reply, which comes after both groups are updated.
#include <benchmark/benchmark.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <cstring>

#include "bench/configuration.h"
#include "bench/daemon.h"

namespace {

const char kEnd[] = "]]>]]>";

// A session with end-of-message framing (RFC 6242, section 4.3).
class Client {
 public:
  explicit Client(const std::string& path) : socket_(socket(AF_UNIX, SOCK_STREAM, 0)) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    if (connect(socket_, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) std::abort();
    Receive();
    Send(R"(<hello xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><capabilities><capability>)"
         "urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>");
  }
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;
  ~Client() { close(socket_); }

  void Send(const std::string& message) const {
    const std::string framed = message + kEnd;
    for (size_t at = 0; at < framed.size();) {
      const ssize_t n = write(socket_, framed.data() + at, framed.size() - at);
      if (n <= 0) std::abort();
      at += static_cast<size_t>(n);
    }
  }

  std::string Receive() {
    std::string message;
    char buffer[65536];
    while (message.size() < sizeof(kEnd) ||
           message.compare(message.size() - sizeof(kEnd) + 1, sizeof(kEnd) - 1, kEnd) != 0) {
      const ssize_t n = read(socket_, buffer, sizeof(buffer));
      if (n <= 0) std::abort();
      message.append(buffer, static_cast<size_t>(n));
    }
    return message;
  }

 private:
  int socket_;
};

std::string ChangePort(int entry, int port) {
  return R"(<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><edit-config>)"
         R"(<target><running/></target><config><config xmlns="urn:acl-app:acl"><access-list>)"
         R"(<acl-profile><ingress><access-list><acl-type>l3</acl-type><acl-name>)" +
         ProfileName(0) + "</acl-name><access-list-entry><ace-priority>" + std::to_string(entry) +
         "</ace-priority><match><destination-port>" + std::to_string(port) +
         "</destination-port></match></access-list-entry></access-list></ingress></acl-profile>"
         "</access-list></config></config></edit-config></rpc>";
}

// Changes one entry after the other, of the first of the configuration's profiles.
void EditOneEntry(benchmark::State& state, const std::string& configuration, int entries,
                  const std::string& filter_backend) {
  Daemon daemon(configuration, filter_backend);
  daemon.RunInitialLoad();
  daemon.RunWith([&](const std::string& socket) {
    Client client(socket);
    int port = 0;
    for (auto _ : state) {
      port = port % 60000 + 1;
      client.Send(ChangePort(port * 7919 % entries, port));
      if (client.Receive().find("<ok/>") == std::string::npos) {
        state.SkipWithError("the edit was refused");
        break;
      }
    }
  });
}

void BM_EditConfigOneEntry(benchmark::State& state) {
  const int entries = static_cast<int>(state.range(0));
  EditOneEntry(state, ConfigurationJson(1, entries), entries, "memory");
}
BENCHMARK(BM_EditConfigOneEntry)
    ->ArgName("entries")
    ->RangeMultiplier(4)
    ->Range(1024, 65536)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

// The same down to the kernel's packet filter, in a network namespace.
void BM_EditConfigOneEntryEnforced(benchmark::State& state) {
  constexpr int kEntries = 65536;
  const int ports = static_cast<int>(state.range(0));
  if (unshare(CLONE_NEWNET) != 0) {
    state.SkipWithError("no network namespace");
    return;
  }
  EditOneEntry(state, ConfigurationJson(ports, kEntries), kEntries / ports, "kernel");
}
BENCHMARK(BM_EditConfigOneEntryEnforced)
    ->ArgName("ports")
    ->Arg(1)
    ->Arg(16)
    ->Arg(64)
    ->Iterations(50)
    ->Unit(benchmark::kMicrosecond)
    ->UseRealTime();

}  // namespace
