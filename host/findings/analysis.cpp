#include "host/findings/analysis.h"

#include <algorithm>
#include <cstddef>
#include <map>
#include <utility>

namespace host::findings {
namespace {

// How many entries of a cover are named.
constexpr size_t kMostNamed = 16;
constexpr uint64_t kEntryWork = 16;

// What an entry does, however it is written.
std::pair<Entry::Action, uint8_t> EffectOf(const Entry& entry) {
  if (entry.action == Entry::Action::kNone) return {Entry::Action::kPermit, 0};
  return {entry.action, entry.action == Entry::Action::kSetPcp ? entry.pcp : 0};
}

std::string Does(const Entry& entry) {
  switch (entry.action) {
    case Entry::Action::kDeny:
      return "denies";
    case Entry::Action::kSetPcp:
      return "sets the PCP to " + std::to_string(entry.pcp);
    default:
      return "permits";
  }
}

}  // namespace

const char* NameOf(Kind kind) {
  constexpr const char* kNames[] = {"absent-interface", "no-frame",  "contradicting-cover",
                                    "redundant",        "no-action", "ipv6-passes",
                                    "beyond-tables"};
  return kNames[static_cast<int>(kind)];
}

Analysis::Analysis(std::shared_ptr<const Configuration> configuration, const Limits& limits)
    : configuration_(std::move(configuration)), limits_(limits) {
  LookAtInterfaces();
  FindChains();
}

bool Analysis::Step(uint64_t work) {
  const uint64_t end = work_ + work;
  while (work_ < end && at_.chain < chains_.size()) {
    const Chain& chain = chains_[at_.chain];
    if (at_.profile == chain.profiles.size()) {
      at_ = Cursor{at_.chain + 1, 0, 0, {}, {}};
      continue;
    }
    const Profile& profile = configuration_->profiles.at(*chain.profiles[at_.profile]);
    if (at_.entry == profile.entries.size()) {
      ++at_.profile;
      at_.entry = 0;
    } else {
      LookAtNextEntry(chain, profile);
    }
  }
  while (work_ < end && next_ports_ < ports_.size()) {
    if (!LookAtPorts(ports_[next_ports_])) continue;
    ++next_ports_;
    ports_at_ = {};
  }
  if (at_.chain < chains_.size() || next_ports_ < ports_.size()) return true;
  std::stable_sort(result_.list.begin(), result_.list.end(),
                   [](const Finding& a, const Finding& b) { return a.kind < b.kind; });
  return false;
}

// Every profile is a chain of its own; interfaces that have the same profiles share theirs.
void Analysis::FindChains() {
  for (const auto& [name, profile] : configuration_->profiles) chains_.push_back({{&name}, {}});
  using Order = std::vector<const std::string*>;
  struct ByName {
    static bool Before(const std::string* a, const std::string* b) { return *a < *b; }
    bool operator()(const Order& a, const Order& b) const {
      return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), Before);
    }
    bool operator()(const std::pair<Order, Order>& a, const std::pair<Order, Order>& b) const {
      const ByName& less = *this;
      return less(a.first, b.first) || (!less(b.first, a.first) && less(a.second, b.second));
    }
  };
  std::map<Order, std::vector<std::string>, ByName> chains;
  std::map<std::pair<Order, Order>, std::vector<std::string>, ByName> ports;
  for (const auto& [interface, what] : configuration_->interfaces) {
    std::map<int, const std::string*> order[2];  // by priority; L2, L3
    for (const std::string& bound : what.profiles) {
      const auto profile = configuration_->profiles.find(bound);
      if (profile == configuration_->profiles.end()) continue;
      order[profile->second.l3 ? 1 : 0].emplace(profile->second.priority, &profile->first);
    }
    Order profiles[2];
    for (const int group : {0, 1}) {
      for (const auto& [priority, name] : order[group]) profiles[group].push_back(name);
      if (profiles[group].size() > 1) chains[profiles[group]].push_back(interface);
    }
    if (!profiles[1].empty()) ports[{profiles[0], profiles[1]}].push_back(interface);
  }
  const auto alone = static_cast<std::ptrdiff_t>(chains_.size());
  for (auto& [profiles, interfaces] : chains) {
    chains_.push_back(
        {profiles, std::make_shared<const std::vector<std::string>>(std::move(interfaces))});
  }
  for (auto& [profiles, interfaces] : ports) {
    ports_.push_back({profiles.first, profiles.second,
                      std::make_shared<const std::vector<std::string>>(std::move(interfaces))});
  }
  // What is found is told in this order.
  const auto by_interface = [](const auto& a, const auto& b) {
    return a.interfaces->front() < b.interfaces->front();
  };
  std::stable_sort(chains_.begin() + alone, chains_.end(), by_interface);
  std::stable_sort(ports_.begin(), ports_.end(), by_interface);
}

void Analysis::LookAtInterfaces() {
  for (const auto& [name, interface] : configuration_->interfaces) {
    if (!interface.absent || interface.profiles.empty()) continue;
    Finding finding{Kind::kAbsentInterface, {}, {}, {}, {}};
    finding.interfaces = std::make_shared<const std::vector<std::string>>(1, name);
    finding.text = "there is no such interface; what is bound to it filters nothing until there is";
    Tell(std::move(finding));
  }
}

void Analysis::LookAtNextEntry(const Chain& chain, const Profile& profile) {
  const Placed placed{chain.profiles[at_.profile], &profile.entries[at_.entry++]};
  const FrameSet set = SetOf(placed.entry->matches);
  const bool alone = chain.interfaces == nullptr;
  work_ += kEntryWork;
  if (alone) LookAtEntryAlone(placed, set);
  const bool idle = idle_.count(placed.entry) != 0;
  // What is covered by its own profile is covered in every chain, and was told.
  const bool look = !idle && set.classes != 0 && (alone || at_.profile > 0);
  const bool covered = look && LookForCover(placed, set, chain.interfaces);
  if (alone && (covered || set.classes == 0)) idle_.insert(placed.entry);
  // Whatever a covered entry could cover, the entries that cover it do.
  if (idle || covered || set.classes == 0) {
    at_.index.Skip();
  } else {
    at_.index.Add(set);
  }
  at_.before.push_back(placed);
}

void Analysis::LookAtEntryAlone(const Placed& placed, const FrameSet& set) {
  const EntryName name{*placed.profile, placed.entry->ace_priority};
  if (set.classes == 0) {
    Tell({Kind::kNoFrame, {}, name, {}, "no frame can match: " + WhyEmpty(placed.entry->matches)});
  }
  if (placed.entry->action == Entry::Action::kNone) {
    Tell({Kind::kNoAction, {}, name, {}, "has no action, and so permits"});
  }
}

bool Analysis::LookForCover(const Placed& placed, const FrameSet& set, const Names& interfaces) {
  if (work_ > limits_.work) {
    result_.complete = false;
    return false;
  }
  const uint32_t first = at_.index.FirstCovering(set, &work_);
  if (first != MaskIndex::kNone) {
    const Classes missing = set.classes & ~at_.index.SetOf(first).classes;
    TellCover(placed, {first}, missing == 0, interfaces);
    return true;
  }
  if (union_work_ > limits_.union_work) return false;
  uint64_t work = 0;
  const UnionCover cover = FindUnionCover(at_.index, set, &work);
  work_ += work;
  union_work_ += work;
  if (cover.entries.empty()) return false;
  TellCover(placed, cover.entries, cover.all_frames, interfaces);
  return true;
}

void Analysis::TellCover(const Placed& placed, const std::vector<uint32_t>& cover, bool all_frames,
                         const Names& interfaces) {
  Finding finding{Kind::kRedundant, interfaces, EntryName{*placed.profile, 0}, {}, {}};
  finding.entry->ace_priority = placed.entry->ace_priority;
  for (const uint32_t number : cover) {
    const Placed& before = at_.before[number];
    if (EffectOf(*before.entry) != EffectOf(*placed.entry)) finding.kind = Kind::kContradictsCover;
    if (finding.cover.size() < kMostNamed) {
      finding.cover.push_back({*before.profile, before.entry->ace_priority});
    }
  }
  const bool redundant = finding.kind == Kind::kRedundant;
  finding.text = "never decides: ";
  if (cover.size() == 1) {
    const Entry& before = *at_.before[cover[0]].entry;
    finding.text += "an earlier entry has all of its frames, and " + Does(before) + " them" +
                    (redundant ? " as well" : ", where this one " + Does(*placed.entry));
  } else {
    finding.text += std::to_string(cover.size()) + " earlier entries together have all of its " +
                    "frames, and " + (redundant ? "do the same" : "do not all do the same");
  }
  if (!all_frames) finding.text += " (but for frames that end within a header)";
  Tell(std::move(finding));
}

// IPv6 without a tag and without a port, such as ICMPv6 or a fragment: what an entry for IPv6
// matches, and one that only names a port does not.
bool Analysis::LookAtPorts(const Ports& ports) {
  PortsCursor& at = ports_at_;
  const auto& profiles = at.in_l2 ? ports.l2 : ports.l3;
  ++work_;
  if (at.profile == profiles.size()) {
    if (at.in_l2) TellIpv6Passes(ports);
    if (at.in_l2 || !at.denies) return true;
    at.in_l2 = true;
    at.profile = 0;
    return false;
  }
  const std::vector<Entry>& entries = configuration_->profiles.at(*profiles[at.profile]).entries;
  if (at.entry == entries.size()) {
    ++at.profile;
    at.entry = 0;
    return false;
  }
  const Entry& entry = entries[at.entry++];
  const FrameSet set = SetOf(entry.matches);
  work_ += kEntryWork;
  if (!at.in_l2) return !LookAtL3Entry(entry, set);
  if ((set.classes >> PlainIpv6Class() & 1) != 0) {
    at.l2.push_back({set, entry.action == Entry::Action::kDeny});
  }
  return false;
}

// False when the entry is about plain IPv6, so that there is nothing to tell.
bool Analysis::LookAtL3Entry(const Entry& entry, const FrameSet& set) {
  const size_t plain = PlainIpv6Class();
  if ((set.classes >> plain & 1) != 0) return false;
  if (entry.action == Entry::Action::kDeny) ports_at_.denies = true;
  if ((set.classes >> (plain + 1) & 1) != 0) ports_at_.names_ports = true;
  return true;
}

void Analysis::TellIpv6Passes(const Ports& ports) {
  const size_t plain = PlainIpv6Class();
  if (!SomePasses(ports_at_.l2, PartOf({{}, {}, ~Classes{0}}, plain), plain)) return;
  Finding finding{Kind::kIpv6Passes, ports.interfaces, {}, {}, {}};
  finding.text = "IPv6 passes: no L3 entry is about it";
  if (ports_at_.names_ports) finding.text += ", but for destination ports that entries name";
  Tell(std::move(finding));
}

void Analysis::Tell(Finding finding) {
  if (result_.count[finding.kind]++ < limits_.list_per_kind) {
    result_.list.push_back(std::move(finding));
  }
}

}  // namespace host::findings
