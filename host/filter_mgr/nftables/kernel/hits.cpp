#include "host/filter_mgr/nftables/kernel/hits.h"

#include <vector>

namespace host {

HitsReading::Progress KernelHits::Next() {
  constexpr size_t kRulesAtOnce = 400;  // some 2 ms
  HeldTables& tables = *kernel_->mutable_held();
  size_t rules = 0;
  for (auto table = tables.lower_bound(port_); table != tables.end(); ++table) {
    if (table->first != port_) chunk_ = 0;
    port_ = table->first;
    HeldGroup& held = table->second.groups[slot_];
    for (; chunk_ < held.order.size(); ++chunk_) {
      if (rules >= kRulesAtOnce) return Progress::kMore;
      rules += ReadChunk(&held, held.order[chunk_]);
    }
  }
  Sum();
  return Progress::kDone;
}

size_t KernelHits::ReadChunk(HeldGroup* held, uint32_t number) {
  HeldChain& chunk = held->chunks.at(number);
  std::vector<HeldRule>& rules = chunk.rules;
  std::vector<Hits> read;
  const int error = kernel_->reader()->ReadHits(port_, slot_, number, &read);
  // Otherwise someone else has changed the chunk, which will be put right.
  if (error == 0 && read.size() == rules.size() + (chunk.link ? 1 : 0)) {
    for (size_t i = 0; i < rules.size(); ++i) rules[i].hits = read[i];
  }
  return rules.size();
}

void KernelHits::Sum() {
  hits.clear();
  if (!*group_) return;
  const auto& entries = (*group_)->source->getEntriesRef();
  if (!entries.empty()) hits.resize(entries.rbegin()->first + size_t{1});
  for (const auto& [port, rules] : (*group_)->ports) {
    const auto table = kernel_->held().find(port);
    if (table != kernel_->held().end()) SumPort(rules, table->second.groups[slot_]);
  }
}

void KernelHits::SumPort(const PortRules& port, const HeldGroup& held) {
  std::vector<const HeldRule*> before;
  std::vector<const Rule*> there, wanted;
  for (uint32_t number : held.order) {
    for (const HeldRule& rule : held.chunks.at(number).rules) {
      before.push_back(&rule);
      there.push_back(rule.rule.get());
    }
  }
  for (const RulePtr& rule : port.rules) wanted.push_back(rule.get());
  // The same rules, unless someone else has changed the table.
  const std::vector<int> places = MatchRules(there, wanted);
  size_t next = 0;
  for (const PortEntry& entry : port.entries) {
    for (int i = 0; i < entry.rule_count; ++i, ++next) {
      if (places[next] < 0) continue;
      const HeldRule& rule = *before[static_cast<size_t>(places[next])];
      hits[entry.id] = hits[entry.id] + rule.hits + rule.carried;
    }
  }
}

}  // namespace host
