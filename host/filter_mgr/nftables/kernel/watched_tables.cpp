#include "host/filter_mgr/nftables/kernel/watched_tables.h"

#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/filter_mgr/linux/table_event.h"

namespace host {
namespace {

// Whether two readings of a chain are of the same rules. One that is not understood is the same as
// long as its handle is.
bool SameRules(const HeldChain& a, const HeldChain& b) {
  const bool linked_alike = a.link && b.link ? SameRule(*a.link->rule, *b.link->rule)
                                             : a.link.has_value() == b.link.has_value();
  return linked_alike &&
         std::equal(a.rules.begin(), a.rules.end(), b.rules.begin(), b.rules.end(),
                    [](const HeldRule& x, const HeldRule& y) {
                      return SameRule(*x.rule, *y.rule) ||
                             (x.rule->foreign && y.rule->foreign && x.handle == y.handle);
                    });
}

// Takes over what the kernel's counters do not have, for chunks that are as they were.
void CarryOn(const HeldTable& before, HeldTable* now) {
  for (const GroupSlot slot : kSlots) {
    for (auto& [number, chunk] : now->groups[slot].chunks) {
      const auto it = before.groups[slot].chunks.find(number);
      if (it == before.groups[slot].chunks.end() || !SameRules(it->second, chunk)) continue;
      for (size_t i = 0; i < chunk.rules.size(); ++i) {
        chunk.rules[i].carried = it->second.rules[i].carried;
      }
    }
  }
}

}  // namespace

int WatchedTables::Open(const NetlinkOpener& open, bool owned) {
  owned_ = owned;
  int error = 0;
  commands_ = open({NETLINK_NETFILTER, 0, 0}, &error);
  if (commands_ == nullptr) return error;
  // From before the first reading, so that no change is missed.
  events_ = open({NETLINK_NETFILTER, NFNLGRP_NFTABLES, commands_->port_id()}, &error);
  if (events_ == nullptr) return error;
  reader_.emplace(commands_.get());
  error = links_.Open(open);
  return error == 0 ? reader_->ReadTables(&held_) : error;
}

void WatchedTables::ReadEvents() {
  std::vector<char> buffer(1 << 16);
  for (;;) {
    const ssize_t size = events_->Receive(buffer.data(), buffer.size(), /*wait=*/false);
    if (size < 0 && size != -EAGAIN && size != -EINTR) all_stale_ = true;
    if (size == -ENOBUFS || size == -EINTR) continue;
    if (size < 0) return;
    auto remaining = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
      const TableEvent event = ReadTableEvent(message);
      if (event.family != NFPROTO_NETDEV) continue;
      const auto port = PortOfTable(event.table);
      if (port) ports_[*port].stale = true;
    }
  }
}

bool WatchedTables::AnyStale() const {
  return all_stale_ || std::any_of(ports_.begin(), ports_.end(),
                                   [](const auto& port) { return port.second.stale; });
}

bool WatchedTables::Unsettled() const {
  return AnyStale() || all_suspect_ || !links_.complete() ||
         std::any_of(ports_.begin(), ports_.end(),
                     [](const auto& port) { return port.second.suspect; });
}

bool WatchedTables::IsSuspect(const std::string& port) const {
  const auto it = ports_.find(port);
  return all_suspect_ || (it != ports_.end() && it->second.suspect);
}

bool WatchedTables::IsDoubtful(const std::string& port) const {
  const auto it = ports_.find(port);
  return all_stale_ || IsSuspect(port) || (it != ports_.end() && it->second.stale);
}

void WatchedTables::Settle() {
  all_suspect_ = false;
  for (auto it = ports_.begin(); it != ports_.end();) {
    it->second.suspect = it->second.expected = false;
    const bool plain = !it->second.stale && !it->second.failed && !it->second.reported;
    it = plain ? ports_.erase(it) : std::next(it);
  }
}

void WatchedTables::Doubt(const TableUpdate& update) {
  if (update.empty()) return;
  PortStatus& port = ports_[update.port()];
  port.stale = port.expected = true;
}

int WatchedTables::Refresh() {
  const int failure = reader_->ReadGeneration(&generation_);
  if (failure != 0) return failure;
  if (all_stale_) {
    HeldTables tables;
    const int error = reader_->ReadTables(&tables);
    if (error != 0) return error;
    for (const auto& [port, table] : held_) {
      const auto now = tables.find(port);
      if (now != tables.end()) CarryOn(table, &now->second);
    }
    held_ = std::move(tables);
    all_stale_ = false;
    all_suspect_ = true;
    for (auto& [port, status] : ports_) status.stale = false;
  }
  for (auto& [port, status] : ports_) {
    if (!status.stale) continue;
    std::optional<HeldTable> table;
    const int error = reader_->ReadTable(port, &table);
    if (error != 0) return error;
    if (table) {
      const auto before = held_.find(port);
      if (before != held_.end()) CarryOn(before->second, &*table);
      held_[port] = std::move(*table);
    } else {
      held_.erase(port);
    }
    status.stale = false;
    status.suspect = true;
  }
  return 0;
}

int WatchedTables::ReadHandles(const TableUpdate& update) {
  for (const ChainRef& ref : update.ChainsToRead()) {
    HeldTable& table = held_.at(update.port());
    HeldGroup& group = table.groups[ref.slot];
    HeldChain& known = ref.chunk ? group.chunks.at(*ref.chunk) : group.base;
    HeldChain now{known.guard, {}};
    const GroupSlot as = ref.chunk ? table.VerdictsOf(ref.slot) : ref.slot;
    const int error = reader_->ReadChain(update.port(), as, ref.Name(), &now);
    if (error != 0) return error;
    if (!SameRules(known, now)) {
      ports_[update.port()].stale = true;
      return -ESTALE;
    }
    for (size_t i = 0; i < now.rules.size(); ++i) {
      known.rules[i].handle = now.rules[i].handle;
      known.rules[i].hits = now.rules[i].hits;
    }
    if (known.link) known.link->handle = now.link->handle;
  }
  return 0;
}

BatchResult WatchedTables::Send(NftBatch* batch) {
  constexpr int kSends = 16;
  constexpr size_t kLarge = 500;  // messages
  BatchResult result;
  for (int i = 0; i < kSends; ++i) {
    uint32_t generation = 0;
    result = {};
    result.error = reader_->ReadGeneration(&generation);
    if (result.error != 0) return result;
    ReadEvents();
    if (AnyStale()) {
      result.error = -ESTALE;
      return result;
    }
    const bool alone = generation == std::exchange(generation_, generation);
    result = batch->size() < kLarge || !alone ? batch->Commit(*commands_, generation)
                                              : SendUnheard(batch, generation);
    if (result.error != -ERESTART) return result;
  }
  return result;
}

// As long as anyone listens, the kernel writes an announcement of every rule that it takes, even if
// it then drops them all: a third of the cost of a large update. So nobody listens meanwhile, as
// long as no one else is at work. Whether anyone came in between shows in the generation; nobody
// can have changed tables that are this process's own.
BatchResult WatchedTables::SendUnheard(NftBatch* batch, uint32_t generation) {
  events_->SetMember(NFNLGRP_NFTABLES, false);
  BatchResult result = batch->Commit(*commands_, generation);
  uint32_t now = 0;
  const uint32_t expected = result.error == 0 ? generation + 1 : generation;
  if (events_->SetMember(NFNLGRP_NFTABLES, true) != 0 || reader_->ReadGeneration(&now) != 0 ||
      (now != expected && !owned_)) {
    all_stale_ = true;
  }
  return result;
}

}  // namespace host
