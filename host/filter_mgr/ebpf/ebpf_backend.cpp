#include "host/filter_mgr/ebpf/ebpf_backend.h"

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "host/filter_mgr/ebpf/dead_stores.h"
#include "host/filter_mgr/ebpf/self_test.h"
#include "host/filter_mgr/entry_text.h"
#include "host/runtime/log.h"

namespace host {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::FiltersGroup;

// A number for the network namespace that no other one has since the machine has started.
uint64_t NamespaceCookie() {
  constexpr int kNetnsCookie = 71;  // SO_NETNS_COOKIE, newer than some headers
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  uint64_t cookie = 0;
  socklen_t size = sizeof(cookie);
  return getsockopt(socket.get(), SOL_SOCKET, kNetnsCookie, &cookie, &size) == 0 ? cookie : 0;
}

// The numbers of the ports that lists of ports name, each once. Runs of entries share their list.
class PortLists {
 public:
  using NumberOf = std::function<bool(limid_t, uint32_t*)>;

  // `number_of` answers false for a port that is unknown (reported by itself) or has no number.
  explicit PortLists(NumberOf number_of) : number_of_(std::move(number_of)) {}

  const std::vector<uint32_t>& Find(const std::list<limid_t>& list) {
    if (&list == last_) return numbers_;
    last_ = &list;
    numbers_.clear();
    for (const limid_t id : list) {
      const auto [it, is_new] = known_.try_emplace(id);
      if (is_new) {
        uint32_t number = 0;
        if (number_of_(id, &number)) it->second = number;
      }
      if (it->second &&
          std::find(numbers_.begin(), numbers_.end(), *it->second) == numbers_.end()) {
        numbers_.push_back(*it->second);
      }
    }
    return numbers_;
  }

 private:
  NumberOf number_of_;
  std::map<limid_t, std::optional<uint32_t>> known_;
  const std::list<limid_t>* last_ = nullptr;
  std::vector<uint32_t> numbers_;
};

// The hits as they are at one moment: all are read within a few milliseconds.
class EbpfHits final : public HitsReading {
 public:
  EbpfHits(const EbpfBackend* backend, GroupSlot slot) : backend_(backend), slot_(slot) {}
  Progress Next() override {
    hits = backend_->HitsOf(slot_);
    return Progress::kDone;
  }

 private:
  const EbpfBackend* backend_;
  GroupSlot slot_;
};

}  // namespace

std::string EbpfDirectory(const std::string& directory) {
  return directory + "/" + std::to_string(NamespaceCookie());
}

std::unique_ptr<EbpfBackend> EbpfBackend::Open(const EbpfOptions& options, std::string* reason) {
  std::unique_ptr<EbpfBackend> backend(new EbpfBackend(options));
  if (backend->Start(reason)) return backend;
  // Where there was nothing, nothing is left.
  const bool nothing =
      backend->store_ == nullptr || backend->store_->found() == FilterStore::Found::kNothing;
  const bool locked = backend->store_ != nullptr;
  backend.reset();
  if (nothing && locked) RemovePins(EbpfDirectory(options.directory));
  return nullptr;
}

EbpfBackend::~EbpfBackend() {
  Discard();
  if (HoldsNothing()) RemovePins(EbpfDirectory(options_.directory));
}

// Whether both groups are known, and are empty.
bool EbpfBackend::HoldsNothing() const {
  return groups_[kL2] && groups_[kL3] && hooks_->attached().empty() &&
         std::all_of(held_.begin(), held_.end(), [](const auto& held) { return held.empty(); });
}

bool EbpfBackend::Start(std::string* reason) {
  store_ = FilterStore::Open(EbpfDirectory(options_.directory), reason);
  if (store_ == nullptr) return false;
  int error = links_.Open(options_.open);
  if (error != 0) {
    *reason = std::string("interfaces cannot be read: ") + strerror(-error);
    return false;
  }
  // What is in force is this build's: it was tried when it was loaded.
  if (store_->incomplete() && !TryFilterProgram(reason)) return false;
  if (!TakeOver(reason) || !store_->Complete(reason)) return false;
  const auto method =
      options_.links ? PortHooks::Probe(store_->program()) : PortHooks::Method::kClassifier;
  hooks_.emplace(&store_->links(), method);
  error = hooks_->Watch(options_.open);
  if (error == 0) error = hooks_->Adopt(links_.indices());
  if (error != 0) {
    *reason = std::string("what is attached cannot be read: ") + strerror(-error);
    return false;
  }
  if (method == PortHooks::Method::kLink) RemoveDeadStores(options_.directory);
  OpenGuards();
  ports_.emplace(store_.get(), &*hooks_, guards_.get(), &links_);
  if (!foreign_) ports_->Adopt();
  left_ = hooks_->attached().size();
  held_.resize(std::max<size_t>(classifier_->root_count(), 2 * size_t{ports_->count()}));
  std::vector<uint32_t> used;
  for (uint32_t root = 0; root < held_.size(); ++root) {
    for (auto id = classifier_->First(root); id != classifier::kNoEntry;
         id = classifier_->Next(id)) {
      held_[root].push_back({UnknownIdentity(), id, classifier_->RuleOf(id).counter});
      used.push_back(held_[root].back().counter);
    }
  }
  counters_.emplace(store_.get(), used);
  // What an earlier process left unfinished: an interface that came or went, a new program.
  if (!foreign_ && (left_ != 0 || ports_->count() != 0)) Refresh();
  return true;
}

bool EbpfBackend::TakeOver(std::string* reason) {
  classifier_ = std::make_unique<classifier::Classifier>(store_.get());
  foreign_ = store_->found() == FilterStore::Found::kForeign;
  std::string problem;
  if (store_->found() == FilterStore::Found::kOurs) {
    WaitForPrograms();  // those that began before the process that left the tables ended
    if (classifier_->Adopt(&problem)) return true;
    Log(LogLevel::kError, "the tables in force are damaged and stay until they are replaced: %s",
        problem.c_str());
    foreign_ = true;
    if (!store_->StartOver(reason)) return false;
    classifier_ = std::make_unique<classifier::Classifier>(store_.get());
  }
  if (classifier_->Format()) return true;
  *reason = "the kernel gives no memory for the tables";
  return false;
}

void EbpfBackend::OpenGuards() {
  int error = 0;
  guards_ = PortGuards::Open(options_.open, &error);
  if (guards_ == nullptr) {
    Log(LogLevel::kWarning,
        "there are no guards for interfaces that are made anew (%s): they are filtered once the "
        "daemon has heard of them",
        strerror(-error));
  } else if (guards_->kind() == PortGuards::Kind::kPrerouting) {
    Log(LogLevel::kInfo,
        "interfaces that are made anew are guarded for what is routed or bridged; this kernel has "
        "no hooks that follow a name");
  }
}

FilterMgrError EbpfBackend::Prepare(const SentGroup& group) {
  const GroupSlot slot = SlotOf(group->getType());
  Drop(slot);
  PreparedGroup prepared(group);
  FilterMgrError result = Compare(&prepared);
  if (result == FILTER_MGR_OK) result = Write(&prepared);
  if (result != FILTER_MGR_OK) return result;
  prepared_[slot].emplace(std::move(prepared));
  return FILTER_MGR_OK;
}

FilterMgrError EbpfBackend::Compare(PreparedGroup* prepared) {
  const FiltersGroup& group = prepared->group.source.content();
  const FiltersCommon::EntryRows& rows = prepared->group.rows();
  const GroupSlot slot = SlotOf(group.getType());
  std::string reason;
  const auto refuse = [&](const FiltersEntry& entry) {
    Log(LogLevel::kError, "filter group %d (%s) is refused: %s: %s (%s)", group.getId(),
        SlotName(slot), prepared->group.source.NameOf(entry.getId()).c_str(), reason.c_str(),
        EntryText(entry).c_str());
    return FILTER_MGR_ERR_UNSUPPORTED;
  };
  // What has nothing in the new content is removed, and so needs an update as well.
  std::vector<RootUpdate*> update_of;  // by port number
  const auto open = [&](uint32_t number) {
    const uint32_t root = FilterPorts::RootOf(number, slot);
    if (held_.size() <= root + 1) held_.resize(root + 2);
    if (update_of.size() <= number) update_of.resize(number + 1);
    const auto it =
        prepared->updates.try_emplace(root, classifier_.get(), root, &held_[root]).first;
    update_of[number] = &it->second;
  };
  for (uint32_t number = 0; number < ports_->count(); ++number) {
    if (!held_[FilterPorts::RootOf(number, slot)].empty()) open(number);
  }
  PortLists lists([&](limid_t id, uint32_t* number) {
    const std::string name = options_.names(id);
    if (name.empty()) {
      reason = "its ingress port " + std::to_string(id) + " is not known";
      return false;
    }
    prepared->group.ports.insert(name);
    if (!ports_->NumberOf(name, number, &reason)) return false;
    if (*number >= update_of.size() || update_of[*number] == nullptr) open(*number);
    return true;
  });
  // What the group shares at its ends with the one in force needs no second look.
  const auto [begin, end] = ChangedPart(slot, rows);
  for (size_t run = 0; run < rows.runs().size(); ++run) {
    const auto [list, first] = rows.runs()[run];
    // All ports would be meant, of which nobody knows what they are to become.
    if (list == nullptr) {
      reason = "it names no ingress port";
      return refuse(rows.entry(first));
    }
    const std::vector<uint32_t>& numbers = lists.Find(*list);
    if (!reason.empty()) return refuse(rows.entry(first));
    const size_t last = rows.EndOf(run);
    for (const uint32_t number : numbers) {
      update_of[number]->KeepEnds(std::clamp(begin, first, last) - first,
                                  last - std::clamp(end, first, last));
    }
  }
  for (size_t run = 0; run < rows.runs().size(); ++run) {
    const auto [list, first] = rows.runs()[run];
    const size_t last = std::min(end, rows.EndOf(run));
    for (size_t i = std::max(begin, first); i < last; ++i) {
      for (const uint32_t number : lists.Find(*list)) {
        if (!update_of[number]->Next(rows.entry(i), &reason)) return refuse(rows.entry(i));
      }
    }
  }
  for (auto& [root, update] : prepared->updates) update.Finish();
  return FILTER_MGR_OK;
}

// The entries of the new content, from the first to behind the last, that may not be in force.
std::pair<size_t, size_t> EbpfBackend::ChangedPart(GroupSlot slot,
                                                   const FiltersCommon::EntryRows& rows) const {
  if (!groups_[slot]) return {0, rows.size()};
  const FiltersCommon::EntryRows& before = groups_[slot]->rows();
  const size_t front = FiltersCommon::EntryRows::CommonFront(before, rows);
  const size_t most = std::min(before.size(), rows.size()) - front;
  return {front, rows.size() - FiltersCommon::EntryRows::CommonBack(before, rows, most)};
}

FilterMgrError EbpfBackend::Write(PreparedGroup* prepared) {
  const FiltersGroup& group = prepared->group.source.content();
  const char* const type = SlotName(SlotOf(group.getType()));
  size_t added = 0;
  for (const auto& [root, update] : prepared->updates) added += update.added();
  counters_->Reserve(added);
  for (auto it = prepared->updates.begin(); it != prepared->updates.end(); ++it) {
    classifier::Refusal refusal;
    if (it->second.empty() || it->second.Write(&*counters_, &refusal)) continue;
    classifier_->Discard(it->first);
    for (auto done = prepared->updates.begin(); done != it; ++done) {
      classifier_->Discard(done->first);
      done->second.Undo(&*counters_);
    }
    const std::string port = ports_->NameOf(it->first / 2);
    const LogFields fields({{"INTERFACE", port}});
    Log(LogLevel::kError, "filter group %d (%s) is refused: port %s: %s", group.getId(), type,
        port.c_str(), refusal.text.c_str());
    return FILTER_MGR_ERR_CAPACITY;
  }
  return FILTER_MGR_OK;
}

void EbpfBackend::Drop(GroupSlot slot) {
  if (!prepared_[slot]) return;
  for (auto& [root, update] : prepared_[slot]->updates) {
    classifier_->Discard(root);
    update.Undo(&*counters_);
  }
  retired_.push_back(std::move(prepared_[slot]->group));
  prepared_[slot].reset();
}

void EbpfBackend::Discard() {
  for (const GroupSlot slot : kSlots) Drop(slot);
}

std::set<std::string> EbpfBackend::WantedPorts() const {
  std::set<std::string> wanted;
  for (const GroupSlot slot : kSlots) {
    if (prepared_[slot]) {
      wanted.insert(prepared_[slot]->group.ports.begin(), prepared_[slot]->group.ports.end());
    } else if (groups_[slot]) {
      wanted.insert(groups_[slot]->ports.begin(), groups_[slot]->ports.end());
    } else {  // as an earlier process left it
      for (uint32_t number = 0; number < ports_->count(); ++number) {
        const uint32_t root = FilterPorts::RootOf(number, slot);
        if (root < held_.size() && !held_[root].empty()) wanted.insert(ports_->NameOf(number));
      }
    }
  }
  return wanted;
}

Standing EbpfBackend::Publish() {
  if (foreign_ && !(prepared_[kL2] && prepared_[kL3])) {
    // The old tables cannot be changed in part.
    return standing_ = {Standing::kPending, 0,
                        "tables of another version stay in force until both groups are known"};
  }
  ports_->Forget(links_.Update());
  const std::set<std::string> wanted = WantedPorts();
  std::string reason;
  const bool changed = classifier_->changed();
  // What is foreign makes room port by port, so the new content has to be valid before.
  if (foreign_ && changed) classifier_->Publish();
  if (!ports_->Cover(wanted, &reason)) {
    Log(LogLevel::kError, "the groups cannot be put in force: %s", reason.c_str());
    Discard();
    return {Standing::kRefused, FILTER_MGR_ERR_KERNEL, reason};
  }
  if (!foreign_ && changed) classifier_->Publish();
  if (changed) ++writes_;
  foreign_ = false;
  Commit();
  ports_->Uncover(wanted);
  standing_ = {};
  if (!ports_->failed().empty()) {
    standing_ = {Standing::kPartial, 0, "port " + *ports_->failed().begin() + " has failed"};
  }
  return standing_;
}

void EbpfBackend::Commit() {
  std::vector<uint32_t> freed;
  for (const GroupSlot slot : kSlots) {
    if (!prepared_[slot]) continue;
    for (auto& [root, update] : prepared_[slot]->updates) {
      if (!update.empty()) {
        sampled_[root].changed = true;
        unreclaimed_.insert(root);
      }
      update.Commit(&held_[root], &freed);
    }
    if (groups_[slot]) retired_.push_back(std::move(*groups_[slot]));
    groups_[slot].emplace(std::move(prepared_[slot]->group));
    prepared_[slot].reset();
  }
  counters_->Retire(std::move(freed));
}

// Brings the program to interfaces that have come, and takes it from those that are no port's.
bool EbpfBackend::Refresh() {
  const std::set<std::string> wanted = WantedPorts();
  std::string reason;
  if (!ports_->Cover(wanted, &reason)) {
    Log(LogLevel::kError, "the filter cannot follow the interfaces: %s", reason.c_str());
    return false;
  }
  // Until the first group is known, nothing is taken away.
  if (groups_[kL2] || groups_[kL3]) ports_->Uncover(wanted);
  return ports_->failed().empty();
}

std::vector<int> EbpfBackend::fds() const {
  std::vector<int> fds = {links_.fd(), grace_.fd()};
  if (guards_ != nullptr) fds.push_back(guards_->fd());
  if (hooks_->fd() >= 0) fds.push_back(hooks_->fd());
  return fds;
}

// Makes the guards anew where others have changed them, as by flushing the whole packet filter.
bool EbpfBackend::RepairGuards() {
  if (guards_ == nullptr || !guards_->Damaged()) return true;
  const int error = guards_->Repair();
  if (error == 0 || !guards_reported_) {
    Tell({"", "the guards of the ports were changed by another program", error == 0});
  }
  if (error == 0) {
    Log(LogLevel::kWarning, "the guards of the ports were changed by another program; put right");
  } else if (!guards_reported_) {
    Log(LogLevel::kError,
        "the guards of the ports were changed by another program and cannot be put right: %s; it "
        "is tried again",
        strerror(-error));
  }
  guards_reported_ = error != 0;
  return error == 0;
}

// The ports that others have taken the program off.
std::vector<std::string> EbpfBackend::LostPorts() {
  const std::set<int> lost = hooks_->Lost();
  std::vector<std::string> ports;
  for (const std::string& port : WantedPorts()) {
    if (lost.count(links_.IndexOf(port)) != 0) ports.push_back(port);
  }
  return ports;
}

// Tells of ports that were lost, after the attempt to put them right.
void EbpfBackend::TellOfLost(const std::vector<std::string>& ports) {
  for (const std::string& port : ports) {
    const bool put_right = ports_->failed().count(port) == 0;
    const LogFields fields({{"INTERFACE", port}});
    Log(LogLevel::kWarning, "the filter program of port %s was taken away by another program%s",
        port.c_str(), put_right ? "; put right" : "");
    Tell({port, "the filter program was taken away by another program", put_right});
  }
}

bool EbpfBackend::Poll() {
  const bool guarded = RepairGuards();
  if (const auto ticket = grace_.Ended()) {
    classifier_->GracePassed(*ticket);
    counters_->EndGrace();
    // What searches do not meet any more makes them cheaper.
    for (const uint32_t root : unreclaimed_) sampled_[root].changed = true;
    if (!classifier_->reclaimable()) unreclaimed_.clear();
    Idle();
  }
  const std::set<std::string> changed = links_.Update();
  const std::vector<std::string> lost = LostPorts();
  if (changed.empty() && lost.empty() && ports_->failed().empty()) return guarded;
  for (const std::string& name : changed) {
    if (!ports_->Names(name)) continue;
    const LogFields fields({{"INTERFACE", name}});
    Log(LogLevel::kInfo, "interface %s %s", name.c_str(),
        links_.Has(name) ? "appeared" : "vanished");
  }
  ports_->Forget(changed);
  const bool ok = Refresh();
  TellOfLost(lost);
  if (standing_.state == Standing::kPartial && ports_->failed().empty()) standing_ = {};
  return ok && guarded;
}

void EbpfBackend::Idle() {
  retired_.clear();
  if (grace_.running() || !(classifier_->reclaimable() || counters_->retired())) return;
  counters_->BeginGrace();
  grace_.Start(classifier_->TakeTicket());
}

std::vector<Hits> EbpfBackend::HitsOf(GroupSlot slot) const {
  std::vector<Hits> hits;
  if (!groups_[slot] || groups_[slot]->rows().size() == 0) return hits;
  const FiltersCommon::EntryRows& rows = groups_[slot]->rows();
  hits.resize(size_t{groups_[slot]->source->getEntriesRef().rbegin()->first} + 1);
  std::vector<size_t> next(ports_->count());  // by port number
  PortLists lists(
      [&](limid_t id, uint32_t* number) { return ports_->Find(options_.names(id), number); });
  for (size_t run = 0; run < rows.runs().size(); ++run) {
    for (const uint32_t number : lists.Find(*rows.runs()[run].ports)) {
      const auto& held = held_[FilterPorts::RootOf(number, slot)];
      for (size_t i = rows.runs()[run].first; i < rows.EndOf(run); ++i) {
        const filter_counter count = store_->Count(held[next[number]++].counter);
        Hits& sum = hits[rows.entry(i).getId()];
        sum = sum + Hits{count.packets, count.bytes};
      }
    }
  }
  return hits;
}

std::optional<SearchCost> EbpfBackend::CostOf(GroupSlot slot) {
  std::optional<SearchCost> worst;
  for (uint32_t number = 0; groups_[slot] && number < ports_->count(); ++number) {
    const uint32_t root = FilterPorts::RootOf(number, slot);
    if (root >= held_.size() || held_[root].empty()) continue;
    const classifier::Usage usage = classifier_->UsageOf(root);
    const uint32_t most = usage.tables * classifier::Classifier::kMaxChain;
    const auto tables = static_cast<double>(usage.tables);
    SearchCost here{ports_->NameOf(number), SearchCost::Tables{tables, usage.tables}, most};
    const auto sampled = sampled_.find(root);
    if (sampled != sampled_.end() && sampled->second.cost.worst_tables != 0) {
      here.tables->mean = std::min(tables, sampled->second.cost.mean_tables);
      here.entries_worst = sampled->second.cost.worst_entries;
    }
    if (!worst || *worst < here) worst = here;
  }
  return worst;
}

bool EbpfBackend::SampleCost(GroupSlot slot, uint32_t* next) {
  constexpr size_t kEntries = 2048;  // of the ports of one call; of the last one, all
  for (size_t seen = 0; groups_[slot] && *next < ports_->count() && seen < kEntries; ++*next) {
    const uint32_t root = FilterPorts::RootOf(*next, slot);
    if (root >= held_.size() || held_[root].empty()) continue;
    Sampled& sampled = sampled_[root];
    if (!sampled.changed) continue;
    seen += held_[root].size();
    sampled = {classifier_->CostOf(root, SearchSamples(held_[root].size())), false};
  }
  return groups_[slot] && *next < ports_->count();
}

std::unique_ptr<HitsReading> EbpfBackend::ReadHits(GroupSlot slot) {
  if (!groups_[slot]) return nullptr;
  return std::make_unique<EbpfHits>(this, slot);
}

std::map<std::string, PortState> EbpfBackend::Ports() const {
  std::map<std::string, PortState> states;
  for (const auto& group : groups_) {
    if (!group) continue;
    for (const std::string& port : group->ports) {
      states[port] = ports_->failed().count(port) != 0 ? PortState::kFailed
                     : ports_->Covered(port)           ? PortState::kEnforced
                                                       : PortState::kAbsent;
    }
  }
  return states;
}

}  // namespace host
