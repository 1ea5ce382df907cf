#include "host/filter_mgr/nftables/plan/difference.h"

#include <algorithm>
#include <iterator>
#include <optional>
#include <set>
#include <unordered_map>
#include <utility>

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

// Pairs each rule of now[begin, ...) that has no place with the earliest free one in
// before[begin, end) that is equal in the sense of the map.
template <class Map>
void PairRules(const std::vector<const Rule*>& before, size_t begin, size_t end,
               const std::vector<const Rule*>& now, std::vector<bool>* taken,
               std::vector<int>* places) {
  Map free;
  for (size_t i = end; i-- > begin;) {
    if (!before[i]->foreign && !(*taken)[i - begin]) free[before[i]].push_back(static_cast<int>(i));
  }
  for (size_t i = 0; i < places->size(); ++i) {
    if ((*places)[i] >= 0) continue;
    const auto it = free.find(now[begin + i]);
    if (it == free.end() || it->second.empty()) continue;
    (*places)[i] = it->second.back();
    (*taken)[static_cast<size_t>(it->second.back()) - begin] = true;
    it->second.pop_back();
  }
}

}  // namespace

std::vector<int> MatchRules(const std::vector<const Rule*>& before,
                            const std::vector<const Rule*>& now, std::vector<int>* crossing) {
  std::vector<int> result(now.size(), -1);
  if (crossing != nullptr) crossing->assign(now.size(), -1);
  size_t begin = 0;
  size_t before_end = before.size(), now_end = now.size();
  while (begin < before_end && begin < now_end && before[begin] == now[begin]) {
    result[begin] = static_cast<int>(begin);
    ++begin;
  }
  while (before_end > begin && now_end > begin && before[before_end - 1] == now[now_end - 1]) {
    result[--now_end] = static_cast<int>(--before_end);
  }
  if (begin == before_end || begin == now_end) return result;

  std::vector<int> middle(now_end - begin, -1);
  std::vector<bool> taken(before_end - begin);
  PairRules<std::unordered_map<const Rule*, std::vector<int>>>(before, begin, before_end, now,
                                                               &taken, &middle);
  PairRules<std::unordered_map<const Rule*, std::vector<int>, RuleHash, RuleEqual>>(
      before, begin, before_end, now, &taken, &middle);
  const std::vector<int> found = middle;
  KeepLongestAscent(&middle);
  for (size_t i = 0; crossing != nullptr && i < middle.size(); ++i) {
    if (middle[i] < 0) (*crossing)[begin + i] = found[i];
  }
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
  Planner(const HeldGroup& held, const std::vector<RulePtr>& rules, ChunkOrder order, bool anew)
      : held_(held), rules_(rules), order_(order), anew_(anew), stay_(!anew) {
    if (order != ChunkOrder::kLinks) return;
    fill_ = std::max(kFillChunk, (rules.size() + kManyLinked - 1) / kManyLinked);
    most_ = std::max(kMaxChunk, fill_ * 4 / 3);
  }

  Layout Plan() {
    Match();
    Lay();
    if (order_ == ChunkOrder::kLinks && layout_.chunks.size() > kMaxLinked) {
      stay_ = false;
      Lay();
    }
    Compare();
    if (order_ == ChunkOrder::kLinks) Link();
    return std::move(layout_);
  }

 private:
  // What a held chunk gets: rules [begin, end), of which [first, last) are from the first to the
  // last that is kept.
  struct Range {
    std::optional<uint32_t> number;  // none: there is no chunk yet
    size_t begin = 0, end = 0;
    size_t first = 0, last = 0;

    size_t size() const { return end - begin; }
  };

  void Lay() {
    layout_ = {};
    layout_.next_chunk = anew_ ? 0 : held_.next_chunk;
    ranges_.clear();
    for (size_t i = 0; i < crossing_.size(); ++i) {
      if (crossing_[i] >= 0) layout_.moved[i] = PlaceOf(crossing_[i]);
    }
    Assign();
    for (size_t i = 0; i + 1 < ranges_.size(); ++i) HandOn(&ranges_[i], &ranges_[i + 1]);
    for (const Range& range : ranges_) Place(range);
  }

  void Match() {
    std::vector<const Rule*> before, now;
    for (uint32_t i = 0; i < held_.order.size(); ++i) {
      const HeldChain& chunk = held_.chunks.at(held_.order[i]);
      starts_.push_back(before.size());
      for (const HeldRule& rule : chunk.rules) before.push_back(rule.rule.get());
      ordinal_.resize(before.size(), i);
    }
    now.reserve(rules_.size());
    for (const RulePtr& rule : rules_) now.push_back(rule.get());
    places_ = MatchRules(before, now, &crossing_);
  }

  uint32_t NumberOf(int place) const { return held_.order[ordinal_[static_cast<size_t>(place)]]; }

  HeldPlace PlaceOf(int place) const {
    const auto index = static_cast<size_t>(place);
    return {NumberOf(place), index - starts_[ordinal_[index]]};
  }

  // Gives each held chunk its kept rules, and the new ones up to the next chunk's first.
  void Assign() {
    for (size_t i = 0; i < rules_.size() && stay_; ++i) {
      if (places_[i] < 0) continue;
      const uint32_t number = NumberOf(places_[i]);
      if (ranges_.empty() || ranges_.back().number != number) {
        // New rules in front of everything join the first chunk.
        const size_t begin = ranges_.empty() ? 0 : i;
        if (!ranges_.empty()) ranges_.back().end = i;
        ranges_.push_back({number, begin, i, i, i});
      }
      ranges_.back().last = i + 1;
    }
    if (ranges_.empty() && !rules_.empty()) ranges_.push_back({{}, 0, 0, 0, 0});
    if (!ranges_.empty()) ranges_.back().end = rules_.size();
  }

  // New rules at the end of a chunk that is too large go to the next as far as that has room.
  void HandOn(Range* range, Range* next) const {
    while (range->size() > most_ && range->end > range->last && next->size() < most_) {
      --range->end;
      --next->begin;
    }
  }

  void Place(const Range& range) {
    if (!range.number) return PlaceNew(range.begin, range.end);
    const HeldChain& chunk = held_.chunks.at(*range.number);
    const auto [begin, end] = Staying(range, chunk.guard);
    PlaceNew(range.begin, begin);
    const auto kept = static_cast<size_t>(
        std::count_if(places_.begin() + static_cast<ptrdiff_t>(begin),
                      places_.begin() + static_cast<ptrdiff_t>(end), [](int p) { return p >= 0; }));
    const bool changed = kept != end - begin || kept != chunk.rules.size();
    layout_.chunks.push_back({*range.number, begin, end, false, changed, chunk.guard, {}});
    if (changed) layout_.chunks.back().places = PlacesWithin(begin, end);
    PlaceNew(end, range.end);
  }

  // Where rules [begin, end) stand in their chunks.
  std::vector<int> PlacesWithin(size_t begin, size_t end) const {
    std::vector<int> places(places_.begin() + static_cast<ptrdiff_t>(begin),
                            places_.begin() + static_cast<ptrdiff_t>(end));
    for (int& place : places) {
      if (place >= 0) place -= static_cast<int>(starts_[ordinal_[static_cast<size_t>(place)]]);
    }
    return places;
  }

  bool Fits(size_t rule, const Guard& guard) const {
    return places_[rule] >= 0 || FitsGuard(*rules_[rule], guard);
  }

  // The part of a range that stays in its chunk: all of it if that is possible, else all that is
  // kept, else the part with the most of that; where the chunk is full, with room for more.
  std::pair<size_t, size_t> Staying(const Range& range, const Guard& guard) const {
    const size_t room = range.size() <= most_               ? most_
                        : range.last - range.first <= most_ ? range.last - range.first
                                                            : fill_;
    std::pair<size_t, size_t> best, now{range.begin, range.begin};
    size_t most = 0, kept = 0;
    while (now.second < range.end) {
      if (!Fits(now.second, guard)) {
        now.first = ++now.second;
        kept = 0;
        continue;
      }
      kept += places_[now.second++] >= 0 ? 1 : 0;
      if (now.second - now.first > room) kept -= places_[now.first++] >= 0 ? 1 : 0;
      if (kept < most || kept == 0) continue;
      most = kept;
      best = now;
    }
    return best;
  }

  // Lays rules out over new chunks, evenly.
  void PlaceNew(size_t begin, size_t end) {
    const size_t size = end - begin, pieces = (size + fill_ - 1) / fill_;
    for (size_t i = 0; i < pieces; ++i) {
      ChunkPlan piece;
      piece.number = layout_.next_chunk++;
      piece.begin = begin + size * i / pieces;
      piece.end = begin + size * (i + 1) / pieces;
      piece.is_new = piece.changed = true;
      if (order_ == ChunkOrder::kJumps) piece.guard = GuardOf(*rules_[piece.begin]);
      for (size_t rule = piece.begin; rule < piece.end; ++rule) {
        while (!FitsGuard(*rules_[rule], piece.guard)) piece.guard.erase(piece.guard.begin());
        if (places_[rule] >= 0) layout_.moved[rule] = PlaceOf(places_[rule]);
      }
      layout_.chunks.push_back(std::move(piece));
    }
  }

  void Compare() {
    std::vector<uint32_t> order;
    for (const ChunkPlan& chunk : layout_.chunks) order.push_back(chunk.number);
    layout_.order_changed = anew_ ? !order.empty() : order != held_.order;
    if (anew_) return;
    const std::set<uint32_t> stay(order.begin(), order.end());
    std::copy_if(held_.order.begin(), held_.order.end(), std::back_inserter(layout_.removed),
                 [&stay](uint32_t number) { return stay.count(number) == 0; });
  }

  // What each chunk is linked to.
  void Link() {
    for (size_t i = 0; i < layout_.chunks.size(); ++i) {
      ChunkPlan& chunk = layout_.chunks[i];
      if (i + 1 < layout_.chunks.size()) chunk.next = layout_.chunks[i + 1].number;
      std::optional<uint32_t> held;
      if (!chunk.is_new && held_.chunks.at(chunk.number).link) {
        held = held_.chunks.at(chunk.number).link->rule->outcome.chunk;
      }
      chunk.relinked = held != chunk.next;
    }
  }

  const HeldGroup& held_;
  const std::vector<RulePtr>& rules_;
  const ChunkOrder order_;
  const bool anew_;
  bool stay_;  // whether chunks do
  size_t most_ = kMaxChunk, fill_ = kFillChunk;
  std::vector<int> places_;        // of each rule among those held, or -1
  std::vector<int> crossing_;      // the same of those that are not kept
  std::vector<uint32_t> ordinal_;  // of the chunk, for each rule held
  std::vector<size_t> starts_;     // of each chunk, among the rules held
  std::vector<Range> ranges_;
  Layout layout_;
};

}  // namespace

Layout PlanLayout(const HeldGroup& held, const std::vector<RulePtr>& rules, ChunkOrder order,
                  bool anew) {
  return Planner(held, rules, order, anew).Plan();
}

std::vector<RulePtr> LeadingRules(const Layout& layout, ChunkOrder order) {
  std::vector<RulePtr> rules;
  for (const ChunkPlan& chunk : layout.chunks) {
    if (order == ChunkOrder::kLinks) return {GoTo(chunk.number)};
    rules.push_back(JumpTo(chunk.number, chunk.guard));
  }
  return rules;
}

ChainEdit EditChain(const HeldChain& held, const std::vector<RulePtr>& rules,
                    const std::vector<int>& places) {
  ChainEdit edit;
  std::vector<bool> kept(held.rules.size(), false);
  for (int place : places) {
    if (place >= 0) kept[static_cast<size_t>(place)] = true;
  }
  edit.flush = !kept.empty() && std::find(kept.begin(), kept.end(), true) == kept.end();
  for (size_t i = 0; i < kept.size() && !edit.flush; ++i) {
    if (!kept[i]) edit.deletes.push_back(held.rules[i].handle);
  }
  uint64_t next = 0;  // handle of the kept rule behind, for the rules in front of it
  for (size_t i = rules.size(); i-- > 0;) {
    if (places[i] >= 0) {
      next = held.rules[static_cast<size_t>(places[i])].handle;
    } else {
      edit.inserts.push_back({rules[i], next, i});
    }
  }
  std::reverse(edit.inserts.begin(), edit.inserts.end());
  return edit;
}

}  // namespace host
