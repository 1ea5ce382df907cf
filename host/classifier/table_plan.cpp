#include "host/classifier/table_plan.h"

#include <algorithm>
#include <numeric>

namespace host::classifier {
namespace {

constexpr size_t kSample = 384;      // rules that a candidate is judged by
constexpr size_t kSeeds = 16;        // masks of the sample that candidates are made from
constexpr size_t kMaxCoarser = 192;  // candidates made from one of them
constexpr uint32_t kShortChain = 4;  // longer ones are allowed only when tables are short
constexpr int kMaxJudged = 300;      // candidates looked at closely

// How a field's mask is made coarser: it keeps so many of its upper bits, or all it has.
struct FieldSteps {
  uint8_t word, shift, width;
  uint8_t count;
  uint8_t kept[7];
};

constexpr FieldSteps kFieldSteps[] = {
    {2, 32, 32, 7, {0, 8, 12, 16, 20, 24, 28}},  // IPv4 source
    {2, 0, 32, 7, {0, 8, 12, 16, 20, 24, 28}},   // IPv4 destination
    {3, 0, 16, 1, {0}},                          // destination port
    {3, 24, 8, 1, {0}},                          // IP protocol
    {3, 16, 8, 1, {0}},                          // ToS
    {0, 16, 48, 2, {0, 24}},                     // destination MAC address: all, its vendor, none
    {1, 16, 48, 2, {0, 24}},                     // source MAC address
    {1, 0, 12, 1, {0}},                          // VLAN id
    {1, 13, 3, 1, {0}},                          // PCP
    {0, 0, 16, 1, {0}},                          // TPID
};

// What a table may keep of the field's bits in `mask`: all of them first, nothing last.
std::vector<uint64_t> KeptBits(const FieldSteps& field, const cls_key& mask) {
  const uint64_t full = ((1ULL << field.width) - 1) << field.shift;
  std::vector<uint64_t> kept = {mask.word[field.word] & full};
  for (int step = field.count - 1; step >= 0; --step) {
    const uint64_t upper = ((1ULL << field.kept[step]) - 1) << (field.width - field.kept[step]);
    const uint64_t bits = kept.front() & upper << field.shift;
    if (bits != kept.back()) kept.push_back(bits);
  }
  return kept;
}

// The masks coarser than or equal to `mask` that are worth a look: all combinations of what is kept
// of each field, with fewer steps where they are too many.
void AddCoarser(const cls_key& mask, std::vector<cls_key>* all) {
  std::vector<std::vector<uint64_t>> kept;
  size_t combinations = 1;
  for (const FieldSteps& field : kFieldSteps) {
    kept.push_back(KeptBits(field, mask));
    combinations *= kept.back().size();
  }
  while (combinations > kMaxCoarser) {
    const auto most = std::max_element(
        kept.begin(), kept.end(), [](const auto& a, const auto& b) { return a.size() < b.size(); });
    if (most->size() <= 2) break;
    combinations = combinations / most->size() * (most->size() - 1);
    most->erase(most->begin() + 1);
  }
  const size_t first = all->size();
  all->push_back({});
  for (size_t i = 0; i < kept.size(); ++i) {
    const size_t end = all->size();
    for (size_t made = first; made < end; ++made) {
      for (size_t option = 1; option < kept[i].size(); ++option) {
        all->push_back((*all)[made]);
        all->back().word[kFieldSteps[i].word] |= kept[i][option];
      }
      (*all)[made].word[kFieldSteps[i].word] |= kept[i][0];
    }
  }
}

int Bits(const cls_key& mask) {
  int bits = 0;
  for (const uint64_t word : mask.word) bits += __builtin_popcountll(word);
  return bits;
}

bool Less(const cls_key& a, const cls_key& b) {
  return std::lexicographical_compare(std::begin(a.word), std::end(a.word), std::begin(b.word),
                                      std::end(b.word));
}

// Counts how often a hash was seen. Emptied at once by a new round.
class HashCounter {
 public:
  void Start(size_t expected) {
    size_t size = 64;
    while (size < expected * 2) size *= 2;
    if (cells_.size() < size) cells_.assign(size, Cell{});
    mask_ = cells_.size() - 1;
    ++round_;
  }
  uint32_t& operator[](uint64_t hash) {
    for (size_t i = (hash >> 20) & mask_;; i = (i + 1) & mask_) {
      Cell& cell = cells_[i];
      if (cell.round != round_) cell = {hash, round_, 0};
      if (cell.hash == hash) return cell.count;
    }
  }

 private:
  struct Cell {
    uint64_t hash = 0;
    uint32_t round = 0;
    uint32_t count = 0;
  };
  std::vector<Cell> cells_;
  size_t mask_ = 0;
  uint32_t round_ = 0;
};

class Planner {
 public:
  Planner(const std::vector<cls_key>& masks, const std::vector<PlanRule>& rules, uint32_t chain)
      : masks_(masks),
        rules_(rules),
        chain_(chain),
        welcome_mates_(chain > kShortChain ? chain - 1.0 : (chain - 1) / 2.0),
        left_(masks.size()),
        left_count_(rules.size()) {
    for (uint32_t i = 0; i < rules.size(); ++i) left_[rules[i].mask].push_back(i);
    by_bits_.resize(masks.size());
    std::iota(by_bits_.begin(), by_bits_.end(), 0);
    std::sort(by_bits_.begin(), by_bits_.end(),
              [&](uint32_t a, uint32_t b) { return Bits(masks_[a]) < Bits(masks_[b]); });
  }

  size_t left() const { return left_count_; }

  PlannedTable Next() {
    TakeSample();
    PlannedTable table{Choose(), {}};
    Fill(&table);
    return table;
  }

 private:
  struct Candidate {
    uint32_t covered;  // rules of the sample
    int bits;
    cls_key mask;
  };

  // Every so manieth of the rules left, counted by their masks.
  void TakeSample() {
    sample_.clear();
    sampled_masks_.clear();
    const size_t stride = std::max<size_t>(1, left_count_ / kSample);
    size_t next = stride / 2;
    for (uint32_t mask = 0; mask < left_.size(); ++mask) {
      const std::vector<uint32_t>& rules = left_[mask];
      const size_t before = sample_.size();
      for (; next < rules.size(); next += stride) sample_.push_back(rules[next]);
      next -= rules.size();
      if (sample_.size() != before) {
        sampled_masks_.emplace_back(static_cast<uint32_t>(sample_.size() - before), mask);
      }
    }
    std::sort(sampled_masks_.rbegin(), sampled_masks_.rend());
  }

  std::vector<Candidate> Candidates() const {
    std::vector<cls_key> masks;
    for (size_t i = 0; i < std::min(kSeeds, sampled_masks_.size()); ++i) {
      AddCoarser(masks_[sampled_masks_[i].second], &masks);
    }
    std::sort(masks.begin(), masks.end(), Less);
    masks.erase(std::unique(masks.begin(), masks.end()), masks.end());
    std::vector<Candidate> all;
    all.reserve(masks.size());
    for (const cls_key& mask : masks) {
      uint32_t covered = 0;
      for (const auto& [count, index] : sampled_masks_) {
        if (Covers(mask, masks_[index])) covered += count;
      }
      all.push_back({covered, Bits(mask), mask});
    }
    std::sort(all.begin(), all.end(), [](const Candidate& a, const Candidate& b) {
      if (a.covered != b.covered) return a.covered > b.covered;
      return a.bits != b.bits ? a.bits > b.bits : Less(a.mask, b.mask);
    });
    return all;
  }

  cls_key Choose() {
    double best_score = -1;
    cls_key best{};
    int judged = 0;
    for (const Candidate& candidate : Candidates()) {
      // No score is above what is covered, and the others cover less.
      if (candidate.covered <= best_score || judged++ > kMaxJudged) break;
      const double score = Score(candidate);
      if (score > best_score) {
        best_score = score;
        best = candidate.mask;
      }
    }
    return best;
  }

  // What the candidate covers, less as far as its buckets would be crowded: the share of pairs of
  // the sample that meet in a bucket says how many mates a rule has when all are there.
  double Score(const Candidate& candidate) {
    counter_.Start(kSample * 2);
    double pairs = 0;
    for (const uint32_t rule : sample_) {
      if (!Covers(candidate.mask, masks_[rules_[rule].mask])) continue;
      pairs += counter_[Hash(*rules_[rule].value & candidate.mask)]++;
    }
    // One rule of a part of all is covered just because the candidate was made from it.
    const double covered = candidate.covered - (sample_.size() < left_count_ ? 1.0 : 0.0);
    if (covered < 2) return covered;
    const double at_full =
        covered / static_cast<double>(sample_.size()) * static_cast<double>(left_count_);
    const double mates = pairs / (covered * (covered - 1) / 2) * (at_full - 1);
    return mates > welcome_mates_ ? covered * welcome_mates_ / mates : covered;
  }

  void Fill(PlannedTable* table) {
    counter_.Start(left_count_);
    for (const uint32_t mask : by_bits_) {
      std::vector<uint32_t>& rules = left_[mask];
      if (rules.empty() || !Covers(table->mask, masks_[mask])) continue;
      // Two rules of this mask do not meet in a bucket, so that it may be one over.
      const bool own = TableMask(masks_[mask]) == table->mask;
      size_t kept = 0;
      for (const uint32_t rule : rules) {
        uint32_t& bucket = counter_[Hash(*rules_[rule].value & table->mask)];
        if (bucket < chain_ || (own && bucket < chain_ + 1)) {
          ++bucket;
          table->rules.push_back(rule);
        } else {
          rules[kept++] = rule;
        }
      }
      left_count_ -= rules.size() - kept;
      rules.resize(kept);
    }
    std::sort(table->rules.begin(), table->rules.end());
  }

  const std::vector<cls_key>& masks_;
  const std::vector<PlanRule>& rules_;
  uint32_t chain_;
  double welcome_mates_;  // rules beside a rule in its bucket that still fit well
  std::vector<std::vector<uint32_t>> left_;  // by mask
  size_t left_count_;
  std::vector<uint32_t> by_bits_;  // masks, the least exact first
  std::vector<uint32_t> sample_;
  std::vector<std::pair<uint32_t, uint32_t>> sampled_masks_;  // count, mask
  HashCounter counter_;
};

}  // namespace

std::vector<PlannedTable> PlanTables(const std::vector<cls_key>& masks,
                                     const std::vector<PlanRule>& rules, const PlanLimits& limits,
                                     size_t* left_over) {
  std::vector<PlannedTable> tables;
  Planner planner(masks, rules, limits.chain);
  size_t most = 0;  // rules of one table so far
  while (planner.left() != 0 && tables.size() < limits.tables) {
    // Tables that take hardly any rules are not worth going on with: later ones take no more.
    const size_t hope = 2 * most * (limits.tables - tables.size());
    if (!tables.empty() && planner.left() > hope) break;
    tables.push_back(planner.Next());
    most = std::max(most, tables.back().rules.size());
  }
  *left_over = planner.left();
  std::sort(tables.begin(), tables.end(), [](const PlannedTable& a, const PlannedTable& b) {
    return std::make_pair(a.rules.size(), a.rules.front()) <
           std::make_pair(b.rules.size(), b.rules.front());
  });
  return tables;
}

}  // namespace host::classifier
