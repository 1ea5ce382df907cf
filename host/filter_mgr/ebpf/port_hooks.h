// The filter program at the ingress of interfaces.
//
// Where the kernel has them (6.6 and later) the program hangs on links (TCX), pinned by interface
// index, and ahead of all other programs of the interface. Elsewhere it is a classifier of the
// interface's clsact queueing discipline, under a priority and a handle of its own, ahead of
// others. Both outlive the process and go with the interface, and in both the program is exchanged
// for another one without a frame in between passing by.
//
// Others can take the program away. A classifier goes with the queueing discipline, whoever deletes
// that; the kernel announces it (rtnetlink(7), RTNLGRP_TC). A link can be detached by who opens its
// pin, and goes along when its interface moves to another network namespace, where it lives on: of
// neither is there an announcement. So the interface is asked for the link whenever that matters,
// and every two seconds.
//
// What is attached is told by interface index: a name may go over to another interface, and so may
// an index, which is a network namespace's own.
#ifndef HOST_FILTER_MGR_EBPF_PORT_HOOKS_H_
#define HOST_FILTER_MGR_EBPF_PORT_HOOKS_H_

#include <algorithm>
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

  // Begins to look for others taking the program away. 0 or a negative errno.
  int Watch(const NetlinkOpener& open);
  // Readable when Lost() should look; -1 before Watch().
  int fd() const { return events_ == nullptr ? timer_.get() : events_->fd(); }
  // Interfaces that the program was taken off by others since the last call; Attach() brings it
  // back. Asks for all links; and when fd() is readable, pins those again whose pins are gone: to
  // look for a file takes twice as long, and no port is open for the lack of it.
  std::set<int> Lost();

  // Takes over what an earlier run attached to these interfaces; pins of links whose interface is
  // not here are removed, but with `keep_pins`. 0 or a negative errno.
  int Adopt(const std::vector<int>& interfaces, bool keep_pins = false);
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
  // Whether it is known for this interface; for all.
  bool Known(int interface) const {
    const auto it = attached_.find(interface);
    return it != attached_.end() && it->second != 0;
  }
  bool AllKnown() const {
    return std::all_of(attached_.begin(), attached_.end(),
                       [](const auto& attached) { return attached.second != 0; });
  }
  Method method() const { return method_; }

 private:
  struct Link {
    Descriptor fd;
    uint32_t id = 0;
  };

  int AdoptLink(const std::string& name, bool keep_pin);
  int AttachLink(int interface, int program);
  std::set<int> ConcernedByEvents();
  bool LostLink(int interface) const;
  void KeepPinned(int interface);

  const PinDirectory* links_;
  Method method_;
  std::map<int, uint32_t> attached_;
  std::map<int, Link> held_;               // by interface
  std::unique_ptr<NetlinkSocket> events_;  // of classifiers
  bool pins_reported_ = false;             // that a link cannot be pinned again
  Descriptor timer_;                       // to look at links
};

// Whether at least one of the pinned links hangs on an interface that is there.
bool AnyLinkAlive(const PinDirectory& links);

// The id by which the kernel knows a program; 0 when it cannot be told.
uint32_t ProgramId(int program);

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_PORT_HOOKS_H_
