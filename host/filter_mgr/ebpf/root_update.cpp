#include "host/filter_mgr/ebpf/root_update.h"

#include <algorithm>
#include <set>
#include <unordered_map>

#include "host/filter_mgr/ebpf/entry_rule.h"

namespace host {
namespace {

using classifier::kNoEntry;
using classifier::Rule;

// How far apart the two may be to meet again without an alignment of all that follows.
constexpr size_t kReach = 64;
// So many entries that follow each other in both are where the two meet again.
constexpr size_t kRow = 4;
constexpr size_t kNowhere = SIZE_MAX;

struct EffectHash {
  size_t operator()(const Rule& rule) const {
    return classifier::Hash(rule.value) * 31 + classifier::Hash(rule.mask) + rule.action +
           (size_t{rule.pcp} << 4);
  }
};
struct EffectEqual {
  bool operator()(const Rule& a, const Rule& b) const { return SameEffect(a, b); }
};

// Marks a longest strictly ascending subsequence of `places`, without those that are `none`.
std::vector<bool> LongestAscending(const std::vector<size_t>& places, size_t none) {
  std::vector<size_t> tails, previous(places.size(), none);  // indices into places
  for (size_t i = 0; i < places.size(); ++i) {
    if (places[i] == none) continue;
    const auto it =
        std::lower_bound(tails.begin(), tails.end(), places[i],
                         [&](size_t tail, size_t place) { return places[tail] < place; });
    if (it != tails.begin()) previous[i] = *(it - 1);
    if (it == tails.end()) {
      tails.push_back(i);
    } else {
      *it = i;
    }
  }
  std::vector<bool> marked(places.size());
  for (size_t i = tails.empty() ? none : tails.back(); i != none; i = previous[i]) marked[i] = true;
  return marked;
}

}  // namespace

const void* UnknownIdentity() {
  static const char unknown = 0;
  return &unknown;
}

bool RootUpdate::Part(const FiltersCommon::FiltersEntry& entry, std::string* reason) {
  const auto rule = RuleOfEntry(entry, reason);
  if (!rule) return false;
  const Wanted wanted{entry.contentIdentity(), *rule};
  if (pending_.empty() && cursor_ < end_ && (*held_)[cursor_].identity == UnknownIdentity() &&
      SameEffect(classifier_->RuleOf((*held_)[cursor_].id), *rule)) {
    Meet(cursor_, wanted.identity);
    return true;
  }
  pending_.push_back(wanted);
  if (aligning_ || cursor_ == end_) return true;
  const size_t place = FindNear(wanted);
  row_ = place == end_ ? 0 : row_ != 0 && place == last_ + 1 ? row_ + 1 : 1;
  last_ = place;
  if (row_ == kRow) Align(place + 1);
  aligning_ = pending_.size() > kReach;
  return true;
}

size_t RootUpdate::FindNear(const Wanted& wanted) const {
  const size_t end = std::min(end_, cursor_ + kReach);
  const auto is_same = [&](size_t at) {
    const HeldEntry& held = (*held_)[at];
    return held.identity == wanted.identity ||
           (held.identity == UnknownIdentity() &&
            SameEffect(classifier_->RuleOf(held.id), wanted.rule));
  };
  if (row_ != 0 && last_ + 1 < end_ && is_same(last_ + 1)) return last_ + 1;
  for (size_t at = cursor_; at < end; ++at) {
    if (is_same(at)) return at;
  }
  return end_;
}

void RootUpdate::Meet(size_t at, const void* identity) {
  if (at != cursor_ || !pending_.empty()) {
    edits_.push_back({cursor_, at - cursor_, added_.size(), pending_.size()});
    added_.insert(added_.end(), pending_.begin(), pending_.end());
    pending_.clear();
  }
  if ((*held_)[at].identity != identity) renamed_.push_back({at, identity});
  cursor_ = at + 1;
}

std::vector<size_t> RootUpdate::FindPlaces(size_t end) const {
  std::vector<size_t> places(pending_.size(), kNowhere);
  std::vector<bool> found(end - cursor_);
  const auto find_in = [&](auto* places_of, const auto& key_of_held, const auto& key_of_wanted) {
    for (size_t i = end; i-- > cursor_;) {
      if (!found[i - cursor_]) (*places_of)[key_of_held((*held_)[i])].push_back(i);
    }
    for (size_t i = 0; i < pending_.size(); ++i) {
      if (places[i] != kNowhere) continue;
      const auto it = places_of->find(key_of_wanted(pending_[i]));
      if (it == places_of->end() || it->second.empty()) continue;
      places[i] = it->second.back();  // the earliest that is left
      found[places[i] - cursor_] = true;
      it->second.pop_back();
    }
  };
  std::unordered_map<const void*, std::vector<size_t>> by_identity;
  find_in(
      &by_identity, [](const HeldEntry& held) { return held.identity; },
      [](const Wanted& wanted) { return wanted.identity; });
  std::unordered_map<Rule, std::vector<size_t>, EffectHash, EffectEqual> by_effect;
  find_in(
      &by_effect, [this](const HeldEntry& held) { return classifier_->RuleOf(held.id); },
      [](const Wanted& wanted) { return wanted.rule; });
  return places;
}

void RootUpdate::Align(size_t end) {
  const std::vector<size_t> places = FindPlaces(end);
  const std::vector<bool> stays = LongestAscending(places, kNowhere);
  const std::vector<Wanted> wanted = std::move(pending_);
  pending_.clear();
  row_ = 0;
  for (size_t i = 0; i < wanted.size(); ++i) {
    if (stays[i]) {
      Meet(places[i], wanted[i].identity);
      continue;
    }
    pending_.push_back(wanted[i]);
    if (places[i] != kNowhere) pending_.back().from = places[i];
  }
}

void RootUpdate::Finish() {
  if (!pending_.empty()) Align(end_);
  if (cursor_ == end_ && pending_.empty()) return;
  edits_.push_back({cursor_, end_ - cursor_, added_.size(), pending_.size()});
  added_.insert(added_.end(), pending_.begin(), pending_.end());
  pending_.clear();
}

bool RootUpdate::Write(CounterSlots* slots, classifier::Refusal* refusal) {
  size_t erased = 0;
  for (const Edit& edit : edits_) erased += edit.erased;
  for (Wanted& wanted : added_) {
    if (wanted.from) {
      wanted.rule.counter = (*held_)[*wanted.from].counter;
    } else if (!slots->Take(&wanted.rule.counter, refusal)) {
      Undo(slots);
      return false;
    }
    ++counters_given_;
  }
  // Single changes of a small root cost less than new tables, too; but what is there from the
  // beginning gets tables that suit it.
  constexpr size_t kFew = 64;
  const bool few = !held_->empty() && erased + added_.size() <= std::max(held_->size() / 4, kFew);
  const bool ok = few ? WriteEdits(refusal) : WriteWhole(refusal);
  if (!ok) Undo(slots);
  return ok;
}

void RootUpdate::Undo(CounterSlots* slots) {
  for (; counters_given_ > 0; --counters_given_) {
    const Wanted& wanted = added_[counters_given_ - 1];
    if (!wanted.from) slots->Release(wanted.rule.counter);
  }
}

bool RootUpdate::WriteEdits(classifier::Refusal* refusal) {
  for (const Edit& edit : edits_) {
    // The entry in front of an edit always stays: two edits do not touch.
    classifier::EntryId after = edit.at == 0 ? kNoEntry : (*held_)[edit.at - 1].id;
    for (size_t i = edit.first; i < edit.first + edit.count; ++i) {
      after = added_[i].id = classifier_->Insert(root_, after, added_[i].rule, refusal);
      if (after == kNoEntry) return false;
    }
    for (size_t i = edit.at; i < edit.at + edit.erased; ++i) {
      if (!classifier_->Remove((*held_)[i].id, refusal)) return false;
    }
  }
  return true;
}

void RootUpdate::ForEach(const std::function<void(size_t)>& keep,
                         const std::function<void(Wanted*)>& add) {
  size_t at = 0;
  for (const Edit& edit : edits_) {
    for (; at < edit.at; ++at) keep(at);
    for (size_t i = edit.first; i < edit.first + edit.count; ++i) add(&added_[i]);
    at += edit.erased;
  }
  for (; at < held_->size(); ++at) keep(at);
}

bool RootUpdate::WriteWhole(classifier::Refusal* refusal) {
  std::vector<Rule> rules;
  rules.reserve(held_->size() + added_.size());
  ForEach([&](size_t at) { rules.push_back(classifier_->RuleOf((*held_)[at].id)); },
          [&](Wanted* wanted) { rules.push_back(wanted->rule); });
  ids_.resize(rules.size());
  return classifier_->Replace(root_, rules.data(), rules.size(), ids_.data(), refusal);
}

void RootUpdate::Commit(std::vector<HeldEntry>* held, std::vector<uint32_t>* freed) {
  for (const Renaming& renaming : renamed_) (*held)[renaming.at].identity = renaming.identity;
  std::set<size_t> kept;  // places whose counters are in use elsewhere
  for (const Wanted& wanted : added_) {
    if (wanted.from) kept.insert(*wanted.from);
  }
  for (const Edit& edit : edits_) {
    for (size_t i = edit.at; i < edit.at + edit.erased; ++i) {
      if (kept.count(i) == 0) freed->push_back((*held)[i].counter);
    }
  }
  const auto entry_of = [](const Wanted& wanted) {
    return HeldEntry{wanted.identity, wanted.id, wanted.rule.counter};
  };
  if (edits_.size() == 1 && ids_.empty()) {  // by far the most common: no copy of all
    const Edit& edit = edits_.front();
    const auto at = held->begin() + static_cast<ptrdiff_t>(edit.at);
    const auto rest = held->erase(at, at + static_cast<ptrdiff_t>(edit.erased));
    std::vector<HeldEntry> entries;
    for (const Wanted& wanted : added_) entries.push_back(entry_of(wanted));
    held->insert(rest, entries.begin(), entries.end());
  } else if (!edits_.empty()) {
    std::vector<HeldEntry> entries;
    entries.reserve(held->size() + added_.size());
    ForEach([&](size_t at) { entries.push_back((*held)[at]); },
            [&](Wanted* wanted) { entries.push_back(entry_of(*wanted)); });
    for (size_t i = 0; i < ids_.size(); ++i) entries[i].id = ids_[i];
    *held = std::move(entries);
  }
}

}  // namespace host
