#include "host/classifier/field_filters.h"

#include <algorithm>

#include "host/classifier/sample_keys.h"

namespace host::classifier {
namespace {

constexpr size_t kFewTables = 4;    // below, a filter cannot pay
constexpr double kLeastGain = 0.7;  // tables that a filter saves in the mean, to be worth its look
constexpr size_t kSampleKeys = 512;
constexpr uint8_t kMostBits = 10;  // 1,024 bitmaps, 16 KB: stays in the cache
constexpr uint8_t kLeastBits = 6;

struct Field {
  uint8_t word;
  uint64_t mask;
};

constexpr uint64_t kSource = 0xffffffff00000000ULL;
constexpr uint64_t kDestination = 0xffffffffULL;

constexpr Field kFields[] = {
    {2, kSource & ~0ULL << 56},
    {2, kDestination & ~0ULL << 24},  // /8
    {2, kSource & ~0ULL << 48},
    {2, kDestination & ~0ULL << 16},  // /16
    {2, kSource & ~0ULL << 44},
    {2, kDestination & ~0ULL << 12},  // /20
    {2, kSource & ~0ULL << 40},
    {2, kDestination & ~0ULL << 8},  // /24
    {2, kSource & ~0ULL << 36},
    {2, kDestination & ~0ULL << 4},  // /28
    {2, kSource},
    {2, kDestination},  // /32
    {2, 0xffff0000ffff0000ULL},
    {2, 0xffffff00ffffff00ULL},  // both
    {3, 0xffff},
    {3, 0xff000000},
    {3, 0xff00ffff},  // port, protocol, both
    {0, ~0ULL << 16},
    {1, ~0ULL << 16},  // MAC addresses
    {0, ~0ULL << 40},
    {1, ~0ULL << 40},  // their vendors
    {1, 0xfff},        // VLAN id
};

void SetBit(cls_filter* set, size_t bit) { set->tables[bit / 64] |= 1ULL << (bit % 64); }
bool HasBit(const cls_filter& set, size_t bit) {
  return (set.tables[bit / 64] >> (bit % 64) & 1) != 0;
}

int Count(const cls_filter& set) {
  return __builtin_popcountll(set.tables[0]) + __builtin_popcountll(set.tables[1]);
}

// What is left of `tables` after the filter's look at `key`.
cls_filter Left(const cls_filter& tables, const FieldFilter& filter, const cls_key& key) {
  const cls_filter& bits =
      filter.bitmaps[cls_filter_hash(key.word[filter.word] & filter.mask, filter.bits)];
  return {{tables.tables[0] & (bits.tables[0] | filter.exempt.tables[0]),
           tables.tables[1] & (bits.tables[1] | filter.exempt.tables[1])}};
}

// The filter over `field`; without bitmaps when it says something of less than two tables.
FieldFilter Make(const Field& field, uint8_t bits, const std::vector<cls_key>& common,
                 const std::vector<PlanRule>& rules, const std::vector<PlannedTable>& plan) {
  FieldFilter filter;
  filter.word = field.word;
  filter.mask = field.mask;
  filter.bits = bits;
  size_t told = 0;
  for (size_t table = 0; table < plan.size(); ++table) {
    if ((common[table].word[field.word] & field.mask) == field.mask) {
      ++told;
    } else {
      SetBit(&filter.exempt, table);
    }
  }
  if (told < 2) return filter;
  filter.bitmaps.resize(1U << bits);
  for (size_t table = 0; table < plan.size(); ++table) {
    if (HasBit(filter.exempt, table)) continue;
    for (const uint32_t rule : plan[table].rules) {
      const uint64_t value = rules[rule].value->word[field.word] & field.mask;
      SetBit(&filter.bitmaps[cls_filter_hash(value, bits)], table);
    }
  }
  return filter;
}

}  // namespace

std::vector<FieldFilter> ChooseFilters(const std::vector<cls_key>& masks,
                                       const std::vector<PlanRule>& rules,
                                       const std::vector<PlannedTable>& plan) {
  std::vector<FieldFilter> chosen;
  if (plan.size() < kFewTables) return chosen;
  std::vector<cls_key> common;  // what all rules of a table compare
  for (const PlannedTable& table : plan) {
    cls_key all = {{~0ULL, ~0ULL, ~0ULL, ~0ULL}};
    for (const uint32_t rule : table.rules) all = all & masks[rules[rule].mask];
    common.push_back(all);
  }
  uint8_t bits = kLeastBits;
  while (bits < kMostBits && (1U << bits) < rules.size()) ++bits;
  std::vector<FieldFilter> candidates;
  for (const Field& field : kFields) {
    FieldFilter filter = Make(field, bits, common, rules, plan);
    if (!filter.bitmaps.empty()) candidates.push_back(std::move(filter));
  }

  const auto match_of = [&](size_t i) -> SampledMatch {
    return {rules[i].value, &masks[rules[i].mask]};
  };
  const std::vector<cls_key> keys = SampleKeys(rules.size(), match_of, kSampleKeys);
  cls_filter all{};
  for (size_t table = 0; table < plan.size(); ++table) SetBit(&all, table);
  std::vector<cls_filter> left(keys.size(), all);
  size_t sum = keys.size() * plan.size();
  while (chosen.size() < CLS_MAX_FILTERS && !candidates.empty()) {
    auto best = candidates.end();
    size_t best_sum = sum;
    for (auto filter = candidates.begin(); filter != candidates.end(); ++filter) {
      size_t with = 0;
      for (size_t i = 0; i < keys.size(); ++i) with += Count(Left(left[i], *filter, keys[i]));
      if (with < best_sum) {
        best_sum = with;
        best = filter;
      }
    }
    if (best == candidates.end()) break;
    if (static_cast<double>(sum - best_sum) < kLeastGain * static_cast<double>(keys.size())) break;
    for (size_t i = 0; i < keys.size(); ++i) left[i] = Left(left[i], *best, keys[i]);
    sum = best_sum;
    chosen.push_back(std::move(*best));
    candidates.erase(best);
  }
  return chosen;
}

}  // namespace host::classifier
