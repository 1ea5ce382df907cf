// Netlink sockets. The one seam between the Filter Manager and the kernel: tests put a socket in
// between that fails where they want it to.
#ifndef HOST_FILTER_MGR_LINUX_NETLINK_H_
#define HOST_FILTER_MGR_LINUX_NETLINK_H_

#include <sys/types.h>
#include <sys/uio.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

struct nlattr;
struct nlmsghdr;

namespace host {

class NetlinkSocket {
 public:
  virtual ~NetlinkSocket() = default;
  // Sends the parts as one datagram. 0 or a negative errno.
  virtual int Send(const std::vector<iovec>& parts) = 0;
  // Reads one datagram; its size, or a negative errno: -EAGAIN when `wait` is false and there is
  // none, -ENOBUFS (once) when the kernel had to drop some.
  virtual ssize_t Receive(void* buffer, size_t size, bool wait) = 0;
  virtual int fd() const = 0;
  // Joins the multicast group, or leaves it. 0 or a negative errno.
  virtual int SetMember(uint32_t group, bool member) = 0;
  // The socket's address, which the kernel puts into what the socket causes.
  virtual uint32_t port_id() const = 0;
};

struct NetlinkOptions {
  int protocol = 0;             // NETLINK_NETFILTER, NETLINK_ROUTE
  uint32_t group = 0;           // multicast group to join, 0 for none
  uint32_t ignored_sender = 0;  // drop what this port id caused, in the kernel; 0 for none
};

// Null on failure, with a negative errno in `error`.
std::unique_ptr<NetlinkSocket> OpenNetlink(const NetlinkOptions& options, int* error);
using NetlinkOpener =
    std::function<std::unique_ptr<NetlinkSocket>(const NetlinkOptions& options, int* error)>;

// Takes one message; false ends the reading with -EPROTO.
using MessageSink = std::function<bool(const nlmsghdr*)>;

// Sends a request of one message and hands each message of the answer to `sink` (null: there is
// none). For a dump (NLM_F_DUMP) that another change interrupted: -EINTR. 0 or a negative errno.
int NetlinkRequest(NetlinkSocket& socket, nlmsghdr* request, const MessageSink& sink);

// Hands each attribute behind the message's family header of `header_size` bytes to `sink`.
void ForEachAttribute(const nlmsghdr* message, size_t header_size,
                      const std::function<void(const nlattr*)>& sink);

}  // namespace host

#endif  // HOST_FILTER_MGR_LINUX_NETLINK_H_
