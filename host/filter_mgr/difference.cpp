#include "host/filter_mgr/difference.h"

#include <algorithm>
#include <unordered_map>

namespace host {
namespace {

struct RuleHash {
  size_t operator()(const Rule* rule) const { return HashRule(*rule); }
};
struct RuleEqual {
  bool operator()(const Rule* a, const Rule* b) const { return SameRule(*a, *b); }
};

// The longest strictly ascending subsequence of the non-negative numbers in `places`; the others
// are set to -1. (Patience sorting, O(n log n).)
void KeepLongestAscent(std::vector<int>* places) {
  std::vector<size_t> tails;                      // index of the last element per length
  std::vector<int> previous(places->size(), -1);  // index of the element before, per element
  for (size_t i = 0; i < places->size(); ++i) {
    const int place = (*places)[i];
    if (place < 0) continue;
    const auto it = std::lower_bound(tails.begin(), tails.end(), place,
                                     [&](size_t t, int p) { return (*places)[t] < p; });
    if (it != tails.begin()) previous[i] = static_cast<int>(*(it - 1));
    if (it == tails.end()) {
      tails.push_back(i);
    } else {
      *it = i;
    }
  }
  std::vector<int> kept(places->size(), -1);
  for (int i = tails.empty() ? -1 : static_cast<int>(tails.back()); i >= 0; i = previous[i]) {
    kept[i] = (*places)[i];
  }
  *places = std::move(kept);
}

bool Same(const Rule* a, const Rule* b) { return SameRule(*a, *b); }

}  // namespace

std::vector<int> MatchRules(const std::vector<const Rule*>& before,
                            const std::vector<const Rule*>& now) {
  std::vector<int> result(now.size(), -1);
  size_t begin = 0;
  size_t before_end = before.size(), now_end = now.size();
  while (begin < before_end && begin < now_end && Same(before[begin], now[begin])) {
    result[begin] = static_cast<int>(begin);
    ++begin;
  }
  while (before_end > begin && now_end > begin && Same(before[before_end - 1], now[now_end - 1])) {
    result[--now_end] = static_cast<int>(--before_end);
  }
  if (begin == before_end || begin == now_end) return result;

  // Pair the n-th occurrence of a rule with its n-th occurrence before.
  std::unordered_map<const Rule*, std::vector<int>, RuleHash, RuleEqual> places;
  for (size_t i = before_end; i-- > begin;) {
    if (!before[i]->foreign) places[before[i]].push_back(static_cast<int>(i));
  }
  std::vector<int> middle(now_end - begin, -1);
  for (size_t i = 0; i < middle.size(); ++i) {
    const auto it = places.find(now[begin + i]);
    if (it == places.end() || it->second.empty()) continue;
    middle[i] = it->second.back();
    it->second.pop_back();
  }
  KeepLongestAscent(&middle);
  std::copy(middle.begin(), middle.end(), result.begin() + static_cast<ptrdiff_t>(begin));
  return result;
}

bool Layout::NothingToDo() const {
  return !order_changed && removed.empty() &&
         std::none_of(chunks.begin(), chunks.end(), [](const ChunkPlan& c) { return c.changed; });
}

namespace {

// Lays rules out over the chunks that are there.
class Planner {
 public:
  Planner(const HeldGroup& held, const std::vector<RulePtr>& rules) : held_(held), rules_(rules) {
    layout_.next_chunk = held.next_chunk;
  }

  Layout Plan() {
    Assign();
    for (const ChunkPlan& chunk : assigned_) Place(chunk);
    std::vector<uint32_t> order;
    for (const ChunkPlan& chunk : layout_.chunks) order.push_back(chunk.number);
    layout_.order_changed = order != held_.order;
    for (uint32_t number : held_.order) {
      if (std::find(order.begin(), order.end(), number) == order.end()) {
        layout_.removed.push_back(number);
      }
    }
    return std::move(layout_);
  }

 private:
  // Gives each held chunk a range: its kept rules, and the new ones up to the next chunk's first.
  void Assign() {
    std::vector<const Rule*> before, now;
    for (uint32_t i = 0; i < held_.order.size(); ++i) {
      for (const HeldRule& rule : held_.chunks.at(held_.order[i]).rules) {
        before.push_back(rule.rule.get());
        ordinal_.push_back(i);
      }
    }
    now.reserve(rules_.size());
    for (const RulePtr& rule : rules_) now.push_back(rule.get());
    places_ = MatchRules(before, now);

    size_t kept = 0;  // rules of the open range that were in its chunk before
    for (size_t i = 0; i < rules_.size(); ++i) {
      if (places_[i] < 0) continue;
      const uint32_t number = held_.order[ordinal_[static_cast<size_t>(places_[i])]];
      if (assigned_.empty() || assigned_.back().number != number) {
        if (!assigned_.empty()) Close(i, kept);
        // New rules in front of everything join the first chunk.
        assigned_.push_back({number, assigned_.empty() ? 0 : i, i, false, false});
        kept = 0;
      }
      ++kept;
    }
    if (assigned_.empty() && !rules_.empty()) {
      assigned_.push_back({layout_.next_chunk++, 0, 0, true, true});
    }
    if (!assigned_.empty()) Close(rules_.size(), kept);
  }

  void Close(size_t end, size_t kept) {
    ChunkPlan& chunk = assigned_.back();
    chunk.end = end;
    if (chunk.is_new) return;
    chunk.changed = kept != end - chunk.begin || kept != held_.chunks.at(chunk.number).rules.size();
  }

  // Adds the chunk to the layout, split where it got too large.
  void Place(const ChunkPlan& chunk) {
    const size_t size = chunk.end - chunk.begin;
    if (size <= (chunk.is_new ? kFillChunk : kMaxChunk)) {
      layout_.chunks.push_back(chunk);
      return;
    }
    const size_t pieces = (size + kFillChunk - 1) / kFillChunk;
    for (size_t i = 0; i < pieces; ++i) {
      ChunkPlan piece = chunk;
      piece.changed = true;
      if (i > 0) {
        piece.number = layout_.next_chunk++;
        piece.is_new = true;
      }
      piece.begin = chunk.begin + size * i / pieces;
      piece.end = chunk.begin + size * (i + 1) / pieces;
      layout_.chunks.push_back(piece);
      if (i > 0 && !chunk.is_new) NoteMoves(chunk.number, piece);
    }
  }

  void NoteMoves(uint32_t from, const ChunkPlan& piece) {
    for (size_t i = piece.begin; i < piece.end; ++i) {
      if (places_[i] < 0) continue;
      const auto place = static_cast<size_t>(places_[i]);
      const auto first = std::lower_bound(ordinal_.begin(), ordinal_.end(), ordinal_[place]);
      layout_.moved[i] = {from, place - static_cast<size_t>(first - ordinal_.begin())};
    }
  }

  const HeldGroup& held_;
  const std::vector<RulePtr>& rules_;
  std::vector<int> places_;        // of each rule among those held, or -1
  std::vector<uint32_t> ordinal_;  // of the chunk, for each rule held
  std::vector<ChunkPlan> assigned_;
  Layout layout_;
};

}  // namespace

Layout PlanLayout(const HeldGroup& held, const std::vector<RulePtr>& rules) {
  return Planner(held, rules).Plan();
}

ChainEdit EditChain(const HeldChain& held, const std::vector<RulePtr>& rules) {
  std::vector<const Rule*> before, now;
  for (const HeldRule& rule : held.rules) before.push_back(rule.rule.get());
  for (const RulePtr& rule : rules) now.push_back(rule.get());
  const std::vector<int> places = MatchRules(before, now);

  ChainEdit edit;
  std::vector<bool> kept(held.rules.size(), false);
  for (int place : places) {
    if (place >= 0) kept[static_cast<size_t>(place)] = true;
  }
  for (size_t i = 0; i < kept.size(); ++i) {
    if (!kept[i]) edit.deletes.push_back(held.rules[i].handle);
  }
  if (edit.deletes.size() * 4 > held.rules.size()) {
    edit.flush = true;
    edit.deletes.clear();
  }
  uint64_t next = 0;  // handle of the kept rule behind, for the rules in front of it
  for (size_t i = rules.size(); i-- > 0;) {
    const HeldRule* old = places[i] < 0 ? nullptr : &held.rules[static_cast<size_t>(places[i])];
    if (old != nullptr && !edit.flush) {
      next = old->handle;
    } else {
      edit.inserts.push_back({rules[i], next, old == nullptr ? Hits{} : old->hits, i});
    }
  }
  std::reverse(edit.inserts.begin(), edit.inserts.end());
  return edit;
}

}  // namespace host
