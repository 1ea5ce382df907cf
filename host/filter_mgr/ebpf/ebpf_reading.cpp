// What the back end tells of the groups in force: hits, cost, ports.
#include <algorithm>

#include "host/filter_mgr/ebpf/ebpf_backend.h"
#include "host/filter_mgr/ebpf/port_lists.h"

namespace host {
namespace {

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
