#include "host/filter_mgr/ebpf/group_order.h"

#include <algorithm>

#include "host/filter_mgr/entry_order.h"

namespace host {
namespace {

using FiltersCommon::FiltersEntry;
using FiltersCommon::MatchIngressPorts;

const GroupOrder::PortList* PortsOfEntry(const FiltersEntry& entry) {
  const auto* match = static_cast<const MatchIngressPorts*>(
      entry.findMatch(FiltersCommon::FILTERS_MATCH_INGRESS_PORTS));
  return match == nullptr || match->ports().empty() ? nullptr : &match->ports();
}

bool SamePorts(const GroupOrder::PortList* a, const GroupOrder::PortList* b) {
  return a == b || (a != nullptr && b != nullptr && *a == *b);
}

}  // namespace

GroupOrder::GroupOrder(const FiltersCommon::FiltersGroup& group) {
  const size_t count = group.getEntriesRef().size();
  entries_.reserve(count);
  identities_.reserve(count);
  // Ids and priorities mostly ascend together: then one walk does.
  unsigned int last = 0;
  for (const auto& [id, entry] : group.getEntriesRef()) {
    if (entry.getPriority() < last) break;
    last = entry.getPriority();
    Add(entry);
  }
  if (entries_.size() == count) return;
  entries_.clear();
  identities_.clear();
  runs_.clear();
  for (const FiltersEntry* entry : EntriesInOrder(group)) Add(*entry);
}

void GroupOrder::Add(const FiltersEntry& entry) {
  const PortList* const ports = PortsOfEntry(entry);
  if (runs_.empty() || runs_.back().ports != ports) runs_.push_back({ports, entries_.size()});
  entries_.push_back(&entry);
  identities_.push_back(entry.contentIdentity());
}

size_t GroupOrder::CommonFront(const GroupOrder& a, const GroupOrder& b) {
  const size_t most = std::min(a.size(), b.size());
  const auto end = a.identities_.begin() + static_cast<ptrdiff_t>(most);
  const auto parted = std::mismatch(a.identities_.begin(), end, b.identities_.begin()).first;
  const auto same = static_cast<size_t>(parted - a.identities_.begin());
  size_t at = 0, run_a = 0, run_b = 0;
  while (at < same && SamePorts(a.runs_[run_a].ports, b.runs_[run_b].ports)) {
    at = std::min(a.EndOf(run_a), b.EndOf(run_b));
    if (a.EndOf(run_a) == at) ++run_a;
    if (b.EndOf(run_b) == at) ++run_b;
  }
  return std::min(at, same);
}

size_t GroupOrder::CommonBack(const GroupOrder& a, const GroupOrder& b, size_t most) {
  const auto end = a.identities_.rbegin() + static_cast<ptrdiff_t>(most);
  const auto parted = std::mismatch(a.identities_.rbegin(), end, b.identities_.rbegin()).first;
  const auto same = static_cast<size_t>(parted - a.identities_.rbegin());
  // `at` counts from the end; a run reaches from its `first` up to there.
  size_t at = 0, run_a = a.runs_.size(), run_b = b.runs_.size();
  while (at < same && SamePorts(a.runs_[run_a - 1].ports, b.runs_[run_b - 1].ports)) {
    const size_t from_a = a.size() - a.runs_[run_a - 1].first;
    const size_t from_b = b.size() - b.runs_[run_b - 1].first;
    at = std::min(from_a, from_b);
    if (from_a == at) --run_a;
    if (from_b == at) --run_b;
  }
  return std::min(at, same);
}

}  // namespace host
