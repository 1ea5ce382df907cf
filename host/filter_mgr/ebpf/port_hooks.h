// The filter program at the ingress of interfaces.
//
// Where the kernel has them (6.6 and later) the program hangs on links (TCX), pinned by interface
// index, and ahead of all other programs of the interface. Elsewhere it is a classifier of the
// interface's clsact queueing discipline, under a priority and a handle of its own, ahead of
// others. Both outlive the process and go with the interface, and in both the program is exchanged
// for another one without a frame in between passing by.
//
// A link cannot be taken away by those who do not have it; a classifier goes with the queueing
// discipline, whoever deletes that. The kernel announces it (rtnetlink(7), RTNLGRP_TC).
//
// What is attached is told by interface index: a name may go over to another interface.
#ifndef HOST_FILTER_MGR_EBPF_PORT_HOOKS_H_
#define HOST_FILTER_MGR_EBPF_PORT_HOOKS_H_

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <vector>

#include "host/filter_mgr/ebpf/pins.h"
#include "host/filter_mgr/linux/netlink.h"

namespace host {

class PortHooks {
 public:
  enum class Method { kLink, kClassifier };

  // Hooks whose links are pinned in `links`, which must outlive this.
  PortHooks(const PinDirectory* links, Method method);
  // What this kernel offers. Tries a link to an interface that cannot exist.
  static Method Probe(int program);

  // Listens for others taking the program away, where they can. 0 or a negative errno.
  int Watch(const NetlinkOpener& open);
  // Readable when there is something for Lost() to look at; -1 where nobody can take it away.
  int fd() const { return events_ == nullptr ? -1 : events_->fd(); }
  // Interfaces that the program was taken off by others since the last call; Attach() brings it
  // back.
  std::set<int> Lost();

  // Takes over what an earlier run attached to these interfaces; pins of links whose interface is
  // gone are removed. 0 or a negative errno.
  int Adopt(const std::vector<int>& interfaces);
  // Attaches the program to the interface, in place of the one of ours that is there. 0 or a
  // negative errno: -ENODEV when the interface is gone.
  int Attach(int interface, int program);
  // Takes our program off the interface. 0, also when it or the interface is gone, or a negative
  // errno.
  int Detach(int interface);

  // The interface may be another one than the program was attached to under this index.
  void Forget(int interface) {
    const auto it = attached_.find(interface);
    if (it != attached_.end()) it->second = 0;
  }

  // The program's id, or 0 if it is not known, by the interface that it is attached to.
  const std::map<int, uint32_t>& attached() const { return attached_; }
  Method method() const { return method_; }

 private:
  int AdoptLink(const std::string& name);
  int AttachLink(int interface, int program);

  const PinDirectory* links_;
  Method method_;
  std::map<int, uint32_t> attached_;
  std::map<int, Descriptor> held_;  // the links, by interface
  std::unique_ptr<NetlinkSocket> events_;
};

// Whether at least one of the pinned links hangs on an interface that is there.
bool AnyLinkAlive(const PinDirectory& links);

// The id by which the kernel knows a program; 0 when it cannot be told.
uint32_t ProgramId(int program);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_PORT_HOOKS_H_
