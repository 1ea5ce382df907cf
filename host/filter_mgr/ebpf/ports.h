// The ports of the groups, and the interfaces that have their names at the moment: which of them
// the program is attached to, and which roots their frames are searched in.
//
// A port has a number for as long as any group names it; its roots are twice that and the next. The
// maps tell a later process the port of each number, and the program the root of each interface.
// Interfaces come, go and swap names while filters are in force: Update() compares what should be
// with what is, and changes what differs.
#ifndef HOST_FILTER_MGR_EBPF_PORTS_H_
#define HOST_FILTER_MGR_EBPF_PORTS_H_

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/filter_mgr/ebpf/failure.h"
#include "host/filter_mgr/ebpf/port_guards.h"
#include "host/filter_mgr/ebpf/port_hooks.h"
#include "host/filter_mgr/ebpf/store.h"
#include "host/filter_mgr/group_slot.h"
#include "host/filter_mgr/linux/link_table.h"

namespace host {

class FilterPorts {
 public:
  // None of these is owned; `guards` may be null.
  FilterPorts(FilterStore* store, PortHooks* hooks, PortGuards* guards, const LinkTable* links)
      : store_(store), hooks_(hooks), guards_(guards), links_(links) {}

  // Takes over the ports that the maps name.
  void Adopt();
  // The number of a port, given to it if need be. False where it has none: without a `failure` when
  // no interface can have such a name, with one when the maps cannot grow.
  bool NumberOf(const std::string& port, uint32_t* number, Failure* failure);
  // The same for a port that has one; false for others.
  bool Find(const std::string& port, uint32_t* number) const;
  bool Names(const std::string& port) const { return number_of_.count(port) != 0; }
  static uint32_t RootOf(uint32_t number, GroupSlot slot) {
    return 2 * number + static_cast<uint32_t>(slot);
  }
  const std::string& NameOf(uint32_t number) const { return names_[number]; }
  uint32_t count() const { return static_cast<uint32_t>(names_.size()); }

  // Makes room for the interfaces of the wanted ports, and the program for the maps as they are.
  // False, with the failure, when the kernel refuses that; what is in force does not change.
  bool MakeReady(const std::set<std::string>& wanted, Failure* failure);
  // Does that, and puts store.program() on the interfaces of the wanted ports, and guards on their
  // names; takes neither away from any. False, with the failure, when the program is not the one on
  // all interfaces that had one; then nothing new may be published. A port that could not be given
  // one is failed().
  bool Cover(const std::set<std::string>& wanted, Failure* failure);
  // Takes program, guard and number from ports that are not wanted, and from interfaces that are no
  // port's any more.
  void Uncover(const std::set<std::string>& wanted);
  // Interfaces of these names have appeared, gone or changed: their links may hang on nothing.
  void Forget(const std::set<std::string>& names);

  // Ports whose interface is there and has no program, or whose name has no guard.
  const std::set<std::string>& failed() const { return failed_; }
  bool Covered(const std::string& port) const;

 private:
  // Fills the program's table of interfaces. 0, or a negative errno when it has no room for them.
  int Fill(const std::map<int, uint32_t>& interfaces);
  bool SetSlot(int interface, uint32_t root);
  void ClearSlot(int interface);
  // The root, as it is in the table, of each interface that has a wanted port's name.
  std::map<int, uint32_t> RootsOf(const std::set<std::string>& wanted) const;
  void SetGuards(const std::set<std::string>& wanted, bool keep_others);
  void Fail(const std::string& port, const char* what, int error);

  FilterStore* store_;
  PortHooks* hooks_;
  PortGuards* guards_;
  const LinkTable* links_;
  std::vector<std::string> names_;  // by number; empty: free
  std::map<std::string, uint32_t> number_of_;
  std::set<std::string> failed_, reported_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_EBPF_PORTS_H_
