// Announcements of the packet filter (NFNLGRP_NFTABLES): what they are about.
#ifndef HOST_FILTER_MGR_LINUX_TABLE_EVENT_H_
#define HOST_FILTER_MGR_LINUX_TABLE_EVENT_H_

#include <cstdint>
#include <string>

struct nlmsghdr;

namespace host {

struct TableEvent {
  uint8_t family = 0;  // NFPROTO_...
  std::string table;   // empty: the announcement is about no table
};

// The table in which something was made, changed or removed.
TableEvent ReadTableEvent(const nlmsghdr* message);

}  // namespace host

#endif  // HOST_FILTER_MGR_LINUX_TABLE_EVENT_H_
