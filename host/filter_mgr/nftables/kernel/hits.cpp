#include "host/filter_mgr/nftables/kernel/hits.h"

#include <vector>

namespace host {
namespace {

size_t RulesIn(const HeldGroup& held) {
  size_t count = 0;
  for (uint32_t number : held.order) count += held.chunks.at(number).rules.size();
  return count;
}

}  // namespace

KernelHits::KernelHits(const CompiledGroup& group, const HeldTables& tables, GroupSlot slot,
                       const size_t* version, KernelReader* reader)
    : group_(group),
      tables_(tables),
      slot_(slot),
      version_(version),
      started_(*version),
      reader_(reader),
      port_(group.ports.begin()) {
  const auto& entries = group.source.getEntriesRef();
  if (!entries.empty()) hits.resize(entries.rbegin()->first + size_t{1});
}

HitsReading::Progress KernelHits::Next() {
  constexpr int kRulesAtOnce = 400;  // some 2 ms
  if (*version_ != started_) return Progress::kFailed;
  for (int rules = 0; port_ != group_.ports.end();) {
    const auto table = tables_.find(port_->first);
    const HeldGroup* const held = table == tables_.end() ? nullptr : &table->second.groups[slot_];
    if (held == nullptr || chunk_ == held->order.size()) {
      ++port_;
      chunk_ = entry_ = 0;
      rule_ = 0;
      continue;
    }
    if (rules >= kRulesAtOnce) return Progress::kMore;
    // Otherwise someone else has changed the table, which will be put right.
    if (chunk_ == 0 && RulesIn(*held) != port_->second.rules.size()) return Progress::kFailed;
    const int read = ReadChunk(*held);
    if (read < 0) return Progress::kFailed;
    rules += read;
  }
  return Progress::kDone;
}

int KernelHits::ReadChunk(const HeldGroup& held) {
  const uint32_t number = held.order[chunk_++];
  const std::vector<HeldRule>& rules = held.chunks.at(number).rules;
  std::vector<Hits> read;
  if (reader_->ReadHits(port_->first, slot_, number, &read) != 0 || read.size() != rules.size()) {
    return -1;
  }
  for (size_t i = 0; i < read.size(); ++i) Add(read[i] + rules[i].carried);
  return static_cast<int>(read.size());
}

void KernelHits::Add(const Hits& more) {
  const std::vector<PortEntry>& entries = port_->second.entries;
  for (; rule_ == entries[entry_].rule_count; ++entry_) rule_ = 0;
  Hits& sum = hits[entries[entry_].id];
  sum = sum + more;
  ++rule_;
}

}  // namespace host
