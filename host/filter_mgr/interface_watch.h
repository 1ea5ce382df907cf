// Tells others when the state of an interface changes that the groups in force name.
//
// What changes in a moment is told once, when that is over: a port that goes down and up makes many
// announcements of the kernel. What was there when the first groups came into force is no change.
#ifndef HOST_FILTER_MGR_INTERFACE_WATCH_H_
#define HOST_FILTER_MGR_INTERFACE_WATCH_H_

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>

#include "host/filter_mgr/backend.h"
#include "host/filter_mgr/port_names.h"
#include "host/runtime/event_loop.h"
#include "host/runtime/events.h"

namespace host {

class InterfaceWatch {
 public:
  // So many changes of one moment are told one by one; the last one says how many more there were.
  static constexpr size_t kMost = 64;

  // All must outlive the object; `read_links` tells how the links are.
  InterfaceWatch(const Backend& backend, std::function<LinkStates()> read_links, EventLoop& loop,
                 const Events& events)
      : backend_(backend), read_links_(std::move(read_links)), loop_(loop), events_(events) {}

  // To be called when something may have changed; looks soon.
  void MayHaveChanged();
  // Compares with what was seen last.
  void Look();

 private:
  // What an event tells of an interface: the link and the filters.
  using State = std::pair<const char*, const char*>;

  const Backend& backend_;
  const std::function<LinkStates()> read_links_;
  EventLoop& loop_;
  const Events& events_;
  bool first_ = true;
  std::map<std::string, State> seen_;
  std::unique_ptr<Watch> timer_;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_INTERFACE_WATCH_H_
