// A NETCONF server on a datastore of its own, its loop on a thread, and a client that can
// misbehave.
#ifndef TESTS_HOST_NETCONF_SERVER_FIXTURE_H_
#define TESTS_HOST_NETCONF_SERVER_FIXTURE_H_

#include <gtest/gtest.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>

#include "host/cdb/datastore.h"
#include "host/cdb/operational_store.h"
#include "host/netconf/server/server.h"
#include "host/netconf/wire/framing.h"
#include "host/netconf/wire/listener.h"

namespace host {

inline constexpr char kHello11[] =
    "<hello xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><capabilities><capability>"
    "urn:ietf:params:netconf:base:1.1</capability></capabilities></hello>";
inline constexpr char kHello10[] =
    "<hello xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'><capabilities><capability>"
    "urn:ietf:params:netconf:base:1.0</capability></capabilities></hello>";
inline constexpr char kRpcStart[] =
    "<rpc message-id='1' xmlns='urn:ietf:params:xml:ns:netconf:base:1.0'>";

// A blocking client that gives up after some seconds.
class TestClient {
 public:
  explicit TestClient(const std::string& path) : fd_(ConnectTo(path)), decoder_(size_t{1} << 30) {
    const timeval patience{10, 0};
    setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof(patience));
    setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
  }
  TestClient(const TestClient&) = delete;
  TestClient& operator=(const TestClient&) = delete;
  ~TestClient() { Close(); }

  bool connected() const { return fd_ >= 0; }
  void Close() {
    if (fd_ >= 0) close(fd_);
    fd_ = -1;
  }
  // False when the server has closed.
  bool Send(std::string_view bytes) {
    while (!bytes.empty()) {
      const ssize_t size = send(fd_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
      if (size <= 0) return false;
      bytes.remove_prefix(size);
    }
    return true;
  }
  bool SendMessage(const std::string& message) {
    return Send(FramePrefix(framing_, message.size()) + message +
                std::string(FrameSuffix(framing_)));
  }
  // The next message; "CLOSED" when the server has closed, "SILENCE" when it says nothing.
  std::string Receive() {
    while (true) {
      std::string_view input = input_;
      const FrameDecoder::Status status = decoder_.Consume(&input);
      input_.erase(0, input_.size() - input.size());
      if (status == FrameDecoder::Status::kMessage) return std::move(decoder_.message());
      if (status == FrameDecoder::Status::kBroken) return "BROKEN";
      char buffer[65536];
      const ssize_t size = recv(fd_, buffer, sizeof(buffer), 0);
      if (size < 0 && errno == EAGAIN) return "SILENCE";
      if (size <= 0) return "CLOSED";
      input_.assign(buffer, size);
    }
  }
  // Exchanges hellos; the server's is returned.
  std::string Open(const std::string& hello = kHello11) {
    SendMessage(hello);
    std::string answer = Receive();
    if (hello.find("base:1.1<") != std::string::npos) {
      framing_ = Framing::kChunked;
      decoder_.SetFraming(framing_);
    }
    return answer;
  }
  // The reply to one operation.
  std::string Rpc(const std::string& operation) {
    SendMessage(kRpcStart + operation + "</rpc>");
    return Receive();
  }

 private:
  int fd_;
  Framing framing_ = Framing::kEndOfMessage;
  FrameDecoder decoder_;
  std::string input_;
};

// The whole reply, also where it is made in parts.
inline std::string TextOf(Dispatcher::Reply reply) {
  while (reply.stream != nullptr &&
         reply.stream->Next(&reply.xml) == ReplyStream::Progress::kMore) {
  }
  return reply.xml;
}

class ServerTest : public testing::Test {
 protected:
  ServerTest() {
    char path[] = "/tmp/netconf-test.XXXXXX";
    directory_ = mkdtemp(path);
    server_options_.socket_path = directory_ + "/netconf.sock";
  }
  ~ServerTest() override {
    Stop();
    server_.reset();
    std::filesystem::remove_all(directory_);
  }

  void Start() {
    DatastoreErrors errors;
    DatastoreOptions options;
    options.yang_directory = ACL_YANG_DIR;
    options.state_directory = directory_;
    datastore_ = Datastore::Open(options, &errors);
    ASSERT_NE(datastore_, nullptr) << errors.front().message;
    datastore_->Operational().SetProviders(providers_);
    loop_ = EventLoop::Create();
    std::string error;
    server_ = NetconfServer::Create(server_options_, *datastore_, loop_, providers_, &error);
    ASSERT_NE(server_, nullptr) << error;
    stop_fd_ = eventfd(0, EFD_CLOEXEC);
    stop_watch_ = loop_->OnIo(stop_fd_, EPOLLIN, [this](uint32_t) { loop_->Stop(); });
    thread_ = std::thread([this] { loop_->RunWhile(&running_); });
  }
  // Ends the loop's thread; server and datastore may then be looked at.
  void Stop() {
    if (!thread_.joinable()) return;
    eventfd_write(stop_fd_, 1);
    thread_.join();
    stop_watch_.reset();
    close(stop_fd_);
  }

  std::string directory_;
  NetconfServerOptions server_options_;
  std::unique_ptr<Datastore> datastore_;
  std::shared_ptr<EventLoop> loop_;
  std::shared_ptr<StateProviders> providers_ = std::make_shared<StateProviders>();
  std::unique_ptr<NetconfServer> server_;

 private:
  bool running_ = true;
  int stop_fd_ = -1;
  std::unique_ptr<Watch> stop_watch_;
  std::thread thread_;
};

}  // namespace host

#endif  // TESTS_HOST_NETCONF_SERVER_FIXTURE_H_
