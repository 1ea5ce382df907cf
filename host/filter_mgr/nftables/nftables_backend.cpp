#include "host/filter_mgr/nftables/nftables_backend.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "host/filter_mgr/entry_text.h"
#include "host/filter_mgr/nftables/kernel/hits.h"
#include "host/runtime/middleware.h"

namespace host {
namespace {

// When more ports than this are put right at once, one notification is about all of them.
constexpr size_t kMostTold = 64;

using FiltersCommon::FiltersGroup;

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

// Whether the groups have the same entries in the same places. Content is shared between a group
// and the next where nobody changed it, so that this is mostly told by identity.
bool SameEntries(const FiltersGroup& a, const FiltersGroup& b) {
  const auto& ours = a.getEntriesRef();
  const auto& others = b.getEntriesRef();
  return &ours == &others ||
         (ours.size() == others.size() &&
          std::equal(ours.begin(), ours.end(), others.begin(), [](const auto& x, const auto& y) {
            return x.first == y.first && x.second.getPriority() == y.second.getPriority() &&
                   x.second.contentIdentity() == y.second.contentIdentity();
          }));
}

// Whether what failed may succeed later without anyone changing the groups.
bool IsPassing(const BatchResult& result) {
  switch (-result.error) {
    case ERESTART:
    case ESTALE:
    case EAGAIN:
    case EINTR:
    case EBUSY:
    case ENOBUFS:
    case ENOMEM:
      return true;
    case EMSGSIZE:
    case EPERM:
    case EACCES:
      return false;
    default:
      return !result.refused;  // no answer, or a socket that fails
  }
}

FilterMgrError CodeOf(const BatchResult& result) {
  if (result.error == -EPERM || result.error == -EACCES) return FILTER_MGR_ERR_PRIVILEGE;
  return result.refused ? FILTER_MGR_ERR_KERNEL : FILTER_MGR_ERR_NO_ANSWER;
}

// Whether the table holds anything that filters.
bool HasRules(const HeldTable& table) {
  return std::any_of(table.groups.begin(), table.groups.end(),
                     [](const HeldGroup& group) { return !group.order.empty(); });
}

}  // namespace

std::unique_ptr<NftablesBackend> NftablesBackend::Open(const NftablesOptions& options,
                                                       std::string* reason) {
  std::unique_ptr<NftablesBackend> backend(new NftablesBackend(options));
  const int error = backend->kernel_.Open(options.open, options.features.ownership);
  if (error == 0) {
    const HeldTables& held = backend->kernel_.held();
    backend->left_ = static_cast<size_t>(std::count_if(
        held.begin(), held.end(), [](const auto& table) { return HasRules(table.second); }));
    return backend;
  }
  if (error == -EPERM || error == -EACCES) {
    *reason = "the process may not program the kernel's packet filter: it needs CAP_NET_ADMIN";
  } else {
    *reason = std::string("the kernel's packet filter cannot be used: ") + strerror(-error);
  }
  return nullptr;
}

FilterMgrError NftablesBackend::Prepare(const SentGroup& group) {
  const GroupSlot slot = SlotOf(group->getType());
  prepared_[slot].reset();
  const std::optional<CompiledGroup>& before = pending_[slot] ? pending_[slot] : groups_[slot];
  if (!pending_[slot] && before && SameEntries(group.content(), before->source.content())) {
    return FILTER_MGR_OK;
  }
  CompileError error;
  prepared_[slot] = CompileGroup(group, before ? &*before : nullptr,
                                 {options_.names, options_.features.set_pcp}, &error);
  if (prepared_[slot]) return FILTER_MGR_OK;
  Log(LogLevel::kError, "filter group %d (%s) is refused: %s cannot be enforced: %s",
      group->getId(), SlotName(slot), group.NameOf(error.entry).c_str(), error.reason.c_str());
  return FILTER_MGR_ERR_UNSUPPORTED;
}

void NftablesBackend::Discard() {
  for (auto& group : prepared_) group.reset();
}

Standing NftablesBackend::Publish() {
  Targets targets{};
  for (const GroupSlot slot : kSlots) {
    const auto& group = prepared_[slot] ? prepared_[slot] : pending_[slot];
    if (group) targets[slot] = &*group;
  }
  const size_t before = writes_;
  const BatchResult result = Program(targets);
  if (result.error == 0) {
    Log(LogLevel::kDebug, "filter groups in force, %zu changes written", writes_ - before);
    Idle();  // in case nobody else has called it
    Enforce(&pending_);
    Enforce(&prepared_);
    return standing_ = StandingInForce();
  }
  const std::string what = Describe(result, targets);
  if (!IsPassing(result)) {
    Log(LogLevel::kError, "%s", what.c_str());
    Discard();
    return {Standing::kRefused, CodeOf(result), FilterMgrErrorText(CodeOf(result))};
  }
  Log(LogLevel::kWarning, "%s; it is tried again", what.c_str());
  for (const GroupSlot slot : kSlots) {
    if (prepared_[slot]) pending_[slot] = std::exchange(prepared_[slot], std::nullopt);
  }
  return standing_ = {Standing::kPending, FILTER_MGR_OK, what};
}

void NftablesBackend::Enforce(Groups* groups) {
  for (const GroupSlot slot : kSlots) {
    auto& group = (*groups)[slot];
    if (!group) continue;
    if (groups_[slot]) retired_.push_back(std::move(*groups_[slot]));
    groups_[slot] = std::exchange(group, std::nullopt);
  }
}

Standing NftablesBackend::StandingInForce() const {
  for (const auto& [port, status] : kernel_.ports()) {
    if (!status.failed) continue;
    return {Standing::kPartial, FILTER_MGR_OK,
            "port " + port + " is not filtered as it should be: the packet filter's table " +
                TableName(port) + " is another process's"};
  }
  return {};
}

bool NftablesBackend::Pending() const {
  const auto& ports = kernel_.ports();
  return kernel_.Unsettled() || pending_[kL2] || pending_[kL3] ||
         std::any_of(ports.begin(), ports.end(),
                     [](const auto& port) { return port.second.failed; });
}

bool NftablesBackend::Poll() {
  Listen();
  if (!Pending()) return true;
  for (auto& [port, status] : kernel_.ports()) status.stale = status.stale || status.failed;
  Targets targets{};
  for (const GroupSlot slot : kSlots) {
    if (pending_[slot]) targets[slot] = &*pending_[slot];
  }
  const bool waiting = pending_[kL2] || pending_[kL3];
  const BatchResult result = Program(targets);
  if (result.error == 0) {
    if (waiting) Log(LogLevel::kInfo, "the filter groups that had to wait are in force");
    trouble_.clear();
    Enforce(&pending_);
    if (waiting || standing_.state == Standing::kPartial) standing_ = StandingInForce();
    return !Pending();
  }
  const std::string what = Describe(result, targets);
  if (waiting && !IsPassing(result)) {
    Log(LogLevel::kError, "%s", what.c_str());
    for (auto& group : pending_) group.reset();
    standing_ = {Standing::kRefused, CodeOf(result), what};
    return !Pending();
  }
  if (what != trouble_) Log(LogLevel::kError, "%s; it is tried again", what.c_str());
  trouble_ = what;
  for (const auto& [port, state] : Ports()) {
    if (kernel_.IsDoubtful(port)) kernel_.ports()[port].failed = true;
  }
  return false;
}

BatchResult NftablesBackend::Program(const Targets& targets) {
  constexpr int kAttempts = 8;
  BatchResult result;
  bool again = true;
  for (int i = 0; i < kAttempts && again; ++i) {
    again = false;
    result = TryProgram(targets, &again);
  }
  return result;
}

BatchResult NftablesBackend::TryProgram(const Targets& targets, bool* again) {
  Listen();
  BatchResult result;
  result.error = kernel_.Refresh();
  if (result.error != 0) return result;

  const std::vector<std::string> damaged = Damaged();
  const std::set<std::string> ports = PortsOf(targets);  // outlives the updates
  std::vector<TableUpdate> updates;
  for (const std::string& port : ports) {
    if (IsForeign(port, targets)) continue;
    const auto held = kernel_.held().find(port);
    TableUpdate update(port, held == kernel_.held().end() ? nullptr : &held->second,
                       DesiredOf(port, targets));
    result.error = kernel_.ReadHandles(update);
    *again = result.error == -ESTALE;
    if (result.error != 0) return result;
    updates.push_back(std::move(update));
  }

  NftBatch batch;
  for (const TableUpdate& update : updates) update.Encode(&batch);
  if (batch.size() != 0) result = kernel_.Send(&batch);
  if (result.error == 0) {
    Note(updates, result, batch.size(), damaged);
    return result;
  }
  *again = result.error == -ESTALE;
  // An interface went, and with it what was planned for it; or a table has got an owner.
  const bool gone = result.error == -ENOENT;
  if (result.error == -EPERM && !result.port.empty()) {
    PortStatus& port = kernel_.ports()[result.port];
    *again = !std::exchange(port.stale, true) && !port.suspect;
  }
  if (result.unknown || gone) {
    // The next attempt finds out what the kernel made of this one.
    for (const TableUpdate& update : updates) kernel_.Doubt(update);
    *again = true;
  }
  return result;
}

void NftablesBackend::Note(const std::vector<TableUpdate>& updates, const BatchResult& result,
                           size_t messages, const std::vector<std::string>& damaged) {
  for (const TableUpdate& update : updates) {
    update.Commit(result, kernel_.mutable_held());
    const auto port = kernel_.ports().find(update.port());
    if (port != kernel_.ports().end()) port->second.failed = false;
  }
  kernel_.Settle();
  writes_ += messages;
  for (const std::string& port : damaged) {
    const LogFields fields({{"INTERFACE", port}});
    Log(LogLevel::kWarning, "the packet filter of port %s was not as it should be; put right",
        port.c_str());
    if (damaged.size() <= kMostTold) {
      Tell({port, "the packet filter was not as it should be", true});
    }
  }
  if (damaged.size() > kMostTold) {
    Tell({"",
          "the packet filter of " + std::to_string(damaged.size()) +
              " ports was not as it should be",
          true});
  }
}

void NftablesBackend::Listen() {
  for (const std::string& name : kernel_.ReadLinks()) {
    const bool ours = Ports().count(name) != 0 || kernel_.held().count(name) != 0;
    if (!ours) continue;
    const LogFields fields({{"INTERFACE", name}});
    Log(LogLevel::kInfo, "interface %s %s", name.c_str(),
        kernel_.HasLink(name) ? "appeared" : "vanished");
    if (options_.features.hooks_by_name) continue;
    PortStatus& status = kernel_.ports()[name];
    status.stale = status.expected = true;
  }
  kernel_.ReadEvents();
}

std::vector<std::string> NftablesBackend::Damaged() const {
  std::vector<std::string> damaged;
  for (const std::string& port : PortsOf({})) {
    const auto status = kernel_.ports().find(port);
    if ((status != kernel_.ports().end() && status->second.expected) || IsForeign(port)) continue;
    const auto held = kernel_.held().find(port);
    const TableUpdate repair(port, held == kernel_.held().end() ? nullptr : &held->second,
                             DesiredOf(port, {}));
    if (!repair.empty()) damaged.push_back(port);
  }
  return damaged;
}

bool NftablesBackend::IsForeign(const std::string& port) const {
  const auto held = kernel_.held().find(port);
  return held != kernel_.held().end() && held->second.of_another;
}

bool NftablesBackend::IsForeign(const std::string& port, const Targets& targets) {
  if (!IsForeign(port)) return false;
  PortStatus& status = kernel_.ports()[port];
  if (!std::exchange(status.reported, true)) {
    const LogFields fields({{"INTERFACE", port}});
    Log(LogLevel::kWarning, "the packet filter's table %s is another process's; left alone",
        TableName(port).c_str());
    Tell({port, "the packet filter's table " + TableName(port) + " is another process's", false});
  }
  status.failed = Names(targets, port) || Names(InForce(), port);
  return true;
}

bool NftablesBackend::Names(const Targets& targets, const std::string& port) const {
  return std::any_of(targets.begin(), targets.end(), [&port](const CompiledGroup* group) {
    return group != nullptr && group->ports.count(port) != 0;
  });
}

NftablesBackend::Targets NftablesBackend::InForce() const {
  Targets targets{};
  for (const GroupSlot slot : kSlots) {
    if (groups_[slot]) targets[slot] = &*groups_[slot];
  }
  return targets;
}

bool NftablesBackend::CanProgram(const std::string& port) const {
  return options_.features.hooks_by_name ? IsInterfaceName(port) : kernel_.HasLink(port);
}

// The ports that have to be looked at: those that are suspect, and all that an update may concern.
std::set<std::string> NftablesBackend::PortsOf(const Targets& targets) const {
  std::set<std::string> ports;
  for (const auto& [port, status] : kernel_.ports()) {
    if (status.suspect) ports.insert(port);
  }
  const auto add = [&ports](const auto& by_port) {
    for (const auto& [port, value] : by_port) ports.insert(port);
  };
  for (const CompiledGroup* group : targets) {
    if (group != nullptr) add(group->ports);
  }
  if (targets != Targets{} || kernel_.all_suspect()) add(kernel_.held());
  for (const CompiledGroup* group : InForce()) {
    if (group != nullptr && kernel_.all_suspect()) add(group->ports);
  }
  return ports;
}

DesiredTable NftablesBackend::DesiredOf(const std::string& port, const Targets& targets) const {
  DesiredTable desired;
  if (options_.features.ownership) desired.flags = kTableOwner | kTablePersist;
  const Targets in_force = InForce();
  for (const GroupSlot slot : kSlots) {
    const CompiledGroup* group = targets[slot];
    // A group that is not being changed needs no comparing, unless its table was read again.
    if (group == nullptr && kernel_.IsSuspect(port)) group = in_force[slot];
    if (group == nullptr) continue;
    const auto it = group->ports.find(port);
    desired.rules[slot] =
        it == group->ports.end() || !CanProgram(port) ? &NoRules() : &it->second.rules;
  }
  return desired;
}

std::string NftablesBackend::Describe(const BatchResult& result, const Targets& targets) const {
  const bool both = targets[kL2] != nullptr && targets[kL3] != nullptr;
  std::string what = both ? "the filter groups" : "the filter";
  for (const GroupSlot slot : kSlots) {
    const CompiledGroup* group = targets[slot];
    if (group == nullptr || (both && (result.port.empty() || result.slot != slot))) continue;
    what = "filter group " + std::to_string(group->source->getId()) + " (" + SlotName(slot) + ")";
  }
  std::string where;
  if (!result.port.empty()) where = " on port " + result.port;
  const CompiledGroup* group =
      targets[result.slot] != nullptr ? targets[result.slot] : InForce()[result.slot];
  if (result.rule >= 0 && group != nullptr) {
    const unsigned short id = EntryOfRule(group->ports.at(result.port), result.rule).id;
    where += " at " + group->source.NameOf(id) + " (" +
             EntryText(group->source->getEntriesRef().at(id)) + ")";
  }
  const std::string reason = strerror(-result.error);
  if (result.error == -EPERM || result.error == -EACCES) {
    return what + " cannot be programmed" + where + ": the process may not (" + reason + ")";
  }
  if (result.error == -ERESTART || result.error == -ESTALE) {
    return what + " could not be programmed: others change the packet filter all the time";
  }
  if (result.refused) return "the kernel refused " + what + where + ": " + reason;
  // A send buffer of any size takes CAP_NET_ADMIN in the initial user namespace.
  const char* const hint =
      result.error == -EMSGSIZE ? " (net.core.wmem_max limits the size of an update here)" : "";
  return what + " could not be sent to the kernel: " + reason + hint;
}

std::map<std::string, PortState> NftablesBackend::Ports() const {
  std::map<std::string, PortState> ports;
  for (const CompiledGroup* group : InForce()) {
    if (group == nullptr) continue;
    for (const auto& [port, rules] : group->ports) {
      const auto status = kernel_.ports().find(port);
      const bool failed = status != kernel_.ports().end() && status->second.failed;
      ports[port] = failed                  ? PortState::kFailed
                    : kernel_.HasLink(port) ? PortState::kEnforced
                                            : PortState::kAbsent;
    }
  }
  return ports;
}

std::optional<SearchCost> NftablesBackend::CostOf(GroupSlot slot) {
  std::optional<SearchCost> worst;
  if (!groups_[slot]) return worst;
  for (const auto& [port, rules] : groups_[slot]->ports) {
    const SearchCost here{port, {}, static_cast<uint32_t>(rules.rules.size())};
    if (!worst || *worst < here) worst = here;
  }
  return worst;
}

std::unique_ptr<HitsReading> NftablesBackend::ReadHits(GroupSlot slot) {
  if (!groups_[slot]) return nullptr;
  return std::make_unique<KernelHits>(&groups_[slot], &kernel_, slot);
}

}  // namespace host
