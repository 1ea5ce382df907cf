#include "host/filter_mgr/linux/netlink.h"

#include <arpa/inet.h>
#include <libmnl/libmnl.h>
#include <linux/filter.h>
#include <linux/netlink.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>

namespace host {
namespace {

constexpr int kSendBuffer = 512 << 20;    // bytes; an upper limit, not an allocation
constexpr int kReceiveBuffer = 16 << 20;  // likewise
constexpr int kAnswerTimeoutMs = 5000;    // the kernel answers before send() returns
constexpr size_t kReadSize = 256 << 10;   // bytes read at once; dumps come in large pieces

class MnlSocket : public NetlinkSocket {
 public:
  MnlSocket() = default;
  ~MnlSocket() override {
    if (socket_ != nullptr) mnl_socket_close(socket_);
  }
  MnlSocket(const MnlSocket&) = delete;
  MnlSocket& operator=(const MnlSocket&) = delete;

  int Open(const NetlinkOptions& options) {
    socket_ = mnl_socket_open2(options.protocol, SOCK_CLOEXEC);
    if (socket_ == nullptr) return -errno;
    // A batch is one datagram, and its acknowledgements must not be dropped. Larger buffers than
    // the administrator's limit need CAP_NET_ADMIN, which programming the filter needs anyway.
    SetBuffer(SO_SNDBUFFORCE, SO_SNDBUF, kSendBuffer);
    SetBuffer(SO_RCVBUFFORCE, SO_RCVBUF, kReceiveBuffer);
    int on = 1;
    mnl_socket_setsockopt(socket_, NETLINK_CAP_ACK, &on, sizeof(on));
    if (options.ignored_sender != 0 && IgnoreSender(options.ignored_sender) < 0) return -errno;
    if (mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) return -errno;
    return options.group == 0 ? 0 : SetMember(options.group, true);
  }

  int Send(const std::vector<iovec>& parts) override {
    sockaddr_nl kernel{};
    kernel.nl_family = AF_NETLINK;
    msghdr message{};
    message.msg_name = &kernel;
    message.msg_namelen = sizeof(kernel);
    message.msg_iov = const_cast<iovec*>(parts.data());
    message.msg_iovlen = parts.size();
    return sendmsg(fd(), &message, 0) < 0 ? -errno : 0;
  }

  ssize_t Receive(void* buffer, size_t size, bool wait) override {
    pollfd ready{fd(), POLLIN, 0};
    if (wait) {
      const int count = poll(&ready, 1, kAnswerTimeoutMs);
      if (count == 0) return -ETIMEDOUT;
      if (count < 0) return -errno;
    }
    const ssize_t got = recv(fd(), buffer, size, MSG_DONTWAIT | MSG_TRUNC);
    if (got < 0) return -errno;
    return static_cast<size_t>(got) > size ? -EMSGSIZE : got;
  }

  int SetMember(uint32_t group, bool member) override {
    int number = static_cast<int>(group);
    const int option = member ? NETLINK_ADD_MEMBERSHIP : NETLINK_DROP_MEMBERSHIP;
    return mnl_socket_setsockopt(socket_, option, &number, sizeof(number)) < 0 ? -errno : 0;
  }

  int fd() const override { return mnl_socket_get_fd(socket_); }
  uint32_t port_id() const override { return mnl_socket_get_portid(socket_); }

 private:
  void SetBuffer(int force, int plain, int size) {
    if (setsockopt(fd(), SOL_SOCKET, force, &size, sizeof(size)) < 0) {
      setsockopt(fd(), SOL_SOCKET, plain, &size, sizeof(size));
    }
  }

  // Drops datagrams whose first message was caused by `sender`: a large update would otherwise
  // bury its own process in notices of it.
  int IgnoreSender(uint32_t sender) {
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(nlmsghdr, nlmsg_pid)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, htonl(sender), 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0),
        BPF_STMT(BPF_RET | BPF_K, 0xffffffff),
    };
    const sock_fprog program{sizeof(code) / sizeof(code[0]), code};
    return setsockopt(fd(), SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof(program));
  }

  mnl_socket* socket_ = nullptr;
};

// What a datagram's messages amount to.
enum class Reading { kGoesOn, kEnded };

// Hands the messages to `sink`; the result of the request in `error` once it has ended.
Reading ReadMessages(const void* data, size_t size, const nlmsghdr& request,
                     const MessageSink& sink, int* error) {
  auto remaining = static_cast<int>(size);
  const auto* header = static_cast<const nlmsghdr*>(data);
  for (; mnl_nlmsg_ok(header, remaining); header = mnl_nlmsg_next(header, &remaining)) {
    if (header->nlmsg_seq != request.nlmsg_seq) continue;  // of a request given up earlier
    if ((header->nlmsg_flags & NLM_F_DUMP_INTR) != 0) *error = -EINTR;
    if (header->nlmsg_type == NLMSG_ERROR) {
      *error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header))->error;
      return Reading::kEnded;
    }
    if (header->nlmsg_type == NLMSG_DONE) return Reading::kEnded;
    if (header->nlmsg_type >= NLMSG_MIN_TYPE && *error == 0 && sink && !sink(header)) {
      *error = -EPROTO;
    }
    if ((header->nlmsg_flags & NLM_F_MULTI) == 0) return Reading::kEnded;
  }
  return Reading::kGoesOn;
}

}  // namespace

std::unique_ptr<NetlinkSocket> OpenNetlink(const NetlinkOptions& options, int* error) {
  auto socket = std::make_unique<MnlSocket>();
  *error = socket->Open(options);
  if (*error < 0) return nullptr;
  return socket;
}

int NetlinkRequest(NetlinkSocket& socket, nlmsghdr* request, const MessageSink& sink) {
  static uint32_t sequence = 0;
  request->nlmsg_seq = ++sequence;
  int error = socket.Send({{request, request->nlmsg_len}});
  if (error < 0) return error;
  std::vector<char> buffer(kReadSize);
  for (;;) {
    const ssize_t size = socket.Receive(buffer.data(), buffer.size(), /*wait=*/true);
    if (size < 0) return static_cast<int>(size);
    if (ReadMessages(buffer.data(), static_cast<size_t>(size), *request, sink, &error) ==
        Reading::kEnded) {
      return error;
    }
  }
}

void ForEachAttribute(const nlmsghdr* message, size_t header_size,
                      const std::function<void(const nlattr*)>& sink) {
  const auto call = [](const nlattr* attribute, void* data) {
    (*static_cast<const std::function<void(const nlattr*)>*>(data))(attribute);
    return MNL_CB_OK;
  };
  mnl_attr_parse(message, static_cast<unsigned int>(header_size), call,
                 const_cast<std::function<void(const nlattr*)>*>(&sink));
}

}  // namespace host
