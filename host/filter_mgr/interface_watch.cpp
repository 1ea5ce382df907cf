// Who tells of interfaces: see interface_watch.h.
#include "host/filter_mgr/interface_watch.h"

#include <chrono>
#include <vector>

#include "host/filter_mgr/interface_state.h"

namespace host {
namespace {

constexpr std::chrono::milliseconds kMoment{100};

}  // namespace

void InterfaceWatch::MayHaveChanged() {
  if (timer_ != nullptr) return;
  // The first look is what all changes are seen by; one within its moment would be lost.
  timer_ = loop_.After(first_ ? std::chrono::milliseconds(0) : kMoment, [this] {
    timer_.reset();
    Look();
  });
}

void InterfaceWatch::Look() {
  std::map<std::string, State> now;
  const std::map<std::string, PortState> ports = backend_.Ports();
  if (!ports.empty() || !seen_.empty()) {
    const LinkStates links = read_links_();
    for (const auto& [name, state] : ports) now[name] = {NameOf(links(name)), NameOf(state)};
    for (const auto& [name, state] : seen_) now.emplace(name, State{NameOf(links(name)), nullptr});
  }
  std::vector<InterfaceChanged> changes;
  for (auto it = now.begin(); it != now.end();) {
    const auto before = seen_.find(it->first);
    const auto& [link, filters] = it->second;
    const bool named = filters != nullptr;
    if (before == seen_.end() || before->second != it->second) {
      changes.push_back({it->first, link, named ? filters : "not-enforced"});
    }
    it = named ? std::next(it) : now.erase(it);
  }
  seen_ = std::move(now);
  if (std::exchange(first_, false)) return;
  for (size_t i = 0; i < changes.size() && i < kMost; ++i) {
    if (i + 1 == kMost) changes[i].others = changes.size() - kMost;
    events_.Publish(changes[i]);
  }
}

}  // namespace host
