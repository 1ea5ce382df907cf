#include "host/filter_mgr/nftables/kernel/table_update.h"

#include <algorithm>
#include <set>

namespace host {
namespace {

const HeldGroup& NoGroup() {
  static const HeldGroup kNone;
  return kNone;
}

const HeldChain& NoChain() {
  static const HeldChain kNone;
  return kNone;
}

// The rules of a group as far as they could be read.
std::vector<RulePtr> Salvage(const HeldGroup& held) {
  std::vector<RulePtr> rules;
  for (uint32_t number : held.order) {
    for (const HeldRule& rule : held.chunks.at(number).rules) {
      if (!rule.rule->foreign) rules.push_back(rule.rule);
    }
  }
  return rules;
}

bool HasRules(const HeldGroup& held) { return !held.chunks.empty(); }

std::vector<const Rule*> Pointers(const std::vector<RulePtr>& rules) {
  std::vector<const Rule*> pointers;
  pointers.reserve(rules.size());
  for (const RulePtr& rule : rules) pointers.push_back(rule.get());
  return pointers;
}

std::vector<const Rule*> Pointers(const HeldChain& chain) {
  std::vector<const Rule*> pointers;
  for (const HeldRule& held : chain.rules) pointers.push_back(held.rule.get());
  return pointers;
}

// Chunks that rules are moved from.
std::set<uint32_t> MovedFrom(const Layout& layout) {
  std::set<uint32_t> chunks;
  for (const auto& [index, place] : layout.moved) chunks.insert(place.chunk);
  return chunks;
}

// Only a table made to persist can be taken over, and only one that nobody owns needs to be.
bool CanClaim(uint32_t held, uint32_t wanted) {
  return wanted != 0 && (held & kTablePersist) != 0 && (held & kTableOwner) == 0;
}

}  // namespace

std::string ChainRef::Name() const {
  return chunk ? ChunkName(slot, *chunk) : GroupChainName(slot);
}

TableUpdate::TableUpdate(const std::string& port, const HeldTable* held,
                         const DesiredTable& desired)
    : port_(&port), table_(TableName(port)), held_(held), flags_(desired.flags) {
  bool wanted = false;
  for (const GroupSlot slot : kSlots) {
    groups_[slot].rules = desired.rules[slot];
    if (desired.rules[slot] != nullptr) {
      wanted = wanted || !desired.rules[slot]->empty();
    } else {
      wanted = wanted || (held != nullptr && HasRules(held->groups[slot]));
    }
  }
  if (!wanted) {
    if (held != nullptr) action_ = Action::kRemove;
  } else if (held == nullptr || !held->sound) {
    PlanBuild();
  } else {
    PlanEdit(desired);
  }
}

void TableUpdate::PlanBuild() {
  action_ = Action::kBuild;
  for (const GroupSlot slot : kSlots) {
    GroupUpdate& group = groups_[slot];
    if (group.rules == nullptr) {
      group.salvaged = std::make_unique<const std::vector<RulePtr>>(
          Salvage(held_ == nullptr ? NoGroup() : held_->groups[slot]));
      group.rules = group.salvaged.get();
    }
    group.layout = PlanLayout(held_ == nullptr ? NoGroup() : held_->groups[slot], *group.rules,
                              ChunkOrderOf(slot), /*anew=*/true);
  }
}

void TableUpdate::PlanEdit(const DesiredTable& desired) {
  claim_ = CanClaim(held_->flags, desired.flags);
  if (claim_) action_ = Action::kEdit;
  for (const GroupSlot slot : kSlots) {
    GroupUpdate& group = groups_[slot];
    if (group.rules == nullptr) continue;
    group.layout = PlanLayout(held_->groups[slot], *group.rules, ChunkOrderOf(slot));
    if (!group.layout.NothingToDo()) action_ = Action::kEdit;
  }
}

const HeldGroup& TableUpdate::HeldOf(GroupSlot slot) const {
  return action_ == Action::kBuild ? NoGroup() : held_->groups[slot];
}

const HeldChain& TableUpdate::HeldChunk(GroupSlot slot, const ChunkPlan& chunk) const {
  return chunk.is_new ? NoChain() : HeldOf(slot).chunks.at(chunk.number);
}

std::vector<RulePtr> TableUpdate::RulesOf(GroupSlot slot, const ChunkPlan& chunk) const {
  const auto begin = groups_[slot].rules->begin();
  return {begin + static_cast<ptrdiff_t>(chunk.begin), begin + static_cast<ptrdiff_t>(chunk.end)};
}

std::vector<ChainRef> TableUpdate::ChainsToRead() const {
  std::vector<ChainRef> chains;
  for (const GroupSlot slot : kSlots) {
    if (groups_[slot].rules == nullptr) continue;
    const Layout& layout = groups_[slot].layout;
    std::set<uint32_t> moved_from = MovedFrom(layout);
    if (layout.order_changed && !HeldOf(slot).order.empty()) chains.push_back({slot, {}});
    for (const ChunkPlan& chunk : layout.chunks) {
      if (!(chunk.changed || chunk.relinked) || chunk.is_new) continue;
      chains.push_back({slot, chunk.number});
      moved_from.erase(chunk.number);
    }
    for (uint32_t number : moved_from) chains.push_back({slot, number});
  }
  return chains;
}

void TableUpdate::Encode(NftBatch* batch) const {
  batch->SetOrigin({port_, kL2, -1});
  if (action_ == Action::kRemove) batch->DeleteTable(table_);
  if (action_ == Action::kBuild) EncodeFrame(batch);
  if (claim_) batch->AddTable(table_, flags_);
  if (action_ != Action::kBuild && action_ != Action::kEdit) return;
  for (const GroupSlot slot : kSlots) {
    if (groups_[slot].rules != nullptr) EncodeGroup(slot, batch);
  }
}

void TableUpdate::EncodeFrame(NftBatch* batch) const {
  if (held_ != nullptr) batch->DeleteTable(table_);
  batch->AddTable(table_, flags_);
  for (const FixedSet& set : FixedSets()) batch->AddSet(table_, set);
  batch->AddBaseChain(table_, *port_);
  for (const GroupSlot slot : kSlots) {
    batch->AddChain(table_, GroupChainName(slot));
    batch->AddJump(table_, kIngressChain, GroupChainName(slot));
  }
}

void TableUpdate::EncodeGroup(GroupSlot slot, NftBatch* batch) const {
  const Layout& layout = groups_[slot].layout;
  for (const ChunkPlan& chunk : layout.chunks) {
    if (chunk.is_new || chunk.changed || chunk.relinked) EncodeChunk(slot, chunk, batch);
  }
  batch->SetOrigin({port_, slot, -1});
  EncodeLinks(slot, batch);
  if (layout.order_changed) EncodeJumps(slot, batch);
  const std::set<uint32_t> moved_from = MovedFrom(layout);
  for (uint32_t number : layout.removed) {
    const size_t tell =
        moved_from.count(number) != 0 ? held_->groups[slot].chunks.at(number).rules.size() : 0;
    batch->DeleteChain(table_, ChunkName(slot, number), tell);
  }
}

const HeldRule* TableUpdate::MovedRule(GroupSlot slot, size_t index) const {
  const auto& moved = groups_[slot].layout.moved;
  const auto it = moved.find(index);
  if (it == moved.end()) return nullptr;
  return &held_->groups[slot].chunks.at(it->second.chunk).rules[it->second.index];
}

void TableUpdate::EncodeChunk(GroupSlot slot, const ChunkPlan& chunk, NftBatch* batch) const {
  const std::string name = ChunkName(slot, chunk.number);
  const HeldChain& held = HeldChunk(slot, chunk);
  const std::vector<int> none(chunk.end - chunk.begin, -1);
  ChainEdit edit;
  if (chunk.changed) {
    edit = EditChain(held, RulesOf(slot, chunk), chunk.is_new ? none : chunk.places);
  }
  batch->SetOrigin({port_, slot, -1});
  if (chunk.is_new) batch->AddChain(table_, name);
  if (edit.flush) batch->FlushChain(table_, name);
  const bool tell = MovedFrom(groups_[slot].layout).count(chunk.number) != 0;
  for (uint64_t handle : edit.deletes) batch->DeleteRule(table_, name, handle, tell);
  // A link that stays is the last rule.
  if (held.link && chunk.relinked) batch->DeleteRule(table_, name, held.link->handle);
  const uint64_t end = held.link && !chunk.relinked ? held.link->handle : 0;
  for (const RuleInsert& insert : edit.inserts) {
    const size_t index = chunk.begin + insert.index;
    const HeldRule* const old = MovedRule(slot, index);
    batch->SetOrigin({port_, slot, static_cast<int64_t>(index)});
    batch->AddRule(table_, name, *insert.rule, chunk.guard, slot,
                   old == nullptr ? Hits{} : old->hits + old->carried,
                   insert.before != 0 ? insert.before : end);
  }
}

// Once all chunks are there.
void TableUpdate::EncodeLinks(GroupSlot slot, NftBatch* batch) const {
  for (const ChunkPlan& chunk : groups_[slot].layout.chunks) {
    if (!chunk.relinked || !chunk.next) continue;
    batch->AddRule(table_, ChunkName(slot, chunk.number), *GoTo(*chunk.next), {}, slot, {}, 0);
  }
}

void TableUpdate::EncodeJumps(GroupSlot slot, NftBatch* batch) const {
  const std::string base = GroupChainName(slot);
  const HeldChain& held = HeldOf(slot).base;
  const std::vector<RulePtr> jumps = LeadingRules(groups_[slot].layout, ChunkOrderOf(slot));
  const ChainEdit edit = EditChain(held, jumps, MatchRules(Pointers(held), Pointers(jumps)));
  if (edit.flush) batch->FlushChain(table_, base);
  for (uint64_t handle : edit.deletes) batch->DeleteRule(table_, base, handle);
  for (const RuleInsert& insert : edit.inserts) {
    batch->AddRule(table_, base, *insert.rule, {}, slot, {}, insert.before);
  }
}

void TableUpdate::Commit(const BatchResult& result, HeldTables* tables) const {
  if (action_ == Action::kNone) return;
  if (action_ == Action::kRemove) {
    tables->erase(*port_);
    return;
  }
  HeldTable built{flags_, false, true, {}};
  HeldTable* const table = action_ == Action::kBuild ? &built : &tables->at(*port_);
  if (claim_) table->flags = flags_;
  for (const GroupSlot slot : kSlots) {
    if (groups_[slot].rules != nullptr) CommitGroup(slot, result, &table->groups[slot]);
  }
  if (action_ == Action::kBuild) (*tables)[*port_] = std::move(built);
}

HeldRule TableUpdate::NewRule(GroupSlot slot, size_t index, const BatchResult& result) const {
  const HeldRule* const old = MovedRule(slot, index);
  if (old == nullptr) return {};
  HeldRule rule;
  rule.hits = old->hits + old->carried;
  const auto last = result.last_hits.find({table_, old->handle});
  if (action_ == Action::kEdit && last != result.last_hits.end()) {
    rule.carried = last->second.Since(old->hits);
  }
  return rule;
}

void TableUpdate::CommitGroup(GroupSlot slot, const BatchResult& result, HeldGroup* held) const {
  const Layout& layout = groups_[slot].layout;
  const std::vector<RulePtr>& rules = *groups_[slot].rules;
  // By chunk number; made first, for rules may move from chunks that change or go.
  std::map<uint32_t, std::vector<HeldRule>> changed;
  for (const ChunkPlan& chunk : layout.chunks) {
    if (!chunk.changed) continue;
    std::vector<HeldRule>& now = changed[chunk.number];
    for (size_t i = chunk.begin; i < chunk.end; ++i) {
      const int place = chunk.is_new ? -1 : chunk.places[i - chunk.begin];
      now.push_back(place < 0 ? NewRule(slot, i, result)
                              : held->chunks.at(chunk.number).rules[static_cast<size_t>(place)]);
    }
  }
  for (uint32_t number : layout.removed) held->chunks.erase(number);
  for (const ChunkPlan& chunk : layout.chunks) {
    HeldChain& chain = held->chunks[chunk.number];
    if (chunk.changed) {
      chain.guard = chunk.guard;
      chain.rules = std::move(changed.at(chunk.number));
    }
    if (chunk.relinked) chain.link.reset();
    if (chunk.relinked && chunk.next) chain.link = HeldRule{GoTo(*chunk.next), 0, {}, {}};
    // Equal rules become the same one, which later comparisons see at a glance.
    for (size_t i = 0; i < chain.rules.size(); ++i) {
      if (chain.rules[i].rule != rules[chunk.begin + i]) {
        chain.rules[i].rule = rules[chunk.begin + i];
      }
    }
  }
  held->next_chunk = layout.next_chunk;
  if (!layout.order_changed) return;
  held->order.clear();
  held->base = {};
  for (const ChunkPlan& chunk : layout.chunks) held->order.push_back(chunk.number);
  for (RulePtr& rule : LeadingRules(layout, ChunkOrderOf(slot))) {
    held->base.rules.push_back({std::move(rule), 0, {}, {}});
  }
}

}  // namespace host
