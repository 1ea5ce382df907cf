// A small HTTP server, by libmicrohttpd: see http_server.h.
#include "tools/metrics/http_server.h"

#include <arpa/inet.h>
#include <microhttpd.h>
#include <netdb.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

namespace metrics {
namespace {

constexpr unsigned int kConnections = 64;
constexpr unsigned int kIdleSeconds = 15;
constexpr size_t kConnectionBytes = 16384;  // for a request's line and headers, and the answer's

// Of every answer. Nothing is loaded from elsewhere, nothing runs that is not the page's own
// script, and no other site's page can show, read or keep what this one says.
constexpr const char* kHeaders[][2] = {
    {"Content-Security-Policy",
     "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self'; connect-src 'self'; "
     "base-uri 'none'; form-action 'none'; frame-ancestors 'none'; "
     "require-trusted-types-for 'script'"},
    {"X-Content-Type-Options", "nosniff"},
    {"X-Frame-Options", "DENY"},
    {"Referrer-Policy", "no-referrer"},
    {"Cross-Origin-Resource-Policy", "same-origin"},
    {"Cross-Origin-Opener-Policy", "same-origin"},
    {"Cache-Control", "no-store"},
};

std::shared_ptr<const std::string> Text(std::string text) {
  return std::make_shared<const std::string>(std::move(text));
}

HttpServer::Answer Plain(unsigned int status, std::string text) {
  return {status, {"text/plain; charset=utf-8", Text(std::move(text) + "\n")}};
}

// Whether `host`, the header, names this machine by its loopback addresses.
bool NamesLoopback(std::string host) {
  const size_t port = host.rfind(':');
  if (port != std::string::npos && host.find(']', port) == std::string::npos) host.resize(port);
  in_addr address;  // a name that begins like one is no address
  return host == "localhost" || host == "[::1]" ||
         (inet_pton(AF_INET, host.c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == 127);
}

bool IsLoopback(const sockaddr* address) {
  if (address->sa_family == AF_INET) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(address);
    return (ntohl(in->sin_addr.s_addr) >> 24) == 127;
  }
  return IN6_IS_ADDR_LOOPBACK(&reinterpret_cast<const sockaddr_in6*>(address)->sin6_addr) != 0;
}

void Forget(void* shared) { delete static_cast<std::shared_ptr<const std::string>*>(shared); }

MHD_Result Queue(MHD_Connection* connection, const HttpServer::Answer& answer) {
  // The response keeps the text for as long as it is sent, and does not write to it.
  auto* shared = new std::shared_ptr<const std::string>(answer.content.body);
  MHD_Response* response = MHD_create_response_from_buffer_with_free_callback_cls(
      (*shared)->size(), const_cast<char*>((*shared)->data()), Forget, shared);
  if (response == nullptr) {
    Forget(shared);
    return MHD_NO;
  }
  MHD_add_response_header(response, MHD_HTTP_HEADER_CONTENT_TYPE, answer.content.type);
  for (const auto& [name, value] : kHeaders) MHD_add_response_header(response, name, value);
  if (answer.status == MHD_HTTP_METHOD_NOT_ALLOWED) {
    MHD_add_response_header(response, MHD_HTTP_HEADER_ALLOW, "GET, HEAD");
  }
  const MHD_Result result = MHD_queue_response(connection, answer.status, response);
  MHD_destroy_response(response);
  return result;
}

const char* Header(MHD_Connection* connection, const char* name) {
  return MHD_lookup_connection_value(connection, MHD_HEADER_KIND, name);
}

MHD_Result Handle(void* server, MHD_Connection* connection, const char* url, const char* method,
                  const char* /*version*/, const char* /*upload*/, size_t* /*upload_size*/,
                  void** /*state*/) {
  // The first call comes when the headers are there; to answer then keeps a body from being read.
  const char* const host = Header(connection, MHD_HTTP_HEADER_HOST);
  const char* const length = Header(connection, MHD_HTTP_HEADER_CONTENT_LENGTH);
  const bool body = (length != nullptr && std::strcmp(length, "0") != 0) ||
                    Header(connection, MHD_HTTP_HEADER_TRANSFER_ENCODING) != nullptr;
  return Queue(connection, static_cast<const HttpServer*>(server)->AnswerTo(
                               {method, url, host != nullptr ? host : "", body}));
}

// A socket that listens; -1 with the reason in `*error`. Sets `*url` to where it is reached.
int Listen(const std::string& address, uint16_t port, std::string* url, bool* loopback,
           std::string* error) {
  addrinfo hints{};
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICHOST | AI_NUMERICSERV | AI_PASSIVE;
  addrinfo* found = nullptr;
  const int wrong = getaddrinfo(address.c_str(), std::to_string(port).c_str(), &hints, &found);
  if (wrong != 0) {
    *error = "\"" + address + "\" is no IP address: " + gai_strerror(wrong);
    return -1;
  }
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owner(found, freeaddrinfo);
  const int fd = socket(found->ai_family, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int on = 1;
  sockaddr_storage bound{};
  socklen_t size = sizeof(bound);
  char host[NI_MAXHOST], service[NI_MAXSERV];
  if (fd < 0 || setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on)) != 0 ||
      bind(fd, found->ai_addr, found->ai_addrlen) != 0 || listen(fd, SOMAXCONN) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&bound), &size) != 0 ||
      getnameinfo(reinterpret_cast<sockaddr*>(&bound), size, host, sizeof(host), service,
                  sizeof(service), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
    *error = "cannot listen at " + address + " port " + std::to_string(port) + ": " +
             std::strerror(errno);
    if (fd >= 0) close(fd);
    return -1;
  }
  *loopback = IsLoopback(found->ai_addr);
  const bool v6 = found->ai_family == AF_INET6;
  *url = std::string("http://") + (v6 ? "[" : "") + host + (v6 ? "]:" : ":") + service + "/";
  return fd;
}

}  // namespace

std::unique_ptr<HttpServer> HttpServer::Start(const std::string& address, uint16_t port,
                                              std::map<std::string, Make> paths,
                                              std::string* error) {
  std::string url;
  bool loopback = false;
  const int fd = Listen(address, port, &url, &loopback, error);
  if (fd < 0) return nullptr;
  std::unique_ptr<HttpServer> server(new HttpServer(std::move(paths), loopback));
  server->url_ = url;
  server->daemon_ =
      MHD_start_daemon(MHD_USE_AUTO_INTERNAL_THREAD, 0, nullptr, nullptr, Handle, server.get(),
                       MHD_OPTION_LISTEN_SOCKET, fd, MHD_OPTION_CONNECTION_LIMIT, kConnections,
                       MHD_OPTION_CONNECTION_TIMEOUT, kIdleSeconds,
                       MHD_OPTION_CONNECTION_MEMORY_LIMIT, kConnectionBytes, MHD_OPTION_END);
  if (server->daemon_ == nullptr) {
    *error = "cannot serve HTTP";
    close(fd);
    return nullptr;
  }
  return server;
}

HttpServer::~HttpServer() {
  if (daemon_ != nullptr) MHD_stop_daemon(daemon_);
}

HttpServer::Answer HttpServer::AnswerTo(const Request& request) const {
  if (request.method != "GET" && request.method != "HEAD") {
    return Plain(MHD_HTTP_METHOD_NOT_ALLOWED, "there is nothing to be changed here");
  }
  if (request.has_body) return Plain(MHD_HTTP_BAD_REQUEST, "a request has no content here");
  // A page of another site could reach this one by a name of its own that leads to this machine.
  if (loopback_ && !NamesLoopback(request.host)) {
    return Plain(MHD_HTTP_FORBIDDEN, "this is for this machine: http://localhost and the port");
  }
  const auto found = paths_.find(request.path);
  if (found == paths_.end()) return Plain(MHD_HTTP_NOT_FOUND, "there is no such page");
  return {MHD_HTTP_OK, found->second()};
}

}  // namespace metrics
