#include "host/filter_mgr/nftables/nftables_backend.h"

#include <libmnl/libmnl.h>
#include <linux/netfilter.h>
#include <linux/netfilter/nf_tables.h>
#include <linux/netfilter/nfnetlink.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/filter_mgr/entry_text.h"
#include "host/filter_mgr/group_table.h"
#include "host/filter_mgr/nftables/kernel/hits.h"
#include "host/runtime/middleware.h"

namespace host {
namespace {

using FiltersCommon::FiltersGroup;

constexpr std::array<GroupSlot, kGroupSlots> kSlots = {kL2, kL3};
constexpr int kAttempts = 8;

const std::vector<RulePtr>& NoRules() {
  static const std::vector<RulePtr> kNone;
  return kNone;
}

// The entry that a port's rule belongs to.
const PortEntry& EntryOfRule(const PortRules& port, int64_t rule) {
  for (const PortEntry& entry : port.entries) {
    if (rule < entry.rule_count) return entry;
    rule -= entry.rule_count;
  }
  return port.entries.back();
}

// Whether two readings of a chain are of the same rules. One that is not understood is the same as
// long as its handle is.
bool SameRules(const HeldChain& a, const HeldChain& b) {
  return std::equal(a.rules.begin(), a.rules.end(), b.rules.begin(), b.rules.end(),
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

// The table that an announcement of the packet filter is about; empty for none of this family.
std::string TableOf(const nlmsghdr* message) {
  constexpr uint16_t kTableName = 1;  // the same attribute in tables, chains, rules and sets
  static_assert(NFTA_TABLE_NAME == kTableName && NFTA_CHAIN_TABLE == kTableName &&
                NFTA_RULE_TABLE == kTableName && NFTA_SET_TABLE == kTableName &&
                NFTA_SET_ELEM_LIST_TABLE == kTableName);
  if (NFNL_SUBSYS_ID(message->nlmsg_type) != NFNL_SUBSYS_NFTABLES ||
      NFNL_MSG_TYPE(message->nlmsg_type) == NFT_MSG_NEWGEN ||
      static_cast<const nfgenmsg*>(mnl_nlmsg_get_payload(message))->nfgen_family !=
          NFPROTO_NETDEV) {
    return {};
  }
  std::string name;
  ForEachAttribute(message, sizeof(nfgenmsg), [&name](const nlattr* attribute) {
    if (mnl_attr_get_type(attribute) == kTableName) name = mnl_attr_get_str(attribute);
  });
  return name;
}

}  // namespace

std::unique_ptr<NftablesBackend> NftablesBackend::Open(const NftablesOptions& options,
                                                       std::string* reason) {
  std::unique_ptr<NftablesBackend> backend(new NftablesBackend(options));
  const int error = backend->Connect();
  if (error == 0) {
    const size_t ports = backend->held_.size();
    if (ports != 0) Log(LogLevel::kInfo, "an earlier run has left filters on %zu ports", ports);
    return backend;
  }
  if (error == -EPERM || error == -EACCES) {
    *reason = "the process may not program the kernel's packet filter: it needs CAP_NET_ADMIN";
  } else {
    *reason = std::string("the kernel's packet filter cannot be used: ") + strerror(-error);
  }
  return nullptr;
}

int NftablesBackend::Connect() {
  int error = 0;
  commands_ = options_.open({NETLINK_NETFILTER, 0, 0}, &error);
  if (commands_ == nullptr) return error;
  // From before the first reading, so that no change is missed.
  events_ = options_.open({NETLINK_NETFILTER, NFNLGRP_NFTABLES, commands_->port_id()}, &error);
  if (events_ == nullptr) return error;
  reader_.emplace(commands_.get());
  error = links_.Open(options_.open);
  return error == 0 ? reader_->ReadTables(&held_) : error;
}

size_t NftablesBackend::Left() const {
  return static_cast<size_t>(std::count_if(held_.begin(), held_.end(), [](const auto& held) {
    const auto& groups = held.second.groups;
    return std::any_of(groups.begin(), groups.end(), [](const HeldGroup& group) {
      return !group.chunks.empty() || !group.base.rules.empty();
    });
  }));
}

FilterMgrError NftablesBackend::Apply(const FiltersGroup& group) {
  const GroupSlot slot = SlotOf(group.getType());
  CompileError error;
  auto compiled = CompileGroup(group, groups_[slot] ? &*groups_[slot] : nullptr,
                               {options_.names, options_.features.set_pcp}, &error);
  if (!compiled) {
    Log(LogLevel::kError, "filter group %d (%s) is refused: entry %d cannot be enforced: %s",
        group.getId(), GroupTypeName(group.getType()), error.entry, error.reason.c_str());
    return FILTER_MGR_ERR_UNSUPPORTED;
  }
  Targets targets{};
  targets[slot] = &*compiled;
  const size_t before = writes_;
  const FilterMgrError result = Program(targets);
  if (result != FILTER_MGR_OK) return result;
  Log(LogLevel::kDebug, "filter group %d (%s): %zu entries in force, %zu changes written",
      group.getId(), GroupTypeName(group.getType()), group.getEntriesRef().size(),
      writes_ - before);
  Idle();  // in case nobody else has called it
  ++version_;
  if (groups_[slot]) retired_.push_back(std::move(*groups_[slot]));
  groups_[slot] = std::move(compiled);
  return FILTER_MGR_OK;
}

FilterMgrError NftablesBackend::Program(const Targets& targets) {
  BatchResult result;
  bool again = true;
  for (int i = 0; i < kAttempts && again; ++i) {
    again = false;
    result = TryProgram(targets, &again);
  }
  return result.error == 0 ? FILTER_MGR_OK : Report(result, targets);
}

BatchResult NftablesBackend::TryProgram(const Targets& targets, bool* again) {
  BatchResult result;
  uint32_t generation = 0;
  result.error = reader_->ReadGeneration(&generation);
  if (result.error == 0) result.error = Refresh();
  if (result.error != 0) return result;

  const std::set<std::string> ports = PortsOf(targets);
  const std::vector<std::string> damaged = Damaged();
  std::vector<TableUpdate> updates;
  for (const std::string& port : ports) {
    if (IsStray(port, targets)) {
      // It would only have the whole update refused.
      if (strays_.insert(port).second) {
        Log(LogLevel::kWarning, "the packet filter's table %s is another process's; left alone",
            TableName(port).c_str());
      }
      continue;
    }
    const auto held = held_.find(port);
    TableUpdate update(port, held == held_.end() ? nullptr : &held->second,
                       DesiredOf(port, targets));
    result.error = ReadHandles(update);
    if (result.error == -ESTALE) {
      stale_.insert(port);
      *again = true;
    }
    if (result.error != 0) return result;
    updates.push_back(std::move(update));
  }

  NftBatch batch(generation);
  for (const TableUpdate& update : updates) update.Encode(&batch);
  if (batch.size() != 0) result = Send(&batch, generation);
  if (result.error == 0) {
    if (batch.size() != 0) ++version_;
    for (const TableUpdate& update : updates) update.Commit(result, &held_);
    for (const std::string& port : ports) {
      verified_.erase(port);
      failed_.erase(port);
    }
    expected_.clear();
    writes_ += batch.size();
    for (const std::string& port : damaged) {
      Log(LogLevel::kWarning, "the packet filter of port %s was not as it should be; put right",
          port.c_str());
    }
    return result;
  }
  // Someone else's change came first; or an interface went, and with it what was planned for it.
  *again = result.error == -ERESTART || (result.error == -ENOENT && ReadLinks());
  if (result.unknown || result.error == -ENOENT) {
    // The next attempt finds out what the kernel made of this one.
    for (const TableUpdate& update : updates) {
      if (update.empty()) continue;
      stale_.insert(update.port());
      expected_.insert(update.port());
    }
    *again = true;
  }
  return result;
}

// As long as anyone listens, the kernel writes an announcement of every rule that it takes, even if
// it then drops them all: a third of the cost of a large update. So nobody listens meanwhile;
// whether anyone else came in between shows in the generation.
BatchResult NftablesBackend::Send(NftBatch* batch, uint32_t generation) {
  constexpr size_t kLarge = 500;  // messages
  if (batch->size() < kLarge) return batch->Commit(*commands_);
  events_->SetMember(NFNLGRP_NFTABLES, false);
  BatchResult result = batch->Commit(*commands_);
  uint32_t now = 0;
  const uint32_t expected = result.error == 0 ? generation + 1 : generation;
  if (events_->SetMember(NFNLGRP_NFTABLES, true) != 0 || reader_->ReadGeneration(&now) != 0 ||
      now != expected) {
    all_stale_ = true;
  }
  return result;
}

// Brings `held_` up to date with what others have done.
int NftablesBackend::Refresh() {
  ReadLinks();
  ReadEvents();
  if (all_stale_ || !stale_.empty()) ++version_;
  if (all_stale_) {
    HeldTables tables;
    const int error = reader_->ReadTables(&tables);
    if (error != 0) return error;
    for (const auto& [port, table] : held_) {
      verified_.insert(port);
      const auto now = tables.find(port);
      if (now != tables.end()) CarryOn(table, &now->second);
    }
    held_ = std::move(tables);
    for (const auto& [port, table] : held_) verified_.insert(port);
    for (const GroupSlot slot : kSlots) {
      if (!groups_[slot]) continue;
      for (const auto& [port, rules] : groups_[slot]->ports) verified_.insert(port);
    }
    all_stale_ = false;
    stale_.clear();
  }
  while (!stale_.empty()) {
    const std::string port = *stale_.begin();
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
    verified_.insert(port);
    stale_.erase(port);
  }
  return 0;
}

void NftablesBackend::ReadEvents() {
  std::vector<char> buffer(1 << 16);
  for (;;) {
    const ssize_t size = events_->Receive(buffer.data(), buffer.size(), /*wait=*/false);
    if (size < 0 && size != -EAGAIN && size != -EINTR) all_stale_ = true;
    if (size == -ENOBUFS || size == -EINTR) continue;
    if (size < 0) return;
    auto remaining = static_cast<int>(size);
    const auto* message = reinterpret_cast<const nlmsghdr*>(buffer.data());
    for (; mnl_nlmsg_ok(message, remaining); message = mnl_nlmsg_next(message, &remaining)) {
      const auto port = PortOfTable(TableOf(message));
      if (port) stale_.insert(*port);
    }
  }
}

bool NftablesBackend::ReadLinks() {
  const std::set<std::string> changed = links_.Update();
  for (const std::string& name : changed) {
    const bool ours = Ports().count(name) != 0 || held_.count(name) != 0;
    if (!ours) continue;
    Log(LogLevel::kInfo, "interface %s %s", name.c_str(),
        links_.Has(name) ? "appeared" : "vanished");
    if (options_.features.hooks_by_name) continue;
    stale_.insert(name);
    expected_.insert(name);
  }
  return !changed.empty();
}

std::vector<std::string> NftablesBackend::Damaged() const {
  std::vector<std::string> damaged;
  for (const std::string& port : verified_) {
    if (expected_.count(port) != 0 || IsStray(port, {})) continue;
    const auto held = held_.find(port);
    const TableUpdate repair(port, held == held_.end() ? nullptr : &held->second,
                             DesiredOf(port, {}));
    if (!repair.empty()) damaged.push_back(port);
  }
  return damaged;
}

bool NftablesBackend::IsStray(const std::string& port, const Targets& targets) const {
  const auto held = held_.find(port);
  if (held == held_.end() || !held->second.of_another) return false;
  return std::none_of(kSlots.begin(), kSlots.end(), [&](GroupSlot slot) {
    const CompiledGroup* const groups[] = {targets[slot], SettledGroup(slot)};
    return std::any_of(std::begin(groups), std::end(groups), [&port](const CompiledGroup* group) {
      return group != nullptr && group->ports.count(port) != 0;
    });
  });
}

const CompiledGroup* NftablesBackend::SettledGroup(GroupSlot slot) const {
  return groups_[slot] ? &*groups_[slot] : nullptr;
}

bool NftablesBackend::CanProgram(const std::string& port) const {
  return options_.features.hooks_by_name ? IsInterfaceName(port) : links_.Has(port);
}

std::set<std::string> NftablesBackend::PortsOf(const Targets& targets) const {
  std::set<std::string> ports = verified_;
  for (const CompiledGroup* group : targets) {
    if (group == nullptr) continue;
    for (const auto& [port, rules] : group->ports) ports.insert(port);
    for (const auto& [port, table] : held_) ports.insert(port);
  }
  return ports;
}

DesiredTable NftablesBackend::DesiredOf(const std::string& port, const Targets& targets) const {
  DesiredTable desired;
  if (options_.features.ownership) desired.flags = kTableOwner | kTablePersist;
  const bool whole = verified_.count(port) != 0;
  for (const GroupSlot slot : kSlots) {
    const CompiledGroup* group = targets[slot];
    // A group that is not being changed needs no comparing, unless its table was read again.
    if (group == nullptr && whole) group = SettledGroup(slot);
    if (group == nullptr) continue;
    const auto it = group->ports.find(port);
    desired.rules[slot] =
        it == group->ports.end() || !CanProgram(port) ? &NoRules() : &it->second.rules;
  }
  return desired;
}

int NftablesBackend::ReadHandles(const TableUpdate& update) {
  for (const ChainRef& ref : update.ChainsToRead()) {
    HeldGroup& group = held_.at(update.port()).groups[ref.slot];
    HeldChain& known = ref.chunk ? group.chunks.at(*ref.chunk) : group.base;
    HeldChain now{known.guard, {}};
    const int error = reader_->ReadChain(update.port(), ref.slot, ref.Name(), &now);
    if (error != 0) return error;
    if (!SameRules(known, now)) return -ESTALE;
    for (size_t i = 0; i < now.rules.size(); ++i) {
      known.rules[i].handle = now.rules[i].handle;
      known.rules[i].hits = now.rules[i].hits;
    }
  }
  return 0;
}

FilterMgrError NftablesBackend::Report(const BatchResult& result, const Targets& targets) const {
  std::string what = "the filter";
  for (const CompiledGroup* group : targets) {
    if (group == nullptr) continue;
    what = "filter group " + std::to_string(group->source.getId()) + " (" +
           GroupTypeName(group->source.getType()) + ")";
  }
  std::string where;
  if (!result.port.empty()) where = " on port " + result.port;
  const CompiledGroup* group =
      targets[result.slot] != nullptr ? targets[result.slot] : SettledGroup(result.slot);
  if (result.rule >= 0 && group != nullptr) {
    const unsigned short id = EntryOfRule(group->ports.at(result.port), result.rule).id;
    where += " at entry " + std::to_string(id) + " (" +
             EntryText(group->source.getEntriesRef().at(id)) + ")";
  }
  const char* const reason = strerror(-result.error);
  if (result.error == -EPERM || result.error == -EACCES) {
    Log(LogLevel::kError, "%s cannot be programmed%s: the process may not (%s)", what.c_str(),
        where.c_str(), reason);
    return FILTER_MGR_ERR_PRIVILEGE;
  }
  if (result.refused) {
    Log(LogLevel::kError, "the kernel refused %s%s: %s", what.c_str(), where.c_str(), reason);
    return FILTER_MGR_ERR_KERNEL;
  }
  // A send buffer of any size takes CAP_NET_ADMIN in the initial user namespace.
  const char* const hint =
      result.error == -EMSGSIZE ? " (net.core.wmem_max limits the size of an update here)" : "";
  Log(LogLevel::kError, "%s could not be sent to the kernel: %s%s", what.c_str(), reason, hint);
  return FILTER_MGR_ERR_NETLINK;
}

bool NftablesBackend::Pending() const {
  return all_stale_ || !stale_.empty() || !verified_.empty() || !links_.complete();
}

bool NftablesBackend::Poll() {
  ReadLinks();
  ReadEvents();
  if (!Pending()) return true;
  if (Program({}) == FILTER_MGR_OK) return !Pending();
  failed_.insert(stale_.begin(), stale_.end());
  failed_.insert(verified_.begin(), verified_.end());
  if (all_stale_) {
    for (const auto& [port, state] : Ports()) failed_.insert(port);
  }
  return false;
}

std::map<std::string, PortState> NftablesBackend::Ports() const {
  std::map<std::string, PortState> ports;
  for (const GroupSlot slot : kSlots) {
    if (!groups_[slot]) continue;
    for (const auto& [port, rules] : groups_[slot]->ports) {
      ports[port] = failed_.count(port) != 0 ? PortState::kFailed
                    : links_.Has(port)       ? PortState::kEnforced
                                             : PortState::kAbsent;
    }
  }
  return ports;
}

std::unique_ptr<HitsReading> NftablesBackend::ReadHits(const FiltersGroup& group) {
  const GroupSlot slot = SlotOf(group.getType());
  if (!groups_[slot]) return nullptr;
  return std::make_unique<KernelHits>(*groups_[slot], held_, slot, &version_, &*reader_);
}

}  // namespace host
