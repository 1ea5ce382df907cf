// What becomes of changes: they are put in force, or taken back; and of what has died.
#include <algorithm>

#include "host/classifier/core.h"
#include "host/classifier/store_word.h"

namespace host::classifier {

bool Classifier::Core::changed() const {
  return std::any_of(updated_.begin(), updated_.end(),
                     [this](uint32_t number) { return roots_[number]->update->linked; });
}

void Classifier::Core::Publish() {
  const std::vector<uint32_t> numbers = updated_;
  for (const uint32_t number : numbers) {
    if (roots_[number]->update->refused) Discard(number);
  }
  if (changed()) StoreWord(&memory_->control()->generation, ++generation_);
  for (const uint32_t number : updated_) Settle(number);
  updated_.clear();
}

void Classifier::Core::Settle(uint32_t number) {
  Root* root = roots_[number].get();
  RootUpdate& update = *root->update;
  for (const auto* made : {&update.fresh, &update.fresh_in_new}) {
    for (const uint32_t record : *made) {
      arena_.entries.known(record).fresh = false;
      if (arena_.entries.known(record).state == EntryStore::State::kUnlinked) {
        arena_.Retire({0, Retired::kUnlinkedEntry, 0, record, 0, nullptr});
      }
    }
  }
  for (const uint32_t record : update.dropped) arena_.entries.Free(record);
  if (update.regrouped) {
    // What is dying goes with the group that it stands in.
    if (update.old_group != nullptr) {
      arena_.Retire({0, Retired::kGroup, 0, root->choice, number, update.old_group});
    } else {
      StoreWord(&Words(number).choice[root->choice], 0);
    }
    root->choice = 1 - root->choice;
  } else {
    for (const uint32_t record : update.dying) {
      arena_.Retire({0, Retired::kDeadEntry, 0, record, number, root->group});
    }
  }
  for (const EntryId id : update.removed) {
    list_[list_[id].prev].next = list_[id].next;
    list_[list_[id].next].prev = list_[id].prev;
    list_.Free(id);
  }
  root->update = nullptr;
}

void Classifier::Core::Discard(uint32_t number) {
  if (number >= roots_.size() || roots_[number] == nullptr || roots_[number]->update == nullptr) {
    return;
  }
  TakeBack(number);
  updated_.erase(std::find(updated_.begin(), updated_.end(), number));
}

void Classifier::Core::DiscardAll() {
  for (const uint32_t number : updated_) TakeBack(number);
  updated_.clear();
}

void Classifier::Core::TakeBack(uint32_t number) {
  Root* root = roots_[number].get();
  RootUpdate& update = *root->update;
  // The index first, while all that it compares stands where it stood.
  if (update.replaced) {
    root->content.index = std::move(update.old_content.index);
  }
  for (auto change = update.index_changes.rbegin(); change != update.index_changes.rend();
       ++change) {
    if (change->added) {
      root->content.index.Erase(arena_.entries, list_, change->id);
    } else {
      root->content.index.Add(arena_.entries, list_, change->id);
    }
  }
  for (const auto& [id, node] : update.before) list_[id] = node;
  root->content.sentinel = update.old_content.sentinel;
  root->content.entries = update.old_content.entries;
  root->content.shadowed = update.old_content.shadowed;
  if (update.regrouped) {
    cls_root& words = Words(number);
    const uint32_t word = 1U - root->choice;
    if (CLS_BIRTH_OF(words.choice[word]) > generation_) StoreWord(&words.choice[word], 0);
    if (root->group != nullptr) root->group->Release(true);
    root->group = update.old_group;
  }
  for (const uint32_t record : update.fresh_in_new) arena_.entries.Free(record);
  for (const uint32_t record : update.dying) {
    arena_.entries.known(record).dying = false;
    StoreWord(&arena_.entries.body(record).died, CLS_NEVER);
  }
  for (const uint32_t record : update.fresh) {
    switch (arena_.entries.known(record).state) {
      case EntryStore::State::kLoose:
        arena_.entries.Free(record);
        continue;
      case EntryStore::State::kLinked:
        root->group->Unlink(record);
        break;
      case EntryStore::State::kUnlinked:
        break;
    }
    arena_.Retire({0, Retired::kUnlinkedEntry, 0, record, 0, nullptr});
  }
  for (const EntryId id : update.created) list_.Free(id);
  root->update = nullptr;
}

void Classifier::Core::GracePassed(uint64_t ticket) {
  while (!arena_.retired.empty() && arena_.retired.front().ticket <= ticket) {
    const Retired what = std::move(arena_.retired.front());
    arena_.retired.pop_front();
    switch (what.kind) {
      case Retired::kDeadEntry:
        what.group->Unlink(what.index);
        arena_.Retire({0, Retired::kUnlinkedEntry, 0, what.index, 0, nullptr});
        break;
      case Retired::kUnlinkedEntry:
        arena_.entries.Free(what.index);
        break;
      case Retired::kSlots:
        arena_.slots.Free(what.index, what.log2);
        break;
      case Retired::kSieve:
        arena_.filters.Free(what.index, what.log2);
        break;
      case Retired::kGroup:
        StoreWord(&Words(what.root).choice[what.index], 0);
        what.group->Release();
        break;
    }
  }
}

}  // namespace host::classifier
