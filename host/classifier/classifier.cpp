#include "host/classifier/classifier.h"

#include <algorithm>

#include "host/classifier/core.h"
#include "host/classifier/sample_keys.h"

namespace host::classifier {

Classifier::Classifier(Memory* memory) : core_(std::make_unique<Core>(memory)) {}
Classifier::~Classifier() = default;

bool Classifier::Format() { return core_->Format(); }

bool Classifier::Adopt(std::string* problem) {
  auto core = std::make_unique<Core>(core_->memory());
  if (!core->Adopt(problem)) return false;
  core_ = std::move(core);
  return true;
}

std::string Classifier::Check() const { return Core(core_->memory()).Read(); }

bool Classifier::Replace(uint32_t root, const Rule* rules, size_t count, EntryId* ids,
                         Refusal* refusal) {
  return core_->Replace(root, rules, count, ids, refusal);
}

EntryId Classifier::Insert(uint32_t root, EntryId after, const Rule& rule, Refusal* refusal) {
  return core_->Insert(root, after, rule, refusal);
}

bool Classifier::Remove(EntryId id, Refusal* refusal) { return core_->Remove(id, refusal); }

EntryId Classifier::First(uint32_t root) const {
  if (root >= core_->roots().size() || core_->roots()[root] == nullptr) return kNoEntry;
  return core_->Step(core_->roots()[root]->content.sentinel, root);
}

EntryId Classifier::Next(EntryId id) const { return core_->Step(id, core_->list()[id].root); }

Rule Classifier::RuleOf(EntryId id) const {
  return core_->arena().entries.RuleOf(core_->list()[id].record);
}

uint32_t Classifier::root_count() const { return static_cast<uint32_t>(core_->roots().size()); }

bool Classifier::changed() const { return core_->changed(); }
void Classifier::Publish() { core_->Publish(); }
void Classifier::Discard(uint32_t root) { core_->Discard(root); }
void Classifier::DiscardAll() { core_->DiscardAll(); }
uint64_t Classifier::generation() const { return core_->generation(); }

bool Classifier::reclaimable() const { return !core_->arena().retired.empty(); }
uint64_t Classifier::TakeTicket() { return core_->TakeTicket(); }
void Classifier::GracePassed(uint64_t ticket) { core_->GracePassed(ticket); }
bool Classifier::Tidy() { return core_->Tidy(); }

Usage Classifier::UsageOf(uint32_t root) const {
  if (root >= core_->roots().size() || core_->roots()[root] == nullptr) return {};
  const Root& from = *core_->roots()[root];
  return {from.content.entries, from.content.shadowed,
          from.group == nullptr ? 0 : from.group->table_count()};
}

Cost Classifier::CostOf(uint32_t root, uint32_t samples) const {
  std::vector<uint32_t> records;
  for (EntryId id = First(root); id != kNoEntry; id = Next(id)) {
    records.push_back(core_->list()[id].record);
  }
  const EntryStore& entries = core_->arena().entries;
  const auto match_of = [&](size_t i) -> SampledMatch {
    return {&entries.value(records[i]), &entries.mask(records[i])};
  };
  Cost cost;
  SearchCount sum;
  const std::vector<cls_key> keys = SampleKeys(records.size(), match_of, samples);
  for (const cls_key& key : keys) {
    SearchCount count;
    Search(*core_->memory(), root, key, generation(), &count);
    sum.tables += count.tables;
    sum.probes += count.probes;
    sum.heads += count.heads;
    cost.worst_probes = std::max(cost.worst_probes, count.probes);
    cost.worst_entries = std::max(cost.worst_entries, count.heads);
  }
  cost.worst_tables = UsageOf(root).tables;
  const auto searches = static_cast<double>(std::max<size_t>(1, keys.size()));
  cost.mean_tables = sum.tables / searches;
  cost.mean_probes = sum.probes / searches;
  cost.mean_entries = sum.heads / searches;
  return cost;
}

EntryId Classifier::Core::Step(EntryId from, uint32_t root) const {
  const EntryId sentinel = roots_[root]->content.sentinel;
  if (sentinel == kNoEntry) return kNoEntry;
  EntryId id = list_[from].next;
  while (id != sentinel && list_[id].removed) id = list_[id].next;
  return id == sentinel ? kNoEntry : id;
}

}  // namespace host::classifier
