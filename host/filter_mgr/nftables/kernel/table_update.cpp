#include "host/filter_mgr/nftables/kernel/table_update.h"

#include <algorithm>
#include <set>

namespace host {
namespace {

constexpr std::array<GroupSlot, kGroupSlots> kSlots = {kL2, kL3};

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

std::vector<RulePtr> Jumps(const Layout& layout) {
  std::vector<RulePtr> jumps;
  for (const ChunkPlan& chunk : layout.chunks) jumps.push_back(JumpTo(chunk.number, chunk.guard));
  return jumps;
}

// Chunks that rules are moved from.
std::set<uint32_t> MovedFrom(const Layout& layout) {
  std::set<uint32_t> chunks;
  for (const auto& [index, place] : layout.moved) chunks.insert(place.chunk);
  return chunks;
}

// Notes, by index, the carried hits of the rules that stay in an edited chunk.
void NoteCarried(const HeldChain& held, const ChunkPlan& chunk, const std::vector<RulePtr>& rules,
                 std::map<size_t, Hits>* carried) {
  if (std::all_of(held.rules.begin(), held.rules.end(),
                  [](const HeldRule& rule) { return rule.carried.packets == 0; })) {
    return;
  }
  std::vector<const Rule*> before, now;
  for (const HeldRule& rule : held.rules) before.push_back(rule.rule.get());
  for (size_t i = chunk.begin; i < chunk.end; ++i) now.push_back(rules[i].get());
  const std::vector<int> places = MatchRules(before, now);
  for (size_t i = 0; i < places.size(); ++i) {
    if (places[i] < 0) continue;
    (*carried)[chunk.begin + i] = held.rules[static_cast<size_t>(places[i])].carried;
  }
}

// Only a table made to persist can be taken over, and only one that nobody owns needs to be.
bool CanClaim(uint32_t held, uint32_t wanted) {
  return wanted != 0 && (held & kTablePersist) != 0 && (held & kTableOwner) == 0;
}

}  // namespace

std::string ChainRef::Name() const { return chunk ? ChunkName(slot, *chunk) : BaseChainName(slot); }

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
    group.layout =
        PlanLayout(held_ == nullptr ? NoGroup() : held_->groups[slot], *group.rules, /*anew=*/true);
  }
}

void TableUpdate::PlanEdit(const DesiredTable& desired) {
  claim_ = CanClaim(held_->flags, desired.flags);
  if (claim_) action_ = Action::kEdit;
  for (const GroupSlot slot : kSlots) {
    GroupUpdate& group = groups_[slot];
    if (group.rules == nullptr) continue;
    group.layout = PlanLayout(held_->groups[slot], *group.rules);
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
      if (!chunk.changed || chunk.is_new) continue;
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
  for (const GroupSlot slot : kSlots) batch->AddBaseChain(table_, slot, *port_);
}

void TableUpdate::EncodeGroup(GroupSlot slot, NftBatch* batch) const {
  const Layout& layout = groups_[slot].layout;
  for (const ChunkPlan& chunk : layout.chunks) {
    if (chunk.is_new || chunk.changed) EncodeChunk(slot, chunk, batch);
  }
  batch->SetOrigin({port_, slot, -1});
  if (layout.order_changed) EncodeJumps(slot, batch);
  const std::set<uint32_t> moved_from = MovedFrom(layout);
  for (uint32_t number : layout.removed) {
    batch->DeleteChain(table_, ChunkName(slot, number), moved_from.count(number) != 0);
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
  const ChainEdit edit = EditChain(HeldChunk(slot, chunk), RulesOf(slot, chunk));
  batch->SetOrigin({port_, slot, -1});
  if (chunk.is_new) batch->AddChain(table_, name);
  if (edit.flush) batch->FlushChain(table_, name);
  const bool tell = MovedFrom(groups_[slot].layout).count(chunk.number) != 0;
  for (uint64_t handle : edit.deletes) batch->DeleteRule(table_, name, handle, tell);
  for (const RuleInsert& insert : edit.inserts) {
    const size_t index = chunk.begin + insert.index;
    const HeldRule* const old = MovedRule(slot, index);
    batch->SetOrigin({port_, slot, static_cast<int64_t>(index)});
    batch->AddRule(table_, name, *insert.rule, chunk.guard, slot,
                   old == nullptr ? Hits{} : old->hits + old->carried, insert.before);
  }
}

void TableUpdate::EncodeJumps(GroupSlot slot, NftBatch* batch) const {
  const std::string base = BaseChainName(slot);
  const ChainEdit edit = EditChain(HeldOf(slot).base, Jumps(groups_[slot].layout));
  if (edit.flush) batch->FlushChain(table_, base);
  for (uint64_t handle : edit.deletes) batch->DeleteRule(table_, base, handle);
  for (const RuleInsert& insert : edit.inserts) {
    batch->AddRule(table_, base, *insert.rule, {}, slot, {}, insert.before);
  }
}

void TableUpdate::Commit(const BatchResult& result, HeldTables* tables) const {
  switch (action_) {
    case Action::kNone:
      break;
    case Action::kRemove:
      tables->erase(*port_);
      return;
    case Action::kBuild:
      (*tables)[*port_] = HeldTable{flags_, false, true, {}};
      break;
    case Action::kEdit:
      if (claim_) tables->at(*port_).flags = flags_;
      break;
  }
  const auto it = tables->find(*port_);
  if (it == tables->end()) return;
  for (const GroupSlot slot : kSlots) {
    if (groups_[slot].rules != nullptr) CommitGroup(slot, result, &it->second.groups[slot]);
  }
}

void TableUpdate::CommitGroup(GroupSlot slot, const BatchResult& result, HeldGroup* held) const {
  const Layout& layout = groups_[slot].layout;
  const std::vector<RulePtr>& rules = *groups_[slot].rules;
  std::map<size_t, Hits> carried;  // by index of the rule
  for (const auto& [index, place] : layout.moved) {
    if (action_ == Action::kBuild) break;
    const HeldRule& old = *MovedRule(slot, index);
    const auto last = result.last_hits.find({table_, old.handle});
    if (last != result.last_hits.end()) carried[index] = last->second.Since(old.hits);
  }
  for (const ChunkPlan& chunk : layout.chunks) {
    if (chunk.is_new || !chunk.changed) continue;
    NoteCarried(held->chunks.at(chunk.number), chunk, rules, &carried);
  }
  for (uint32_t number : layout.removed) held->chunks.erase(number);
  for (const ChunkPlan& chunk : layout.chunks) {
    HeldChain& chain = held->chunks[chunk.number];
    if (chunk.changed) {
      chain = {chunk.guard, std::vector<HeldRule>(chunk.end - chunk.begin)};
      for (size_t i = chunk.begin; i < chunk.end; ++i) {
        const auto hits = carried.find(i);
        if (hits != carried.end()) chain.rules[i - chunk.begin].carried = hits->second;
      }
    }
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
  for (const ChunkPlan& chunk : layout.chunks) {
    held->order.push_back(chunk.number);
    held->base.rules.push_back({JumpTo(chunk.number, chunk.guard), 0, {}, {}});
  }
}

}  // namespace host
