#include "host/filter_mgr/ebpf/port_hooks.h"

#include <bpf/bpf.h>
#include <bpf/libbpf.h>
#include <fcntl.h>
#include <libmnl/libmnl.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <tuple>

#include "host/filter_mgr/ebpf/tcx.h"
#include "host/runtime/log.h"

namespace host {
namespace {

// As tcx.h, newer than Debian 12's headers.
constexpr uint32_t kBeforeOthers = 1U << 3;  // BPF_F_BEFORE
struct TcxLinkInfo {
  uint32_t type, id, program, padding;
  uint32_t interface;  // 0 once that is gone
  uint32_t attach_type;
};
struct TcxQuery {
  uint32_t interface, attach_type, query_flags, attach_flags;
  uint64_t programs;
  uint32_t count, padding;
  uint64_t program_flags, links, link_flags, revision;
};
constexpr time_t kLookSeconds = 2;

// What the kernel says of a link; false when it does not.
bool ReadLink(int link, TcxLinkInfo* info) {
  uint32_t size = sizeof(*info);
  return bpf_obj_get_info_by_fd(link, info, &size) == 0;
}

// Whether the link is at the ingress of the interface that has this index here: the index that the
// link tells may be one of another network namespace. 0 or a negative errno, -ENODEV when there is
// no such interface.
int AskForLink(int interface, uint32_t link, bool* is_there) {
  uint32_t programs[kMostTcxPrograms], links[kMostTcxPrograms];
  TcxQuery query{};
  query.interface = static_cast<uint32_t>(interface);
  query.attach_type = kTcxIngress;
  query.programs = reinterpret_cast<uintptr_t>(programs);
  query.links = reinterpret_cast<uintptr_t>(links);
  query.count = kMostTcxPrograms;
  if (syscall(__NR_bpf, BPF_PROG_QUERY, &query, sizeof(query)) != 0) return -errno;
  const uint32_t count = std::min(query.count, kMostTcxPrograms);
  *is_there = std::find(links, links + count, link) != links + count;
  return 0;
}

// Whether the process may have one descriptor more, for a link that it keeps, and still some for
// clients: who would else see what is wrong? Any descriptor of its own serves for the question.
bool MayTakeAnother(int any) {
  constexpr int kForOthers = 64;
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return true;
  const Descriptor lowest(fcntl(any, F_DUPFD_CLOEXEC, 0));
  return lowest && static_cast<rlim_t>(lowest.get()) + kForOthers < limit.rlim_cur;
}

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
    if (!link || !ReadLink(link.get(), &info) || info.interface != 0) return true;
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
  int error = 0;
  if (method_ == Method::kClassifier) {
    events_ = open({NETLINK_ROUTE, RTNLGRP_TC, 0}, &error);
    return error;
  }
  timer_ = Descriptor(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC));
  const itimerspec every{{kLookSeconds, 0}, {kLookSeconds, 0}};
  return timer_ && timerfd_settime(timer_.get(), 0, &every, nullptr) == 0 ? 0 : -errno;
}

// The interfaces whose classifiers may have changed.
std::set<int> PortHooks::ConcernedByEvents() {
  std::set<int> concerned;
  std::vector<char> buffer(1 << 15);
  for (;;) {
    const ssize_t size =
        events_ == nullptr ? -EAGAIN : events_->Receive(buffer.data(), buffer.size(), false);
    if (size == -ENOBUFS) {  // some were dropped: whom they concerned is not known
      for (const auto& [interface, program] : attached_) concerned.insert(interface);
      continue;
    }
    if (size < 0) return concerned;
    auto remaining = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
      if (mnl_nlmsg_get_payload_len(message) < sizeof(tcmsg)) continue;
      concerned.insert(static_cast<const tcmsg*>(mnl_nlmsg_get_payload(message))->tcm_ifindex);
    }
  }
}

// Whether the interface is there without the link. The going of an interface is announced.
bool PortHooks::LostLink(int interface) const {
  const auto held = held_.find(interface);
  bool is_there = false;
  return held != held_.end() && AskForLink(interface, held->second.id, &is_there) == 0 && !is_there;
}

// Pins the interface's link again where somebody has removed the pin: it would go with the process.
void PortHooks::KeepPinned(int interface) {
  const auto held = held_.find(interface);
  const std::string name = std::to_string(interface);
  if (held == held_.end() || access(links_->PathOf(name).c_str(), F_OK) == 0 || errno != ENOENT) {
    return;
  }
  const int error = links_->Pin(held->second.fd.get(), name);
  if (error == 0) {
    Log(LogLevel::kWarning, "%s was removed by another program; put right",
        links_->PathOf(name).c_str());
  } else if (!pins_reported_) {
    Log(LogLevel::kError,
        "%s was removed by another program and cannot be made: %s; the filter ends with the daemon",
        links_->PathOf(name).c_str(), strerror(-error));
  }
  pins_reported_ = error != 0;
}

std::set<int> PortHooks::Lost() {
  uint64_t times = 0;
  if (timer_) std::ignore = read(timer_.get(), &times, sizeof(times));  // until the next time
  const bool look_at_pins = times != 0;
  const std::set<int> concerned = ConcernedByEvents();
  std::set<int> lost;
  for (auto& [interface, known] : attached_) {
    if (known == 0) continue;
    uint32_t program = 0;
    if (method_ == Method::kLink) {
      if (look_at_pins) KeepPinned(interface);
      if (!LostLink(interface)) continue;
    } else if (concerned.count(interface) == 0 ||
               (QueryClassifier(interface, &program) == 0 && program == known)) {
      continue;
    }
    known = 0;
    lost.insert(interface);
  }
  return lost;
}

int PortHooks::Adopt(const std::vector<int>& interfaces, bool keep_pins) {
  if (method_ == Method::kLink) {
    for (const std::string& name : links_->Pins()) {
      const int error = AdoptLink(name, keep_pins);
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

int PortHooks::AdoptLink(const std::string& name, bool keep_pin) {
  int error = 0;
  Descriptor link = links_->Get(name, &error);
  if (!link) return error;
  TcxLinkInfo info{};
  if (!ReadLink(link.get(), &info)) return -errno;
  const auto interface = static_cast<int>(info.interface);
  // A pin under another name than the link's own is what a crash left of a pinning.
  bool is_ours = interface != 0 && name == std::to_string(interface);
  if (is_ours) {
    error = AskForLink(interface, info.id, &is_ours);
    if (error == -ENODEV) is_ours = false;
  }
  if (!is_ours) return keep_pin ? 0 : links_->Unpin(name);
  attached_[interface] = info.program;
  held_[interface] = {std::move(link), info.id};
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
    const bool is_lost = LostLink(interface);
    if (!is_lost && bpf_link_update(held->second.fd.get(), program, nullptr) == 0) return 0;
    // The interface is gone, and the link's rest with it; its index may be another's by now.
    if (!is_lost && errno != ENOLINK) return -errno;
    const int error = Detach(interface);
    if (error != 0) return error;
  }
  if (!MayTakeAnother(program)) return -EMFILE;
  LIBBPF_OPTS(bpf_link_create_opts, options, .flags = kBeforeOthers);
  Descriptor link(bpf_link_create(program, interface, kTcxIngress, &options));
  TcxLinkInfo info{};
  if (!link || !ReadLink(link.get(), &info)) return -errno;
  const int error = links_->Pin(link.get(), std::to_string(interface));
  if (error == 0) held_[interface] = {std::move(link), info.id};
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
