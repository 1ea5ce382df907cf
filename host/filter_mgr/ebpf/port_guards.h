// Guards against interfaces that nobody has attached the program to.
//
// A program can only be attached to an interface that is there. When one is made anew under a
// port's name, it would carry frames until the daemon has heard of it, and for as long as the
// daemon is not running. A guard is a rule of the kernel's packet filter that drops what comes in
// through an interface of the port's name whose index is not the one that the program is attached
// to. It stays in force while the daemon is away.
//
// Where the kernel binds ingress hooks to names (seen on 6.18), each guard is a chain of the netdev
// family on its port's ingress, behind the program: it sees every frame. Elsewhere (6.1) such a
// chain goes with its interface, so the guards are rules of chains in the inet and bridge families
// in front of routing: they see what is routed, bridged or for this machine itself.
//
// Table `acl-app-guard`, one per family. Other programs may change it, or flush all there is: the
// kernel announces that, and Repair() makes the guards anew.
#ifndef HOST_FILTER_MGR_EBPF_PORT_GUARDS_H_
#define HOST_FILTER_MGR_EBPF_PORT_GUARDS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "host/filter_mgr/linux/netlink.h"

namespace host {

class PortGuards {
 public:
  // Index of the interface that each port's frames may come from; 0: none.
  using Guards = std::map<std::string, int>;
  enum class Kind { kIngress, kPrerouting };

  // Finds out what the kernel can do and reads the guards that an earlier run left. Null, with a
  // negative errno in `error`, where there is no packet filter, or the process may not change it.
  static std::unique_ptr<PortGuards> Open(const NetlinkOpener& open, int* error);

  // Puts these guards in force, and no others, in one transaction; writes what differs, or all
  // where others have changed them. 0, or a negative errno when nothing was changed.
  int Set(const Guards& guards);
  // Readable when the packet filter was changed by others.
  int fd() const { return events_->fd(); }
  // Whether others have changed the guards since they were written.
  bool Damaged();
  // Puts right what others have changed. 0 or a negative errno; then Damaged() stays true.
  int Repair() { return Damaged() ? Set(in_force_) : 0; }
  // Removes the guards of all kinds, also those of a daemon that has ended. 0 or a negative errno.
  int Remove();

  const Guards& in_force() const { return in_force_; }
  Kind kind() const { return kind_; }
  // Transactions that changed something; for tests.
  size_t writes() const { return writes_; }

 private:
  class Batch;

  explicit PortGuards(std::unique_ptr<NetlinkSocket> socket) : socket_(std::move(socket)) {}
  int ProbeKind();
  int Read();
  void Write(const Guards& before, const Guards& guards, Batch* batch) const;
  int Send(Batch* batch);

  std::unique_ptr<NetlinkSocket> socket_, events_;
  bool damaged_ = false;
  Kind kind_ = Kind::kIngress;
  std::vector<uint8_t> families_;  // NFPROTO_..., where the guards stand
  Guards in_force_;
  size_t writes_ = 0;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_PORT_GUARDS_H_
