// A NETCONF session from a client's side for the benchmarks, and the edit that they make.
#ifndef BENCH_CLIENT_H_
#define BENCH_CLIENT_H_

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "bench/configuration.h"

inline constexpr char kEnd[] = "]]>]]>";

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

// Gives one entry of the first profile another destination port.
inline std::string ChangePort(int entry, int port) {
  return R"(<rpc message-id="1" xmlns="urn:ietf:params:xml:ns:netconf:base:1.0"><edit-config>)"
         R"(<target><running/></target><config><config xmlns="urn:acl-app:acl"><access-list>)"
         R"(<acl-profile><ingress><access-list><acl-type>l3</acl-type><acl-name>)" +
         ProfileName(0) + "</acl-name><access-list-entry><ace-priority>" + std::to_string(entry) +
         "</ace-priority><match><destination-port>" + std::to_string(port) +
         "</destination-port></match></access-list-entry></access-list></ingress></acl-profile>"
         "</access-list></config></config></edit-config></rpc>";
}

#endif  // BENCH_CLIENT_H_
