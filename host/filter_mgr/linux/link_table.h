// The network interfaces of the process's network namespace, by name, kept up to date through
// rtnetlink(7).
#ifndef HOST_FILTER_MGR_LINUX_LINK_TABLE_H_
#define HOST_FILTER_MGR_LINUX_LINK_TABLE_H_

#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/filter_mgr/linux/netlink.h"

namespace host {

class LinkTable {
 public:
  // Starts watching, then reads what is there. 0 or a negative errno.
  int Open(const NetlinkOpener& open);

  bool Has(const std::string& name) const { return index_of_.count(name) != 0; }
  // The index of the interface of that name, 0 when there is none.
  int IndexOf(const std::string& name) const {
    const auto it = index_of_.find(name);
    return it == index_of_.end() ? 0 : it->second;
  }
  // Whether its frames have an Ethernet header; true where there is none of this index.
  bool HasEthernet(int index) const;
  std::vector<int> indices() const;
  int fd() const { return events_->fd(); }
  // Takes in what has happened since. Returns the names that appeared, vanished, went over to
  // another interface or to another type of link.
  std::set<std::string> Update();
  // False after announcements got lost, until an Update() has made good for them.
  bool complete() const { return complete_; }

 private:
  struct Link {
    std::string name;
    uint16_t type = 0;  // ARPHRD_...
  };

  // Reads all interfaces anew; what differs is added to `changed`. 0 or a negative errno.
  int Read(std::set<std::string>* changed);
  void Take(const nlmsghdr* message, std::set<std::string>* changed);
  void Set(int index, const Link& link, std::set<std::string>* changed);
  void Remove(int index, std::set<std::string>* changed);

  std::unique_ptr<NetlinkSocket> events_, requests_;
  std::map<int, Link> link_of_;
  std::map<std::string, int> index_of_;
  bool complete_ = true;
};

}  // namespace host

#endif  // HOST_FILTER_MGR_LINUX_LINK_TABLE_H_
