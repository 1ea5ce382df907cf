#include "host/filter_mgr/ebpf/port_hooks.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <string>

namespace host {
namespace {

// Newer than Debian 12's headers (linux/bpf.h of 6.6).
constexpr auto kTcxIngress = static_cast<bpf_attach_type>(46);
constexpr uint32_t kBeforeOthers = 1U << 3;
struct TcxLinkInfo {
  uint32_t type, id, program, padding;
  uint32_t interface;  // 0 once that is gone
  uint32_t attach_type;
};

// A classifier's place: ahead of what others attach without asking for a priority.
constexpr uint32_t kHandle = 0xac1, kPriority = 1;

bpf_tc_hook HookOf(int interface) {
  bpf_tc_hook hook{};
  hook.sz = sizeof(hook);
  hook.ifindex = interface;
  hook.attach_point = BPF_TC_INGRESS;
  return hook;
}

bpf_tc_opts PlaceOfFilter() {
  bpf_tc_opts place{};
  place.sz = sizeof(place);
  place.handle = kHandle;
  place.priority = kPriority;
  return place;
}

// The program in our place among an interface's classifiers; 0 or a negative errno.
int QueryClassifier(int interface, uint32_t* program) {
  const bpf_tc_hook hook = HookOf(interface);
  bpf_tc_opts place = PlaceOfFilter();
  const int error = bpf_tc_query(&hook, &place);
  *program = place.prog_id;
  return error;
}

int AttachClassifier(int interface, int program) {
  bpf_tc_hook hook = HookOf(interface);
  const int made = bpf_tc_hook_create(&hook);
  if (made != 0 && made != -EEXIST) return made;
  bpf_tc_opts place = PlaceOfFilter();
  place.prog_fd = program;
  place.flags = BPF_TC_F_REPLACE;
  return bpf_tc_attach(&hook, &place);
}

int DetachClassifier(int interface) {
  const bpf_tc_hook hook = HookOf(interface);
  const bpf_tc_opts place = PlaceOfFilter();
  const int error = bpf_tc_detach(&hook, &place);
  const bool gone = error == -ENOENT || error == -ENODEV || error == -EINVAL;
  return gone ? 0 : error;
}

}  // namespace

uint32_t ProgramId(int program) {
  bpf_prog_info info{};
  uint32_t size = sizeof(info);
  return bpf_obj_get_info_by_fd(program, &info, &size) == 0 ? info.id : 0;
}

bool AnyLinkAlive(const PinDirectory& links) {
  for (const std::string& name : links.Pins()) {
    int error = 0;
    const Descriptor link = links.Get(name, &error);
    TcxLinkInfo info{};
    uint32_t size = sizeof(info);
    const bool known = link && bpf_obj_get_info_by_fd(link.get(), &info, &size) == 0;
    if (!known || info.interface != 0) return true;
  }
  return false;
}

PortHooks::PortHooks(const PinDirectory* links, Method method) : links_(links), method_(method) {
  // It writes to the standard error what the callers here take as an answer.
  libbpf_set_print(nullptr);
}

PortHooks::Method PortHooks::Probe(int program) {
  LIBBPF_OPTS(bpf_link_create_opts, options, .flags = kBeforeOthers);
  const Descriptor link(bpf_link_create(program, INT_MAX, kTcxIngress, &options));
  return errno == ENODEV ? Method::kLink : Method::kClassifier;
}

int PortHooks::Watch(const NetlinkOpener& open) {
  if (method_ == Method::kLink) return 0;
  int error = 0;
  events_ = open({NETLINK_ROUTE, RTNLGRP_TC, 0}, &error);
  return error;
}

std::set<int> PortHooks::Lost() {
  std::set<int> concerned, lost;
  std::vector<char> buffer(1 << 15);
  for (;;) {
    const ssize_t size =
        events_ == nullptr ? -EAGAIN : events_->Receive(buffer.data(), buffer.size(), false);
    if (size == -ENOBUFS) {  // some were dropped: whom they concerned is not known
      for (const auto& [interface, program] : attached_) concerned.insert(interface);
      continue;
    }
    if (size < 0) break;
    auto remaining = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
      if (mnl_nlmsg_get_payload_len(message) < sizeof(tcmsg)) continue;
      concerned.insert(static_cast<const tcmsg*>(mnl_nlmsg_get_payload(message))->tcm_ifindex);
    }
  }
  for (const int interface : concerned) {
    const auto known = attached_.find(interface);
    uint32_t program = 0;
    if (known == attached_.end() || known->second == 0) continue;
    if (QueryClassifier(interface, &program) == 0 && program == known->second) continue;
    known->second = 0;
    lost.insert(interface);
  }
  return lost;
}

int PortHooks::Adopt(const std::vector<int>& interfaces) {
  if (method_ == Method::kLink) {
    for (const std::string& name : links_->Pins()) {
      const int error = AdoptLink(name);
      if (error != 0) return error;
    }
    return 0;
  }
  for (int interface : interfaces) {
    uint32_t program = 0;
    if (QueryClassifier(interface, &program) == 0) attached_[interface] = program;
  }
  return 0;
}

int PortHooks::AdoptLink(const std::string& name) {
  int error = 0;
  Descriptor link = links_->Get(name, &error);
  if (!link) return error;
  TcxLinkInfo info{};
  uint32_t size = sizeof(info);
  if (bpf_obj_get_info_by_fd(link.get(), &info, &size) != 0) return -errno;
  // A pin under another name than the link's own is what a crash left of a pinning.
  if (info.interface == 0 || name != std::to_string(info.interface)) return links_->Unpin(name);
  const auto interface = static_cast<int>(info.interface);
  attached_[interface] = info.program;
  held_[interface] = std::move(link);
  return 0;
}

int PortHooks::Attach(int interface, int program) {
  const int error = method_ == Method::kLink ? AttachLink(interface, program)
                                             : AttachClassifier(interface, program);
  if (error == 0) attached_[interface] = ProgramId(program);
  return error;
}

int PortHooks::AttachLink(int interface, int program) {
  const auto held = held_.find(interface);
  if (held != held_.end()) {
    if (bpf_link_update(held->second.get(), program, nullptr) == 0) return 0;
    // The interface is gone, and the link's rest with it; its index may be another's by now.
    if (errno != ENOLINK) return -errno;
    const int error = Detach(interface);
    if (error != 0) return error;
  }
  LIBBPF_OPTS(bpf_link_create_opts, options, .flags = kBeforeOthers);
  Descriptor link(bpf_link_create(program, interface, kTcxIngress, &options));
  if (!link) return -errno;
  const int error = links_->Pin(link.get(), std::to_string(interface));
  if (error == 0) held_[interface] = std::move(link);
  return error;
}

int PortHooks::Detach(int interface) {
  if (method_ == Method::kClassifier) {
    const int error = DetachClassifier(interface);
    if (error == 0) attached_.erase(interface);
    return error;
  }
  const int error = links_->Unpin(std::to_string(interface));
  if (error != 0 && error != -ENOENT) return error;
  held_.erase(interface);
  attached_.erase(interface);
  return 0;
}

}  // namespace host
