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

// A number for the network namespace that no other one has since the machine has started.
uint64_t NamespaceCookie() {
  constexpr int kNetnsCookie = 71;  // SO_NETNS_COOKIE, newer than some headers
  const Descriptor socket(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  uint64_t cookie = 0;
  socklen_t size = sizeof(cookie);
  return getsockopt(socket.get(), SOL_SOCKET, kNetnsCookie, &cookie, &size) == 0 ? cookie : 0;
}

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
  // Also where all that is needed is in force already: what cannot be made any more cannot grow,
  // and another back end should take over before that is needed. A shortage passes.
  error = TryFilterProgram(reason);
  if (error != 0 && (store_->incomplete() || !IsPassing(error))) return false;
  if (!TakeOver(reason) || store_->Complete(reason) != 0) return false;
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
  for (const auto& group : short_) {
    if (group) return Wait(std::string(group->why));
  }
  Failure failure = ArrangePending();
  if (failure.code == FILTER_MGR_OK) {
    if (foreign_ && !(prepared_[kL2] && prepared_[kL3])) {
      // The old tables cannot be changed in part.
      return Wait("tables of another version stay in force until both groups are known");
    }
    failure = PutInForce();
  }
  if (failure.code == FILTER_MGR_OK) return standing_;
  LogFailure(failure);
  if (failure.passing) return Wait(failure.text);
  Discard();
  return {Standing::kRefused, failure.code, failure.text};
}

// Makes valid what is prepared; nothing is pending any more then.
Failure EbpfBackend::PutInForce() {
  ports_->Forget(links_.Update());
  const std::vector<std::string> lost = LostPorts();
  const std::set<std::string> wanted = WantedPorts();
  const bool changed = classifier_->changed();
  Failure failure;
  bool ok = ports_->MakeReady(wanted, &failure);
  // What is foreign makes room port by port, so the new content has to be valid before.
  if (ok && foreign_) {
    if (changed) classifier_->Publish();
    Commit();
  }
  ok = ok && ports_->Cover(wanted, &failure);
  TellOfLost(lost);
  if (!ok) {
    failure.text = "the groups cannot be put in force: " + failure.text;
    return failure;
  }
  if (!foreign_) {
    if (changed) classifier_->Publish();
    Commit();
  }
  if (changed) ++writes_;
  foreign_ = false;
  for (auto& group : pending_) group.reset();
  ports_->Uncover(wanted);
  standing_ = {};
  if (!ports_->failed().empty()) {
    standing_ = {Standing::kPartial, 0, "port " + *ports_->failed().begin() + " has failed"};
  }
  return {};
}

// Keeps as pending what was to be put in force.
Standing EbpfBackend::Wait(const std::string& reason) {
  for (const GroupSlot slot : kSlots) {
    if (short_[slot]) {
      pending_[slot].emplace(short_[slot]->group);
    } else if (prepared_[slot]) {
      pending_[slot].emplace(prepared_[slot]->group.source);
    } else if (foreign_ && groups_[slot]) {  // valid, but not on all ports
      pending_[slot].emplace(groups_[slot]->source);
    }
  }
  Discard();
  return standing_ = {Standing::kPending, 0, reason};
}

// Whether another attempt at what is pending makes sense: not beside newer content that is being
// prepared.
bool EbpfBackend::ToBeTried() const {
  for (const GroupSlot slot : kSlots) {
    if (prepared_[slot] || short_[slot] || (foreign_ && !pending_[slot])) return false;
  }
  return pending_[kL2] || pending_[kL3];
}

// False when something is left to be tried.
bool EbpfBackend::TryPending() {
  if (!ToBeTried()) return true;
  Failure failure = ArrangePending();
  if (failure.code == FILTER_MGR_OK) failure = PutInForce();
  if (failure.code == FILTER_MGR_OK) {
    Log(LogLevel::kInfo, "the filter groups that had to wait are in force");
    return ports_->failed().empty();
  }
  Discard();
  if (failure.passing) return false;
  LogFailure(failure);
  for (auto& group : pending_) group.reset();
  standing_ = {Standing::kRefused, failure.code, failure.text};
  return true;
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
  Failure failure;
  if (!ports_->Cover(wanted, &failure)) {
    Log(LogLevel::kError, "the filter cannot follow the interfaces: %s", failure.text.c_str());
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
    const bool put_right = ports_->failed().count(port) == 0 && hooks_->Known(links_.IndexOf(port));
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
  const bool followed = Follow();
  return TryPending() && followed && guarded;
}

// Takes in which interfaces have come and gone, and which have lost the program. False when
// something is left to be tried.
bool EbpfBackend::Follow() {
  const std::set<std::string> changed = links_.Update();
  const std::vector<std::string> lost = LostPorts();
  // What is foreign is replaced whole, when both groups are known; the new tables are empty so far.
  if (foreign_) return true;
  if (changed.empty() && lost.empty() && ports_->failed().empty() && hooks_->AllKnown())
    return true;
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
  return ok;
}

void EbpfBackend::Idle() {
  retired_.clear();
  if (grace_.running() || !(classifier_->reclaimable() || counters_->retired())) return;
  counters_->BeginGrace();
  grace_.Start(classifier_->TakeTicket());
}

}  // namespace host
