// The changes: what Replace(), Insert() and Remove() do to a root.
#include "host/classifier/core.h"

#include <algorithm>
#include <cerrno>

#include "host/classifier/store_word.h"

namespace host::classifier {
namespace {

constexpr uint32_t kMostRoots = 1U << 20;

}  // namespace

bool Classifier::Core::Format() {
  Refusal refusal;
  if (memory_->Grow(CLS_CONTROL, 1) != 0) return false;
  memory_->control()->layout = CLS_LAYOUT_VERSION;
  StoreWord(&memory_->control()->generation, generation_);
  return true;
}

Root* Classifier::Core::Begin(uint32_t number, Refusal* refusal) {
  const uint32_t have = memory_->capacity(CLS_ROOTS);
  if (number >= have) {
    const uint32_t doubled = std::min(kMostRoots, std::max(number + 1, have * 2));
    int error = number >= kMostRoots ? -E2BIG : memory_->Grow(CLS_ROOTS, doubled);
    if (error != 0 && number < kMostRoots) error = memory_->Grow(CLS_ROOTS, number + 1);
    if (error != 0) {
      *refusal = NoRoom(CLS_ROOTS, number >= kMostRoots ? kMostRoots : have, number + 1, error);
      return nullptr;
    }
  }
  if (roots_.size() <= number) roots_.resize(number + 1);
  if (roots_[number] == nullptr) roots_[number] = std::make_unique<Root>();
  Root* root = roots_[number].get();
  if (root->update == nullptr) {
    root->update = std::make_unique<RootUpdate>();
    root->update->serial = ++serial_;
    // Not the index: its changes are undone one by one.
    RootContent& old = root->update->old_content;
    old.sentinel = root->content.sentinel;
    old.entries = root->content.entries;
    old.shadowed = root->content.shadowed;
    updated_.push_back(number);
  }
  if (root->content.sentinel == kNoEntry) {
    root->content.sentinel = list_.Create(number);
    list_[root->content.sentinel].touched = root->update->serial;
    root->update->created.push_back(root->content.sentinel);
  }
  return root;
}

void Classifier::Core::Touch(Root* root, EntryId id) {
  Node& node = list_[id];
  if (node.touched == root->update->serial) return;
  root->update->before.emplace_back(id, node);
  node.touched = root->update->serial;
}

uint32_t Classifier::Core::NewRecord(Root* root, const Rule& rule, Refusal* refusal) {
  const uint32_t record = arena_.entries.Create(rule, refusal);
  if (record == 0) return 0;
  arena_.entries.known(record).fresh = true;
  RootUpdate& update = *root->update;
  (update.regrouped ? update.fresh_in_new : update.fresh).push_back(record);
  return record;
}

bool Classifier::Core::Replace(uint32_t number, const Rule* rules, size_t count, EntryId* ids,
                               Refusal* refusal) {
  Discard(number);
  Root* root = Begin(number, refusal);
  if (root == nullptr) return false;
  RootUpdate& update = *root->update;
  update.refused = true;  // until all is done
  const EntryId old_sentinel = root->content.sentinel;
  for (EntryId id = list_[old_sentinel].next; id != old_sentinel; id = list_[id].next) {
    update.removed.push_back(id);
    if (!list_[id].linked) update.dropped.push_back(list_[id].record);
  }
  update.removed.push_back(old_sentinel);
  update.replaced = true;
  update.old_content.index = std::move(root->content.index);
  root->content = RootContent();
  root->content.index.Reserve(count);
  root->content.sentinel = list_.Create(number);
  update.created.push_back(root->content.sentinel);

  const auto step = static_cast<uint32_t>((kLastLabel - 1ULL) / (count + 1));
  EntryId last = root->content.sentinel;
  for (size_t i = 0; i < count; ++i) {
    const EntryId id = list_.Create(number);
    update.created.push_back(id);
    if (ids != nullptr) ids[i] = id;
    Node& node = list_[id];
    node.touched = update.serial;
    node.label = step * static_cast<uint32_t>(i + 1);
    node.prev = last;
    node.next = root->content.sentinel;
    list_[last].next = id;
    list_[root->content.sentinel].prev = id;
    last = id;
    node.record = NewRecord(root, rules[i], refusal);
    if (node.record == 0) return false;
    ++root->content.entries;
    const EntryId first = root->content.index.Find(arena_.entries, list_, node.record);
    if (first == kNoEntry) {
      root->content.index.Add(arena_.entries, list_, id);
    } else {
      ++root->content.shadowed;
      JoinTwins(root, id, first);
    }
  }
  if (!Regroup(number, refusal)) return false;
  update.refused = false;
  return true;
}

EntryId Classifier::Core::Insert(uint32_t number, EntryId after, const Rule& rule,
                                 Refusal* refusal) {
  Root* root = Begin(number, refusal);
  if (root == nullptr || root->update->refused) return kNoEntry;
  RootUpdate& update = *root->update;
  update.refused = true;  // until all is done
  const uint32_t record = NewRecord(root, rule, refusal);
  if (record == 0) return kNoEntry;
  const EntryId sentinel = root->content.sentinel;
  const EntryId before = after == kNoEntry ? sentinel : after;
  const EntryId first = root->content.index.Find(arena_.entries, list_, record);
  const bool shadowed =
      first != kNoEntry && before != sentinel && list_[first].label <= list_[before].label;
  const uint32_t label = MakeLabel(number, before, shadowed, refusal);
  if (label == 0) return kNoEntry;

  const EntryId id = list_.Create(number);
  update.created.push_back(id);
  const EntryId next = list_[before].next;
  Touch(root, before);
  Touch(root, next);
  Node& node = list_[id];
  node.touched = update.serial;
  node.record = record;
  node.label = label;
  node.prev = before;
  node.next = next;
  list_[before].next = id;
  list_[next].prev = id;
  ++root->content.entries;
  if (first != kNoEntry) {
    ++root->content.shadowed;
    JoinTwins(root, id, first);
  }
  if (!shadowed) {
    if (first != kNoEntry) {
      EraseFromIndex(root, first);
      if (!Demote(root, first, refusal)) return kNoEntry;
    }
    AddToIndex(root, id);
    if (!Activate(number, id, refusal)) return kNoEntry;
  }
  update.refused = false;
  return id;
}

bool Classifier::Core::Remove(EntryId id, Refusal* refusal) {
  const uint32_t number = list_[id].root;
  Root* root = Begin(number, refusal);
  if (root == nullptr || root->update->refused || list_[id].removed) return false;
  RootUpdate& update = *root->update;
  Touch(root, id);
  list_[id].removed = true;
  update.removed.push_back(id);
  --root->content.entries;
  const EntryId twin = list_[id].twin_next;
  if (!IsFirstTwin(id)) {
    --root->content.shadowed;
    LeaveTwins(root, id);
    update.dropped.push_back(list_[id].record);
    return true;
  }
  EraseFromIndex(root, id);
  Kill(root, id);
  if (twin == id) return true;
  --root->content.shadowed;
  LeaveTwins(root, id);
  AddToIndex(root, twin);
  update.refused = !Activate(number, twin, refusal);
  return !update.refused;
}

uint32_t Classifier::Core::MakeLabel(uint32_t number, EntryId before, bool tight,
                                     Refusal* refusal) {
  const EntryId sentinel = roots_[number]->content.sentinel;
  const uint32_t label = list_.LabelAfter(before, sentinel, tight);
  if (label != 0) return label;
  if (!Relabel(number, before, refusal)) return 0;
  return list_.LabelAfter(before, sentinel, tight);
}

bool Classifier::Core::Relabel(uint32_t number, EntryId around, Refusal* refusal) {
  Root* root = roots_[number].get();
  const EntryList::Spread spread = list_.SpreadAround(around, root->content.sentinel);
  EntryId id = spread.first;
  for (size_t i = 0; i < spread.count; ++i, id = list_[id].next) {
    Touch(root, id);
    list_[id].label = spread.first_label + static_cast<uint32_t>(i) * spread.step;
  }
  id = spread.first;
  for (size_t i = 0; i < spread.count; ++i, id = list_[id].next) {
    if (!list_[id].linked || list_[id].removed) continue;
    // Labels of a group that was made meanwhile are the new ones.
    const uint32_t record = list_[id].record;
    if (arena_.entries.head(record).label == list_[id].label) continue;
    Kill(root, id);
    if (!Activate(number, id, refusal)) return false;
  }
  return true;
}

bool Classifier::Core::IsFirstTwin(EntryId id) const {
  const EntryId prev = list_[id].twin_prev;
  return prev == id || list_[prev].label > list_[id].label;
}

void Classifier::Core::JoinTwins(Root* root, EntryId id, EntryId first) {
  // From the last one on, as entries mostly come in ascending order.
  EntryId before = list_[first].twin_prev;
  while (list_[before].label > list_[id].label && before != first) before = list_[before].twin_prev;
  // In front of the first is behind the last.
  if (list_[before].label > list_[id].label) before = list_[first].twin_prev;
  const EntryId next = list_[before].twin_next;
  Touch(root, before);
  Touch(root, next);
  list_[id].twin_prev = before;
  list_[id].twin_next = next;
  list_[before].twin_next = id;
  list_[next].twin_prev = id;
}

void Classifier::Core::LeaveTwins(Root* root, EntryId id) {
  Touch(root, list_[id].twin_prev);
  Touch(root, list_[id].twin_next);
  list_[list_[id].twin_prev].twin_next = list_[id].twin_next;
  list_[list_[id].twin_next].twin_prev = list_[id].twin_prev;
  list_[id].twin_prev = list_[id].twin_next = id;
}

void Classifier::Core::AddToIndex(Root* root, EntryId id) {
  root->content.index.Add(arena_.entries, list_, id);
  if (!root->update->replaced) root->update->index_changes.push_back({true, id});
}

void Classifier::Core::EraseFromIndex(Root* root, EntryId id) {
  root->content.index.Erase(arena_.entries, list_, id);
  if (!root->update->replaced) root->update->index_changes.push_back({false, id});
}

// Puts the entry into a table. Its record is a new one, unless it is just that.
bool Classifier::Core::Activate(uint32_t number, EntryId id, Refusal* refusal) {
  Root* root = roots_[number].get();
  RootUpdate& update = *root->update;
  Touch(root, id);
  if (root->group == nullptr) return Regroup(number, refusal);
  uint32_t record = list_[id].record;
  const EntryStore::Known known = arena_.entries.known(record);
  if (known.state != EntryStore::State::kLoose || !known.fresh) {
    if (known.state == EntryStore::State::kLoose) update.dropped.push_back(record);
    record = NewRecord(root, arena_.entries.RuleOf(record), refusal);
    if (record == 0) return false;
    list_[id].record = record;
  }
  switch (root->group->Link(record, list_[id].label, next_generation(), refusal)) {
    case TableGroup::Linked::kNoRoom:
      return false;
    case TableGroup::Linked::kNoTable:
      return Regroup(number, refusal);
    case TableGroup::Linked::kYes:
      break;
  }
  list_[id].linked = true;
  update.linked = true;
  return true;
}

// Ends the entry's time in its table, from the next generation on.
void Classifier::Core::Kill(Root* root, EntryId id) {
  Touch(root, id);
  const uint32_t record = list_[id].record;
  list_[id].linked = false;
  if (arena_.entries.known(record).fresh) {
    root->group->Unlink(record);  // it has never been in force
    return;
  }
  arena_.entries.known(record).dying = true;
  StoreWord(&arena_.entries.body(record).died, next_generation());
  root->update->dying.push_back(record);
  root->update->linked = true;
}

// Takes the entry out of its table, as another of the same match stands before it now.
bool Classifier::Core::Demote(Root* root, EntryId id, Refusal* refusal) {
  const Rule rule = arena_.entries.RuleOf(list_[id].record);
  Kill(root, id);
  const uint32_t record = NewRecord(root, rule, refusal);
  if (record == 0) return false;
  list_[id].record = record;
  return true;
}

bool Classifier::Core::Regroup(uint32_t number, Refusal* refusal) {
  Root* root = roots_[number].get();
  RootUpdate& update = *root->update;
  if (!update.regrouped) {
    update.regrouped = true;
    update.old_group = root->group;
  } else if (root->group != nullptr) {  // made by this update, no search has seen it
    root->group->Release(true);
  }
  root->group = nullptr;
  std::vector<uint32_t> records;
  std::vector<uint32_t> labels;
  const EntryId sentinel = root->content.sentinel;
  for (EntryId id = list_[sentinel].next; id != sentinel; id = list_[id].next) {
    if (list_[id].removed || !IsFirstTwin(id)) continue;
    Touch(root, id);
    uint32_t record = list_[id].record;
    const EntryStore::Known known = arena_.entries.known(record);
    if (known.state != EntryStore::State::kLoose || !known.fresh) {
      if (known.state == EntryStore::State::kLoose) update.dropped.push_back(record);
      record = NewRecord(root, arena_.entries.RuleOf(record), refusal);
      if (record == 0) return false;
    }
    list_[id].record = record;
    list_[id].linked = true;
    records.push_back(record);
    labels.push_back(list_[id].label);
  }
  std::shared_ptr<TableGroup> group;
  if (!records.empty()) {
    group = TableGroup::Build(&arena_, records, labels, next_generation(), refusal);
    if (group == nullptr) return false;
  }
  update.linked = true;
  return SwitchGroup(number, std::move(group));
}

bool Classifier::Core::SwitchGroup(uint32_t number, std::shared_ptr<TableGroup> group) {
  Root* root = roots_[number].get();
  const uint32_t word = 1U - root->choice;
  if (CLS_BIRTH_OF(Words(number).choice[word]) <= generation_ && Words(number).choice[word] != 0) {
    // Searches that began before the last switch may still need what that word names.
    const uint64_t ticket = TakeTicket();
    memory_->WaitForReaders();
    GracePassed(ticket);
  }
  const uint64_t index = group == nullptr ? 0 : group->index();
  StoreWord(&Words(number).choice[word], next_generation() << CLS_GROUP_BITS | index);
  root->group = std::move(group);
  return true;
}

bool Classifier::Core::Tidy() {
  Refusal refusal;
  for (uint32_t number = 0; number < roots_.size(); ++number) {
    const Root* root = roots_[number].get();
    if (root == nullptr || root->update != nullptr || root->group == nullptr) continue;
    if (root->content.entries == 0) return Replace(number, nullptr, 0, nullptr, &refusal);
    if (!root->group->Outgrown()) continue;
    Begin(number, &refusal);
    if (Regroup(number, &refusal)) return true;
    Discard(number);
  }
  return false;
}

}  // namespace host::classifier
