#include "host/filter_mgr/linux/link_table.h"

#include <libmnl/libmnl.h>
#include <linux/if_arp.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "host/runtime/middleware.h"

namespace host {

int LinkTable::Open(const NetlinkOpener& open) {
  int error = 0;
  events_ = open({NETLINK_ROUTE, RTNLGRP_LINK, 0}, &error);
  if (events_ != nullptr) requests_ = open({NETLINK_ROUTE, 0, 0}, &error);
  if (error != 0) return error;
  std::set<std::string> ignored;
  return Read(&ignored);
}

int LinkTable::Read(std::set<std::string>* changed) {
  char buffer[256];
  nlmsghdr* request = mnl_nlmsg_put_header(buffer);
  request->nlmsg_type = RTM_GETLINK;
  request->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
  mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg));
  std::set<int> seen;
  int error = -EINTR;
  for (int attempt = 0; attempt < 10 && error == -EINTR; ++attempt) {
    seen.clear();
    error = NetlinkRequest(*requests_, request, [&](const nlmsghdr* message) {
      Take(message, changed);
      seen.insert(static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message))->ifi_index);
      return true;
    });
  }
  if (error != 0) return error;
  std::vector<int> gone;
  for (const auto& [index, link] : link_of_) {
    if (seen.count(index) == 0) gone.push_back(index);
  }
  for (int index : gone) Remove(index, changed);
  return 0;
}

void LinkTable::Take(const nlmsghdr* message, std::set<std::string>* changed) {
  if (message->nlmsg_type != RTM_NEWLINK && message->nlmsg_type != RTM_DELLINK) return;
  const auto* info = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
  // A port of a bridge is announced in the bridge's own family as well; that is not the link.
  if (info->ifi_family != AF_UNSPEC) return;
  if (message->nlmsg_type == RTM_DELLINK) return Remove(info->ifi_index, changed);
  ForEachAttribute(message, sizeof(*info), [&](const nlattr* attribute) {
    if (mnl_attr_get_type(attribute) == IFLA_IFNAME) {
      Set(info->ifi_index, {mnl_attr_get_str(attribute), info->ifi_type}, changed);
    }
  });
}

void LinkTable::Set(int index, const Link& link, std::set<std::string>* changed) {
  const auto it = link_of_.find(index);
  if (it != link_of_.end() && it->second.name == link.name && it->second.type == link.type) return;
  Remove(index, changed);
  link_of_[index] = link;
  index_of_[link.name] = index;
  changed->insert(link.name);
}

void LinkTable::Remove(int index, std::set<std::string>* changed) {
  const auto it = link_of_.find(index);
  if (it == link_of_.end()) return;
  changed->insert(it->second.name);
  // The name may be another interface's by now.
  const auto by_name = index_of_.find(it->second.name);
  if (by_name != index_of_.end() && by_name->second == index) index_of_.erase(by_name);
  link_of_.erase(it);
}

bool LinkTable::HasEthernet(int index) const {
  const auto it = link_of_.find(index);
  return it == link_of_.end() || it->second.type == ARPHRD_ETHER ||
         it->second.type == ARPHRD_LOOPBACK;
}

std::vector<int> LinkTable::indices() const {
  std::vector<int> indices;
  for (const auto& [index, link] : link_of_) indices.push_back(index);
  return indices;
}

std::set<std::string> LinkTable::Update() {
  std::set<std::string> changed;
  std::vector<char> buffer(1 << 16);
  for (;;) {
    const ssize_t size = events_->Receive(buffer.data(), buffer.size(), /*wait=*/false);
    if (size < 0 && size != -EAGAIN && size != -EINTR) complete_ = false;
    if (size == -ENOBUFS || size == -EINTR) continue;
    if (size < 0) break;
    auto remaining = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
      Take(message, &changed);
    }
  }
  if (complete_) return changed;
  const int error = Read(&changed);
  complete_ = error == 0;
  if (error != 0) Log(LogLevel::kError, "interfaces cannot be read: %s", strerror(-error));
  return changed;
}

}  // namespace host
